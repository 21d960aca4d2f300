// An HTTP and HTTPS server on loopback for the networking tests and benchmarks. It answers
// well-formed requests with what a route says, and can also misbehave on purpose: close before or
// in the middle of an answer, send hand-written bytes, or keep silent. It records every request it
// reads, so that it also serves as a minimal HTTP proxy.
//
//   orvex_test::TestHttpServer server(orvex_test::TestHttpServer::Mode::Https);
//   server.route("/weather", {200, {{"Content-Type", "application/json"}}, "{\"t\":1}"});
//   std::string url = server.url("/weather?q=1");   // https://127.0.0.1:<port>/weather?q=1
//
// libcurl clients trust the server by verifying against caFile(). The library verifies against its
// build-time CA file; a test makes it trust caFile() with orvex_test::TrustTestCa (CurlHooks.h).
//
// The server listens on a free port of 127.0.0.1 and serves each connection on its own thread, one
// request per connection ("Connection: close"), so a slow or silent route holds only its own
// connection. HTTPS servers issue TLS session tickets, so a client can resume a session on a later
// connection. Paths without a route get the "*" route, or 404.
#ifndef ORVEX_TEST_HTTP_SERVER_H
#define ORVEX_TEST_HTTP_SERVER_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace orvex_test {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

struct HttpRoute {
    int status = 200;
    HeaderList headers;
    std::string body;
    // Send the body with chunked transfer encoding, in small chunks.
    bool chunked = false;
    // Answer only after this many milliseconds (or at once on releaseHeld()).
    int delayMs = 0;
    // Never answer: hold the connection until releaseHeld() or the server stops, then close it.
    bool neverAnswer = false;
    // A body made while it is sent (too big to hold): each answer calls makeStream() for a fresh
    // generator, which fills a buffer and returns the bytes written, 0 at the end. Sent with
    // streamLength as Content-Length, chunked when it is UINT64_MAX.
    std::function<std::function<size_t(char*, size_t)>()> makeStream = nullptr;
    uint64_t streamLength = UINT64_MAX;
    // Bytes sent as they stand instead of an answer, then the connection is closed; empty closes
    // without a byte.
    std::optional<std::string> raw = std::nullopt;
};

struct ReceivedRequest {
    std::string head;  // the request line and headers as received, blank line included
    std::string method;
    std::string path;   // the request target without the query
    std::string query;  // after the '?', as sent
    std::string body;
};

class TestHttpServer {
public:
    enum class Mode {
        Http,
        Https,           // certificate signed by caFile()'s CA
        HttpsUntrusted,  // certificate signed by a CA no client trusts
    };

    explicit TestHttpServer(Mode mode = Mode::Http);
    ~TestHttpServer();
    TestHttpServer(const TestHttpServer&) = delete;
    TestHttpServer& operator=(const TestHttpServer&) = delete;

    // False when the server could not start (the tests then fail on it).
    bool ok() const { return listenFd_ >= 0; }
    uint16_t port() const { return port_; }
    // "http[s]://127.0.0.1:<port>" + pathAndQuery.
    std::string url(const std::string& pathAndQuery) const;

    // Adds or replaces the answer for a path (without query); "*" answers every other path.
    void route(const std::string& path, HttpRoute answer);

    std::vector<ReceivedRequest> requests() const;
    // Connections accepted, and those of them that resumed an earlier TLS session.
    int acceptedCount() const;
    int resumedCount() const;
    // Number of requests currently held by delayMs or neverAnswer routes.
    int heldCount() const;
    // Lets every held request go: delayed ones are answered, neverAnswer ones closed.
    void releaseHeld();

    // PEM file of the CA that signs Mode::Https servers.
    static std::string caFile();

private:
    struct Tls;
    struct Worker {
        std::thread thread;
        bool done = false;
    };
    void acceptLoop();
    void serve(int fd, Worker* self);
    // Waits while a route holds the request; false when the connection is to close unanswered.
    bool hold(const HttpRoute& route);

    Mode mode_;
    int listenFd_ = -1;
    int wakePipe_[2] = {-1, -1};
    uint16_t port_ = 0;
    std::unique_ptr<Tls> tls_;
    mutable std::mutex mutex_;
    std::condition_variable released_;
    bool stopping_ = false;
    unsigned releaseGeneration_ = 0;
    int held_ = 0;
    int accepted_ = 0;
    int resumed_ = 0;
    std::map<std::string, HttpRoute> routes_;
    std::vector<ReceivedRequest> requests_;
    std::vector<int> openFds_;
    std::list<Worker> workers_;
    std::thread acceptor_;
};

}  // namespace orvex_test

#endif
