// In-process HTTP and HTTPS servers on loopback for the networking tests and benchmarks.
//
//   orvex_test::TestHttpServer server(orvex_test::TestHttpServer::Mode::Https);
//   server.route("/weather", {200, {{"Content-Type", "application/json"}}, "{\"t\":1}"});
//   std::string url = server.url("/weather?q=1");   // https://127.0.0.1:<port>/weather?q=1
//
// libcurl clients trust the server by verifying against caFile(). The library verifies against its
// build-time CA file; a test makes it trust caFile() with orvex_test::TrustTestCa (CurlHooks.h).
//
// Each server listens on a free port of 127.0.0.1 chosen by the kernel and answers every
// connection on its own thread, so a slow or silent route holds only its own connection. Paths
// without a route answer 404. The destructor releases held connections and stops the server.
#ifndef ORVEX_TEST_HTTP_SERVER_H
#define ORVEX_TEST_HTTP_SERVER_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

struct MHD_Daemon;
struct MHD_Connection;

namespace orvex_test {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

struct HttpRoute {
    int status = 200;
    HeaderList headers;
    std::string body;
    // Send the body gzip-compressed with "Content-Encoding: gzip".
    bool gzip = false;
    // Send the body with chunked transfer encoding, in small chunks.
    bool chunked = false;
    // Answer only after this many milliseconds.
    int delayMs = 0;
    // Never answer: hold the connection until releaseHeld() or the server stops, then close it.
    bool neverAnswer = false;
    // A body made while it is sent (too big to hold): each answer calls makeStream() for a fresh
    // generator, which fills a buffer and returns the bytes written, 0 at the end. Sent with
    // streamLength as Content-Length, chunked when it is UINT64_MAX.
    std::function<std::function<size_t(char*, size_t)>()> makeStream = nullptr;
    uint64_t streamLength = UINT64_MAX;
};

struct ReceivedRequest {
    std::string method;
    std::string path;    // without the query
    HeaderList query;    // decoded query arguments, in order
    HeaderList headers;  // in the order received
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
    bool ok() const { return daemon_ != nullptr; }
    uint16_t port() const { return port_; }
    // "http[s]://127.0.0.1:<port>" + pathAndQuery.
    std::string url(const std::string& pathAndQuery) const;
    // The same through the host name "localhost", so that the client resolves a name.
    std::string hostUrl(const std::string& pathAndQuery) const;

    // Adds or replaces the answer for a path (without query).
    void route(const std::string& path, HttpRoute answer);

    std::vector<ReceivedRequest> requests() const;
    size_t requestCount() const;
    // Number of requests currently held by delayMs or neverAnswer routes.
    int heldCount() const;
    // Lets every held request go (closing without an answer for neverAnswer routes).
    void releaseHeld();

    // PEM file of the CA that signs Mode::Https servers.
    static std::string caFile();

private:
    friend struct TestHttpServerDetail;

    Mode mode_;
    MHD_Daemon* daemon_ = nullptr;
    uint16_t port_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable released_;
    bool stopping_ = false;
    unsigned releaseGeneration_ = 0;
    int held_ = 0;
    std::map<std::string, HttpRoute> routes_;
    std::vector<ReceivedRequest> requests_;
};

}  // namespace orvex_test

#endif
