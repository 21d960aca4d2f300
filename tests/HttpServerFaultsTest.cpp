// Transfers that go wrong on the wire: every one ends in exactly one failed response for its
// client, and the engine is ready for the next request afterwards.
#include <arpa/inet.h>
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <orvex_host/connection_control.h>

#include "CurlHooks.h"
#include "HostFixture.h"
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
        runFor(20);
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

TEST_F(HttpFaultTest, ASilentServerIsEndedByDestroyingTheProxy) {
    RawSocketServer raw;
    raw.setAction(RawSocketServer::Action::Hold);
    NetProxyHttpReqData r;
    r.URL = raw.url("/hold");
    proxy->HttpRequest(r, listenerId);
    proxy->HttpRequest(r, listenerId);
    ASSERT_TRUE(runUntil([&] { return raw.requests().size() == 2; }));
    runFor(1200);
    EXPECT_EQ(0, client.finished);
    NetworkProxy::Destory();
    runFor(20);
    EXPECT_EQ(0, client.finished);
    EXPECT_EQ((std::vector<std::string>{"accepted 0", "accepted 1"}), client.events);
}

}  // namespace
