// A bare TCP server on loopback for protocol faults the HTTP server will not produce: closing
// before or in the middle of an answer, answering with hand-written bytes, or holding a
// connection open in silence. It also serves as a minimal HTTP proxy in tests, since it records
// every request head it reads.
//
//   orvex_test::RawSocketServer raw;
//   raw.setAction(RawSocketServer::Action::Reply,
//                 "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly ten b");  // then closes
//   std::string url = raw.url("/x");
#ifndef ORVEX_TEST_RAW_SOCKET_SERVER_H
#define ORVEX_TEST_RAW_SOCKET_SERVER_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvex_test {

class RawSocketServer {
public:
    enum class Action {
        CloseImmediately,   // close as soon as the connection is accepted
        CloseAfterRequest,  // read the request head, then close without a byte
        Reply,              // read the request head, send the reply bytes, close
        Hold,               // read the request head, then keep silent until the server stops
    };

    RawSocketServer();
    ~RawSocketServer();
    RawSocketServer(const RawSocketServer&) = delete;
    RawSocketServer& operator=(const RawSocketServer&) = delete;

    bool ok() const { return listenFd_ >= 0; }
    // Speaks TLS from now on, with the trusted test certificate, and issues session tickets.
    void useTls();
    // TLS connections that resumed an earlier session.
    int resumedCount() const;
    uint16_t port() const { return port_; }
    std::string url(const std::string& pathAndQuery) const;  // http, or https after useTls()

    // What to do with the next connections.
    void setAction(Action action, std::string reply = std::string());
    // For Action::Reply: the bytes to send for a request of this path (without query) instead.
    void setReply(const std::string& path, std::string reply);

    // Request heads (up to and including the blank line) in the order they arrived.
    std::vector<std::string> requests() const;
    int acceptedCount() const;

private:
    void acceptLoop();
    void serve(int fd);

    int listenFd_ = -1;
    int wakePipe_[2] = {-1, -1};
    uint16_t port_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable stopped_;
    bool stopping_ = false;
    Action action_ = Action::CloseAfterRequest;
    std::string reply_;
    std::map<std::string, std::string> replies_;
    std::vector<std::string> requests_;
    int accepted_ = 0;
    bool tls_ = false;
    int resumed_ = 0;
    struct Tls;
    std::shared_ptr<Tls> tlsState_;
    std::vector<int> openFds_;
    std::vector<std::thread> workers_;
    std::thread acceptor_;
};

}  // namespace orvex_test

#endif
