#include "RawSocketServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gnutls/gnutls.h>

#include <algorithm>

#include "TestCertificates.h"

namespace orvex_test {

// Credentials and the ticket key every TLS connection of a server shares, so that a client can
// resume a session on a later connection.
struct RawSocketServer::Tls {
    gnutls_certificate_credentials_t credentials = nullptr;
    gnutls_datum_t ticketKey{nullptr, 0};
    Tls() {
        const auto& certs = TestCertificates::trusted();
        gnutls_datum_t cert{
            reinterpret_cast<unsigned char*>(const_cast<char*>(certs.serverCertPem.c_str())),
            static_cast<unsigned>(certs.serverCertPem.size())};
        gnutls_datum_t key{
            reinterpret_cast<unsigned char*>(const_cast<char*>(certs.serverKeyPem.c_str())),
            static_cast<unsigned>(certs.serverKeyPem.size())};
        gnutls_certificate_allocate_credentials(&credentials);
        gnutls_certificate_set_x509_key_mem(credentials, &cert, &key, GNUTLS_X509_FMT_PEM);
        gnutls_session_ticket_key_generate(&ticketKey);
    }
    ~Tls() {
        gnutls_certificate_free_credentials(credentials);
        gnutls_free(ticketKey.data);
    }
};

void RawSocketServer::useTls() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!tlsState_) tlsState_ = std::make_shared<Tls>();
    tls_ = true;
}

int RawSocketServer::resumedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return resumed_;
}

RawSocketServer::RawSocketServer() {
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

RawSocketServer::~RawSocketServer() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        for (int fd : openFds_) shutdown(fd, SHUT_RDWR);
    }
    stopped_.notify_all();
    if (wakePipe_[1] >= 0) (void)!write(wakePipe_[1], "x", 1);
    if (acceptor_.joinable()) acceptor_.join();
    for (auto& t : workers_) t.join();
    if (listenFd_ >= 0) close(listenFd_);
    for (int fd : wakePipe_)
        if (fd >= 0) close(fd);
}

std::string RawSocketServer::url(const std::string& pathAndQuery) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return (tls_ ? "https" : "http") + std::string("://127.0.0.1:") + std::to_string(port_) +
           pathAndQuery;
}

void RawSocketServer::setAction(Action action, std::string reply) {
    std::lock_guard<std::mutex> lock(mutex_);
    action_ = action;
    reply_ = std::move(reply);
}

void RawSocketServer::setReply(const std::string& path, std::string reply) {
    std::lock_guard<std::mutex> lock(mutex_);
    replies_[path] = std::move(reply);
}

std::vector<std::string> RawSocketServer::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

int RawSocketServer::acceptedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return accepted_;
}

void RawSocketServer::acceptLoop() {
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
        ++accepted_;
        openFds_.push_back(fd);
        workers_.emplace_back([this, fd] { serve(fd); });
    }
}

void RawSocketServer::serve(int fd) {
    Action action;
    std::string reply;
    std::shared_ptr<Tls> tls;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        action = action_;
        reply = reply_;
        if (tls_) tls = tlsState_;
    }
    gnutls_session_t session = nullptr;
    if (tls) {
        gnutls_init(&session, GNUTLS_SERVER);
        gnutls_set_default_priority(session);
        gnutls_credentials_set(session, GNUTLS_CRD_CERTIFICATE, tls->credentials);
        gnutls_session_ticket_enable_server(session, &tls->ticketKey);
        gnutls_transport_set_int(session, fd);
        if (gnutls_handshake(session) < 0) action = Action::CloseImmediately;
        if (gnutls_session_is_resumed(session)) {
            std::lock_guard<std::mutex> lock(mutex_);
            ++resumed_;
        }
    }
    auto receive = [&](char* buf, size_t size) -> ssize_t {
        return session ? gnutls_record_recv(session, buf, size) : read(fd, buf, size);
    };
    auto sendSome = [&](const char* data, size_t size) -> ssize_t {
        return session ? gnutls_record_send(session, data, size)
                       : send(fd, data, size, MSG_NOSIGNAL);
    };
    if (action != Action::CloseImmediately) {
        std::string head;
        char buf[4096];
        while (head.find("\r\n\r\n") == std::string::npos) {
            ssize_t n = receive(buf, sizeof buf);
            if (n <= 0) break;
            head.append(buf, static_cast<size_t>(n));
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(head);
            size_t start = head.find(' ') + 1;
            auto it = replies_.find(head.substr(start, head.find_first_of(" ?", start) - start));
            if (it != replies_.end()) reply = it->second;
        }
        if (action == Action::Reply) {
            size_t off = 0;
            while (off < reply.size()) {
                ssize_t n = sendSome(reply.data() + off, reply.size() - off);
                if (n <= 0) break;
                off += static_cast<size_t>(n);
            }
        } else if (action == Action::Hold) {
            std::unique_lock<std::mutex> lock(mutex_);
            stopped_.wait(lock, [this] { return stopping_; });
        }
    }
    if (session) {
        gnutls_bye(session, GNUTLS_SHUT_WR);
        gnutls_deinit(session);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    openFds_.erase(std::remove(openFds_.begin(), openFds_.end(), fd), openFds_.end());
    close(fd);
}

}  // namespace orvex_test
