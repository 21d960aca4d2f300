#include "TestHttpServer.h"

#include <arpa/inet.h>
#include <gio/gio.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

#include "TestCertificates.h"

namespace orvex_test {

namespace {

std::string gzipped(const std::string& in) {
    GZlibCompressor* z = g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP, -1);
    std::string out;
    const char* src = in.data();
    gsize left = in.size();
    char buf[4096];
    for (;;) {
        gsize read = 0, written = 0;
        GConverterResult r =
            g_converter_convert(G_CONVERTER(z), src, left, buf, sizeof buf,
                                G_CONVERTER_INPUT_AT_END, &read, &written, nullptr);
        out.append(buf, written);
        src += read;
        left -= read;
        if (r == G_CONVERTER_FINISHED || r == G_CONVERTER_ERROR) break;
    }
    g_object_unref(z);
    return out;
}

// Serves a body in 7-byte pieces so that a chunked answer really has several chunks.
struct ChunkSource {
    std::string body;
    size_t offset = 0;
};

ssize_t readChunk(void* cls, uint64_t, char* buf, size_t max) {
    auto* src = static_cast<ChunkSource*>(cls);
    if (src->offset >= src->body.size()) return MHD_CONTENT_READER_END_OF_STREAM;
    size_t n = std::min<size_t>({7, max, src->body.size() - src->offset});
    memcpy(buf, src->body.data() + src->offset, n);
    src->offset += n;
    return static_cast<ssize_t>(n);
}

void freeChunk(void* cls) { delete static_cast<ChunkSource*>(cls); }

using Stream = std::function<size_t(char*, size_t)>;

ssize_t readStream(void* cls, uint64_t, char* buf, size_t max) {
    size_t n = (*static_cast<Stream*>(cls))(buf, max);
    return n ? static_cast<ssize_t>(n) : MHD_CONTENT_READER_END_OF_STREAM;
}

void freeStream(void* cls) { delete static_cast<Stream*>(cls); }

MHD_Result collect(void* cls, MHD_ValueKind, const char* key, const char* value) {
    static_cast<HeaderList*>(cls)->emplace_back(key ? key : "", value ? value : "");
    return MHD_YES;
}

}  // namespace

struct TestHttpServerDetail {
    struct Connection {
        std::string body;
    };

    static MHD_Result onRequest(void* cls, MHD_Connection* connection, const char* url,
                                const char* method, const char*, const char* uploadData,
                                size_t* uploadDataSize, void** conCls) {
        auto* self = static_cast<TestHttpServer*>(cls);
        if (!*conCls) {
            *conCls = new Connection();
            return MHD_YES;
        }
        auto* state = static_cast<Connection*>(*conCls);
        if (*uploadDataSize) {
            state->body.append(uploadData, *uploadDataSize);
            *uploadDataSize = 0;
            return MHD_YES;
        }

        ReceivedRequest req;
        req.method = method;
        req.path = url;
        req.body = state->body;
        MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, collect, &req.query);
        MHD_get_connection_values(connection, MHD_HEADER_KIND, collect, &req.headers);

        HttpRoute route;
        bool found = false;
        {
            std::lock_guard<std::mutex> lock(self->mutex_);
            self->requests_.push_back(req);
            auto it = self->routes_.find(req.path);
            if (it != self->routes_.end()) {
                route = it->second;
                found = true;
            }
        }
        if (!found) {
            route.status = 404;
            route.body = "not found";
        }

        if (route.neverAnswer || route.delayMs > 0) {
            std::unique_lock<std::mutex> lock(self->mutex_);
            ++self->held_;
            unsigned generation = self->releaseGeneration_;
            auto released = [&] {
                return self->stopping_ || self->releaseGeneration_ != generation;
            };
            bool let_go;
            if (route.neverAnswer) {
                self->released_.wait(lock, released);
                let_go = true;
            } else {
                let_go = self->released_.wait_for(lock, std::chrono::milliseconds(route.delayMs),
                                                  released) &&
                         self->stopping_;
            }
            --self->held_;
            if (let_go) return MHD_NO;  // closes the connection without an answer
        }

        std::string body = route.gzip ? gzipped(route.body) : route.body;
        MHD_Response* response;
        if (route.makeStream) {
            response = MHD_create_response_from_callback(
                route.streamLength == UINT64_MAX ? MHD_SIZE_UNKNOWN : route.streamLength, 64 * 1024,
                readStream, new Stream(route.makeStream()), freeStream);
        } else if (route.chunked) {
            auto* src = new ChunkSource{body, 0};
            response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 1024, readChunk, src,
                                                         freeChunk);
        } else {
            response =
                MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_MUST_COPY);
        }
        if (!response) return MHD_NO;
        for (const auto& h : route.headers)
            MHD_add_response_header(response, h.first.c_str(), h.second.c_str());
        if (route.gzip) MHD_add_response_header(response, "Content-Encoding", "gzip");
        MHD_Result ret =
            MHD_queue_response(connection, static_cast<unsigned>(route.status), response);
        MHD_destroy_response(response);
        return ret;
    }

    static void onCompleted(void*, MHD_Connection*, void** conCls, MHD_RequestTerminationCode) {
        delete static_cast<Connection*>(*conCls);
        *conCls = nullptr;
    }
};

TestHttpServer::TestHttpServer(Mode mode) : mode_(mode) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;

    unsigned flags = MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD;
    const TestCertificates* certs = nullptr;
    if (mode == Mode::Https) certs = &TestCertificates::trusted();
    if (mode == Mode::HttpsUntrusted) certs = &TestCertificates::untrusted();
    if (certs) {
        flags |= MHD_USE_TLS;
        daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &TestHttpServerDetail::onRequest,
                                   this, MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr*>(&addr),
                                   MHD_OPTION_NOTIFY_COMPLETED, &TestHttpServerDetail::onCompleted,
                                   this, MHD_OPTION_HTTPS_MEM_KEY, certs->serverKeyPem.c_str(),
                                   MHD_OPTION_HTTPS_MEM_CERT, certs->serverCertPem.c_str(),
                                   MHD_OPTION_END);
    } else {
        daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &TestHttpServerDetail::onRequest,
                                   this, MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr*>(&addr),
                                   MHD_OPTION_NOTIFY_COMPLETED, &TestHttpServerDetail::onCompleted,
                                   this, MHD_OPTION_END);
    }
    if (daemon_) {
        const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
        port_ = info ? info->port : 0;
    }
}

TestHttpServer::~TestHttpServer() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    released_.notify_all();
    if (daemon_) MHD_stop_daemon(daemon_);
}

std::string TestHttpServer::url(const std::string& pathAndQuery) const {
    return std::string(mode_ == Mode::Http ? "http" : "https") +
           "://127.0.0.1:" + std::to_string(port_) + pathAndQuery;
}

std::string TestHttpServer::hostUrl(const std::string& pathAndQuery) const {
    return std::string(mode_ == Mode::Http ? "http" : "https") +
           "://localhost:" + std::to_string(port_) + pathAndQuery;
}

void TestHttpServer::route(const std::string& path, HttpRoute answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    routes_[path] = std::move(answer);
}

std::vector<ReceivedRequest> TestHttpServer::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

size_t TestHttpServer::requestCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_.size();
}

int TestHttpServer::heldCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return held_;
}

void TestHttpServer::releaseHeld() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++releaseGeneration_;
    }
    released_.notify_all();
}

std::string TestHttpServer::caFile() { return TestCertificates::trusted().caFile; }

}  // namespace orvex_test
