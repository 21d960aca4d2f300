// A local HTTP and HTTPS server on loopback with routes, held requests and recorded requests.
#include "TestHttpServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gnutls/gnutls.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sstream>

namespace orvex_test {

namespace {

// The request line of a request head.
ReceivedRequest parse(const std::string& head) {
    ReceivedRequest r;
    r.head = head;
    std::istringstream line(head.substr(0, head.find("\r\n")));
    std::string target;
    line >> r.method >> target;
    size_t q = target.find('?');
    r.path = target.substr(0, q);
    if (q != std::string::npos) r.query = target.substr(q + 1);
    return r;
}

// One connection, plain or TLS.
struct Wire {
    int fd;
    gnutls_session_t tls = nullptr;

    ssize_t read(char* buf, size_t size) {
        return tls ? gnutls_record_recv(tls, buf, size) : ::read(fd, buf, size);
    }
    bool write(const char* data, size_t size) {
        while (size > 0) {
            ssize_t n =
                tls ? gnutls_record_send(tls, data, size) : send(fd, data, size, MSG_NOSIGNAL);
            if (n <= 0) return false;
            data += n;
            size -= static_cast<size_t>(n);
        }
        return true;
    }
    bool write(const std::string& text) { return write(text.data(), text.size()); }
    bool chunk(const char* data, size_t size) {
        char line[24];
        snprintf(line, sizeof line, "%zx\r\n", size);
        return write(line, strlen(line)) && write(data, size) && write("\r\n", 2);
    }
};

}  // namespace

// Credentials and the ticket key every TLS connection of a server shares. The certificates of
// both chains are made at build time by make-test-certs.sh.
struct TestHttpServer::Tls {
    gnutls_certificate_credentials_t credentials = nullptr;
    gnutls_datum_t ticketKey{nullptr, 0};
    explicit Tls(const std::string& chain) {
        const std::string files = ORVEX_TEST_CERT_DIR "/" + chain;
        gnutls_certificate_allocate_credentials(&credentials);
        gnutls_certificate_set_x509_key_file(credentials, (files + "-server.pem").c_str(),
                                             (files + "-server.key").c_str(), GNUTLS_X509_FMT_PEM);
        gnutls_session_ticket_key_generate(&ticketKey);
    }
    ~Tls() {
        gnutls_certificate_free_credentials(credentials);
        gnutls_free(ticketKey.data);
    }
};

TestHttpServer::TestHttpServer(Mode mode) : mode_(mode) {
    // A client that hangs up mid-answer must not end the test program.
    signal(SIGPIPE, SIG_IGN);
    if (mode != Mode::Http)
        tls_ = std::make_unique<Tls>(mode == Mode::Https ? "trusted" : "untrusted");
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || listen(fd, 64) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0 ||
        pipe2(wakePipe_, O_CLOEXEC) != 0) {
        close(fd);
        return;
    }
    port_ = ntohs(addr.sin_port);
    listenFd_ = fd;
    acceptor_ = std::thread([this] { acceptLoop(); });
}

TestHttpServer::~TestHttpServer() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        for (int fd : openFds_) shutdown(fd, SHUT_RDWR);
    }
    released_.notify_all();
    if (wakePipe_[1] >= 0) (void)!write(wakePipe_[1], "x", 1);
    if (acceptor_.joinable()) acceptor_.join();
    for (auto& w : workers_) w.thread.join();
    if (listenFd_ >= 0) close(listenFd_);
    for (int fd : wakePipe_)
        if (fd >= 0) close(fd);
}

void TestHttpServer::acceptLoop() {
    for (;;) {
        pollfd fds[2] = {{listenFd_, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) continue;
        if (fds[1].revents) return;
        int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) {
            close(fd);
            return;
        }
        // Threads of finished connections are joined as new ones come.
        for (auto it = workers_.begin(); it != workers_.end();) {
            if (!it->done) {
                ++it;
                continue;
            }
            it->thread.join();
            it = workers_.erase(it);
        }
        ++accepted_;
        openFds_.push_back(fd);
        Worker& worker = workers_.emplace_back();
        worker.thread = std::thread([this, fd, &worker] { serve(fd, &worker); });
    }
}

bool TestHttpServer::hold(const HttpRoute& route) {
    if (!route.neverAnswer && route.delayMs <= 0) return true;
    std::unique_lock<std::mutex> lock(mutex_);
    ++held_;
    unsigned generation = releaseGeneration_;
    auto released = [&] { return stopping_ || releaseGeneration_ != generation; };
    if (route.neverAnswer)
        released_.wait(lock, released);
    else
        released_.wait_for(lock, std::chrono::milliseconds(route.delayMs), released);
    --held_;
    return !route.neverAnswer && !stopping_;
}

void TestHttpServer::serve(int fd, Worker* self) {
    Wire wire{fd};
    bool open = true;
    if (tls_) {
        gnutls_init(&wire.tls, GNUTLS_SERVER);
        gnutls_set_default_priority(wire.tls);
        gnutls_credentials_set(wire.tls, GNUTLS_CRD_CERTIFICATE, tls_->credentials);
        gnutls_session_ticket_enable_server(wire.tls, &tls_->ticketKey);
        gnutls_transport_set_int(wire.tls, fd);
        open = gnutls_handshake(wire.tls) >= 0;
        std::lock_guard<std::mutex> lock(mutex_);
        resumed_ += open && gnutls_session_is_resumed(wire.tls);
    }
    std::string data;
    char buf[4096];
    size_t headEnd;
    while (open && (headEnd = data.find("\r\n\r\n")) == std::string::npos) {
        ssize_t n = wire.read(buf, sizeof buf);
        if (n <= 0)
            open = false;
        else
            data.append(buf, static_cast<size_t>(n));
    }
    if (open) {
        ReceivedRequest request = parse(data.substr(0, headEnd + 4));
        request.body = data.substr(headEnd + 4);
        static const char kLength[] = "\r\nContent-Length:";
        const char* declared = strcasestr(request.head.c_str(), kLength);
        size_t length = declared ? strtoul(declared + sizeof kLength - 1, nullptr, 10) : 0;
        for (ssize_t n = 0; request.body.size() < length; request.body.append(buf, n))
            if ((n = wire.read(buf, sizeof buf)) <= 0) break;

        HttpRoute route{404, {}, "not found"};
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(request);
            auto it = routes_.find(request.path);
            if (it == routes_.end()) it = routes_.find("*");
            if (it != routes_.end()) route = it->second;
        }
        if (route.raw) {
            wire.write(*route.raw);
        } else if (hold(route)) {
            bool chunked = route.makeStream ? route.streamLength == UINT64_MAX : route.chunked;
            std::string head = "HTTP/1.1 " + std::to_string(route.status) +
                               (route.status == 200 ? " OK" : " Status") +
                               "\r\nConnection: close\r\n";
            for (const auto& h : route.headers) head += h.first + ": " + h.second + "\r\n";
            head += chunked ? "Transfer-Encoding: chunked\r\n"
                            : "Content-Length: " +
                                  std::to_string(route.makeStream ? route.streamLength
                                                                  : route.body.size()) +
                                  "\r\n";
            bool sending = wire.write(head + "\r\n");
            if (route.makeStream) {
                auto next = route.makeStream();
                std::vector<char> piece(64 * 1024);
                for (size_t n; sending && (n = next(piece.data(), piece.size())) > 0;)
                    sending = chunked ? wire.chunk(piece.data(), n) : wire.write(piece.data(), n);
            } else if (chunked) {
                // Small pieces, so that the answer really has several chunks.
                for (size_t at = 0; sending && at < route.body.size(); at += 7)
                    sending = wire.chunk(route.body.data() + at,
                                         std::min<size_t>(7, route.body.size() - at));
            } else {
                sending = wire.write(route.body);
            }
            if (sending && chunked) wire.write("0\r\n\r\n");
        }
    }
    if (wire.tls) {
        gnutls_bye(wire.tls, GNUTLS_SHUT_WR);
        gnutls_deinit(wire.tls);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    openFds_.erase(std::remove(openFds_.begin(), openFds_.end(), fd), openFds_.end());
    close(fd);
    self->done = true;
}

std::string TestHttpServer::url(const std::string& pathAndQuery) const {
    return std::string(mode_ == Mode::Http ? "http" : "https") +
           "://127.0.0.1:" + std::to_string(port_) + pathAndQuery;
}

void TestHttpServer::route(const std::string& path, HttpRoute answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    routes_[path] = std::move(answer);
}

std::vector<ReceivedRequest> TestHttpServer::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

int TestHttpServer::acceptedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return accepted_;
}

int TestHttpServer::resumedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return resumed_;
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

std::string TestHttpServer::caFile() { return ORVEX_TEST_CERT_DIR "/trusted-ca.pem"; }

}  // namespace orvex_test
