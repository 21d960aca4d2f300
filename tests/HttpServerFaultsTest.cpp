// Transfers that go wrong on the wire or meet a hostile server: every one ends in exactly one
// failed response for its client, and the engine is ready for the next request afterwards.
#include <arpa/inet.h>
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <orvex_host/connection_control.h>

#include "CurlHooks.h"
#include "HostFixture.h"
#include "HostileRoutes.h"
#include "HttpEvents.h"
#include "MainLoop.h"
#include "NetworkProxy.h"
#include "RawSocketServer.h"
#include "TestHttpServer.h"

using namespace orvex_test;

namespace {

// A loopback port with nobody listening.
int closedPort() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    close(fd);
    return ntohs(addr.sin_port);
}

class HttpFaultTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        orvex_host_connection_set_proxy("");
        proxy = NetworkProxy::GetInstance();
        listenerId = proxy->RegisterHttpNetworkEventListener(&client);
    }
    void TearDown() override {
        NetworkProxy::Destory();
        HostTest::TearDown();
    }

    // Sends one GET and waits for its outcome; true when it ended as one failed response.
    ::testing::AssertionResult failsOnce(const std::string& url) {
        ClientEvents before = client;
        NetProxyHttpReqData r;
        r.URL = url;
        proxy->HttpRequest(r, listenerId);
        int id = client.acceptedIds.back();
        if (!runUntil([&] { return client.finished > before.finished; }, 15000))
            return ::testing::AssertionFailure() << "no outcome for " << url;
        drainPending();
        if (client.finished != before.finished + 1)
            return ::testing::AssertionFailure() << "several outcomes for " << url;
        if (client.events.back() != "response failed " + std::to_string(id))
            return ::testing::AssertionFailure() << client.events.back() << " for " << url;
        return ::testing::AssertionSuccess();
    }

    NetworkProxy* proxy = nullptr;
    ClientEvents client;
    int listenerId = -1;
};

TEST_F(HttpFaultTest, ConnectionLevelFailures) {
    EXPECT_TRUE(failsOnce("http://127.0.0.1:" + std::to_string(closedPort()) + "/refused"));

    RawSocketServer raw;
    raw.setAction(RawSocketServer::Action::CloseImmediately);
    EXPECT_TRUE(failsOnce(raw.url("/closed-at-once")));
    raw.setAction(RawSocketServer::Action::CloseAfterRequest);
    EXPECT_TRUE(failsOnce(raw.url("/closed-before-answer")));
    raw.setAction(RawSocketServer::Action::Reply,
                  "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly a few bytes");
    EXPECT_TRUE(failsOnce(raw.url("/closed-mid-body")));
    raw.setAction(RawSocketServer::Action::Reply, "this is not HTTP\r\n\r\n");
    EXPECT_TRUE(failsOnce(raw.url("/garbage")));

    TrustTestCa trust;
    TestHttpServer untrusted(TestHttpServer::Mode::HttpsUntrusted);
    untrusted.route("/", {200, {}, "never"});
    EXPECT_TRUE(failsOnce(untrusted.url("/")));
    // Plain HTTP spoken to a TLS server.
    TestHttpServer tls(TestHttpServer::Mode::Https);
    EXPECT_TRUE(failsOnce("http://127.0.0.1:" + std::to_string(tls.port()) + "/"));

    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :0"));
    EXPECT_TRUE(logged(DLOG_ERROR, "Incomplete transfer :" + std::to_string(CURLE_PARTIAL_FILE)));
}

TEST_F(HttpFaultTest, StatusFailuresAndTheEngineAfterwards) {
    TestHttpServer server;
    server.route("/gone", {410, {}, "gone"});
    server.route("/ok", {200, {}, "fine"});
    EXPECT_TRUE(failsOnce(server.url("/gone")));
    EXPECT_TRUE(failsOnce(server.url("/nothing-here")));
    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :410"));
    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :404"));

    NetProxyHttpReqData r;
    r.URL = server.url("/ok");
    proxy->HttpRequest(r, listenerId);
    int id = client.acceptedIds.back();
    ASSERT_TRUE(runUntil([&] { return client.bodies.count(id) == 1; }));
    EXPECT_EQ("fine", client.bodies[id]);
}

// Bodies without end, whatever their encoding, stop at the cap; redirects go nowhere but the
// request's own scheme, and not for ever.
TEST_F(HttpFaultTest, HostileAnswersEndInOneFailure) {
    TrustTestCa trust;
    TestHttpServer server(TestHttpServer::Mode::Https);
    TestHttpServer plain;
    plain.route("/stolen", {200, {}, "{}"});
    server.route("/bomb", hostile::gzipBomb());
    server.route("/gigabyte", hostile::zeros(1ull << 30));
    server.route("/endless", hostile::endless());
    server.route("/to-http", hostile::redirect(plain.url("/stolen?apikey=K")));
    server.route("/to-ftp", hostile::redirect("ftp://127.0.0.1:9/x"));
    server.route("/to-file", hostile::redirect("file:///etc/passwd"));
    server.route("/loop", hostile::redirect("/loop"));
    for (const char* path : {"/bomb", "/gigabyte", "/endless"}) {
        clearLog();
        EXPECT_TRUE(failsOnce(server.url(path)));
        EXPECT_TRUE(logged(DLOG_ERROR, "Response body over 1048576 bytes")) << path;
    }
    for (const char* path : {"/to-http", "/to-ftp", "/to-file", "/loop"})
        EXPECT_TRUE(failsOnce(server.url(path)));
    EXPECT_EQ(0u, plain.requestCount());
    size_t loops = 0;
    for (const auto& r : server.requests()) loops += r.path == "/loop";
    EXPECT_EQ(6u, loops);  // the request and five redirects
}

TEST_F(HttpFaultTest, ASilentServerIsEndedByDestroyingTheProxy) {
    RawSocketServer raw;
    raw.setAction(RawSocketServer::Action::Hold);
    NetProxyHttpReqData r;
    r.URL = raw.url("/hold");
    proxy->HttpRequest(r, listenerId);
    proxy->HttpRequest(r, listenerId);
    ASSERT_TRUE(runUntil([&] { return raw.requests().size() == 2; }));
    NetworkProxy::Destory();
    drainPending();
    EXPECT_EQ((std::vector<std::string>{"accepted 0", "accepted 1"}), client.events);
}

}  // namespace
