// NetworkProxy: the listener registry, id allocation and the forwarding of engine events, end to
// end against the local servers, and what reaches a client when the wire or the server misbehaves.
#include <curl/curl.h>
#include <glib.h>

#include <algorithm>
#include <memory>

#include <orvex_host/connection_control.h>

#include "CurlHooks.h"
#include "CurlHttpRequestData.h"
#include "CurlHttpResponseData.h"
#include "HostFixture.h"
#include "HostileRoutes.h"
#include "HttpEvents.h"
#include "MainLoop.h"
#include "NetworkProxy.h"
#include "TestHttpServer.h"

using namespace orvex_test;

namespace {

class NetworkProxyTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        orvex_host_connection_set_proxy("");
        proxy = NetworkProxy::GetInstance();
        ASSERT_NE(nullptr, proxy);
    }
    void TearDown() override {
        NetworkProxy::Destory();
        curlHooksReset();
        HostTest::TearDown();
    }

    NetProxyHttpReqData get(const std::string& url) {
        NetProxyHttpReqData r;
        r.URL = url;
        return r;
    }

    NetworkProxy* proxy = nullptr;
};

std::shared_ptr<IHttpRequestData> record(int id) {
    auto r = std::make_shared<CurlHttpRequestData>();
    r->RequestId = id;
    return r;
}

TEST_F(NetworkProxyTest, ListenerIdsAndRegistry) {
    HttpEvents a, b, c;
    EXPECT_EQ(-1, proxy->RegisterHttpNetworkEventListener(nullptr));
    EXPECT_EQ(0, proxy->RegisterHttpNetworkEventListener(&a));
    EXPECT_EQ(1, proxy->RegisterHttpNetworkEventListener(&b));
    EXPECT_TRUE(errors().empty());
    EXPECT_EQ(0, proxy->RegisterHttpNetworkEventListener(&a));
    EXPECT_EQ((std::vector<std::string>{"Already register listener"}), errors());
    EXPECT_EQ(1, proxy->FindHttpNetworkProxyReqID(&b));
    EXPECT_EQ(-1, proxy->FindHttpNetworkProxyReqID(&c));

    // Ids count up while anyone is registered, and restart at 0 once nobody is.
    proxy->UnRegisterHttpNetworkEventListener(&a);
    EXPECT_EQ(2, proxy->RegisterHttpNetworkEventListener(&c));
    proxy->UnRegisterHttpNetworkEventListener(&c);  // by pointer
    proxy->UnRegisterHttpNetworkEventListener(&c);  // unknown: erases nothing
    proxy->UnRegisterHttpNetworkEventListener(1);   // by id, now empty
    proxy->UnRegisterHttpNetworkEventListener(1);   // empty registry
    EXPECT_EQ(-1, proxy->FindHttpNetworkProxyReqID(&b));
    EXPECT_EQ(0, proxy->RegisterHttpNetworkEventListener(&c));
}

TEST_F(NetworkProxyTest, RequestsReachTheirListenerWithTheirIds) {
    TestHttpServer server;
    server.route("/a", {200, {}, "alpha"});
    server.route("/empty", {200, {}, ""});
    server.route("/post", {200, {}, "posted"});
    HttpEvents first, second;
    int firstId = proxy->RegisterHttpNetworkEventListener(&first);
    int secondId = proxy->RegisterHttpNetworkEventListener(&second);

    proxy->HttpRequest(get(server.url("/a")), firstId);
    proxy->HttpRequest(get(server.url("/empty")), secondId);
    NetProxyHttpReqData post = get(server.url("/post"));
    post.Body = "k=v";
    post.Headers = {"", "X-Order: 1", "", "X-Order-Two: 2"};
    proxy->HttpRequest(post, firstId);
    EXPECT_EQ((std::vector<int>{0, 2}), first.acceptedIds);
    EXPECT_EQ((std::vector<int>{1}), second.acceptedIds);

    ASSERT_TRUE(runUntil([&] { return first.finished == 2 && second.finished == 1; }));
    EXPECT_TRUE(first.saw("response 0 alpha") && first.saw("response 2 posted"));
    // An empty body arrives as a null pointer.
    EXPECT_EQ("response 1 (null)", second.events.back());
    auto received = server.requests();
    auto postReq = std::find_if(received.begin(), received.end(),
                                [](const ReceivedRequest& r) { return r.path == "/post"; });
    ASSERT_NE(received.end(), postReq);
    EXPECT_EQ("POST", postReq->method);
    EXPECT_EQ("k=v", postReq->body);
    EXPECT_NE(std::string::npos, postReq->head.find("\r\nX-Order: 1\r\nX-Order-Two: 2\r\n"));

    // Nothing outstanding: the next request is id 0 again.
    proxy->HttpRequest(get(server.url("/a")), secondId);
    EXPECT_EQ((std::vector<int>{1, 0}), second.acceptedIds);
    ASSERT_TRUE(runUntil([&] { return second.finished == 2; }));
}

TEST_F(NetworkProxyTest, RejectsUnknownListenersAndRequests) {
    HttpEvents client;
    proxy->HttpRequest(get("http://127.0.0.1:9/"), 3);
    proxy->HttpCancel(0);
    EXPECT_EQ((std::vector<std::string>{"Invalid networkReqID", "Invalid reqID"}), errors());
    EXPECT_TRUE(curlOptionCalls().empty());

    clearLog();
    EXPECT_EQ(nullptr, proxy->FindHttpNetworkEventListner(5));
    proxy->OnHttpResponseFailed(record(5));
    proxy->OnHttpRequestCompleted(record(5));
    EXPECT_EQ((std::vector<std::string>{"invalid request id", "invalid request id",
                                        "invalid request id"}),
              errors());
    EXPECT_TRUE(client.events.empty());
}

TEST_F(NetworkProxyTest, EventsForAnUnregisteredListenerGoNowhere) {
    TestHttpServer server;
    server.route("/slow", {200, {}, "late"});
    HttpEvents keeper, client;
    int keeperId = proxy->RegisterHttpNetworkEventListener(&keeper);
    int clientId = proxy->RegisterHttpNetworkEventListener(&client);
    proxy->HttpRequest(get(server.url("/slow")), clientId);
    ASSERT_EQ(1u, client.events.size());
    proxy->UnRegisterHttpNetworkEventListener(&client);

    // The response finds a null entry for the old listener id and calls nobody; the request's
    // entry stays, so the next id is not 0.
    ASSERT_TRUE(runUntil([&] { return logged(DLOG_INFO, "##"); }));
    drainPending();
    EXPECT_EQ(1u, client.events.size());
    EXPECT_TRUE(keeper.events.empty());
    EXPECT_EQ(nullptr, proxy->FindHttpNetworkEventListner(0));
    proxy->HttpRequest(get(server.url("/slow")), keeperId);
    EXPECT_EQ((std::vector<int>{1}), keeper.acceptedIds);
    ASSERT_TRUE(runUntil([&] { return keeper.finished == 1; }));
    // The null entry took the old id, so a new listener gets the next one.
    HttpEvents late;
    EXPECT_EQ(2, proxy->RegisterHttpNetworkEventListener(&late));
}

TEST_F(NetworkProxyTest, ForwardsEveryEngineEvent) {
    HttpEvents client;
    int id = proxy->RegisterHttpNetworkEventListener(&client);
    TestHttpServer server;
    server.route("/hold", hostile::silent());
    // Put ids 0..4 in the request map, owned by the client.
    for (int i = 0; i < 5; ++i) proxy->HttpRequest(get(server.url("/hold")), id);
    client.events.clear();
    // A cancel is told as "request completed" for the same id, and its entry stays.
    proxy->HttpCancel(0);
    EXPECT_EQ(&client, proxy->FindHttpNetworkEventListner(0));

    struct OtherResponse : IHttpResponseData {};
    proxy->OnHttpRequestFailed(record(0));
    proxy->OnHttpRequestCancelCompleted(record(1));
    proxy->OnHttpResponseCompleted(record(2), std::make_shared<OtherResponse>());
    auto response = std::make_shared<CurlHttpResponseData>();
    response->PacketData = std::make_shared<CurlHttpTotalPacketData>();
    response->PacketData->Buffer = new unsigned char[3]{'x', 'y', 'z'};
    response->PacketData->Length = 3;
    proxy->OnHttpResponseCompleted(record(3), response);
    proxy->OnHttpResponseCompleted(record(4), std::make_shared<CurlHttpResponseData>());
    // A response without a packet is an empty body.
    EXPECT_EQ(
        (std::vector<std::string>{"accepted 0", "request failed", "cancel completed",
                                  "response failed 2", "response 3 xyz", "response 4 (null)"}),
        client.events);
    // Each of those ended its request.
    for (int i = 0; i < 5; ++i) EXPECT_EQ(nullptr, proxy->FindHttpNetworkEventListner(i));
    // Destroyed while the engine still runs four: nobody hears of them.
    NetworkProxy::Destory();
    drainPending();
    EXPECT_EQ(6u, client.events.size());
}

// The engine's queueing failure reaches the client inside its call, as the engine reports it. A
// front end without an engine (no memory for it) refuses requests from the main loop instead, and
// leaves no entry behind.
TEST_F(NetworkProxyTest, RefusedRequestsReachTheClientAndLeaveNoEntry) {
    HttpEvents client;
    int id = proxy->RegisterHttpNetworkEventListener(&client);
    curlFailNext("curl_multi_init", 1);
    proxy->HttpRequest(get("http://127.0.0.1:9/"), id);
    EXPECT_EQ((std::vector<std::string>{"request failed"}), client.events);
    EXPECT_EQ(nullptr, proxy->FindHttpNetworkEventListner(0));

    NetworkProxy::Destory();
    {
        FailNothrowNew failing(1);  // the front end is allocated, its engine is not
        proxy = NetworkProxy::GetInstance();
    }
    ASSERT_NE(nullptr, proxy);
    HttpEvents first, gone;
    int firstId = proxy->RegisterHttpNetworkEventListener(&first);
    int goneId = proxy->RegisterHttpNetworkEventListener(&gone);
    clearLog();
    curlHooksReset();
    proxy->HttpRequest(get("http://127.0.0.1:9/"), firstId);
    proxy->HttpRequest(get("http://127.0.0.1:9/"), goneId);
    proxy->UnRegisterHttpNetworkEventListener(goneId);
    EXPECT_TRUE(first.events.empty());
    EXPECT_EQ(std::vector<std::string>(2, "Invalid network proxyt ptr"), errors());
    ASSERT_TRUE(runUntil([&] { return !first.events.empty(); }));
    EXPECT_EQ((std::vector<std::string>{"request failed"}), first.events);
    EXPECT_TRUE(gone.events.empty());
    EXPECT_TRUE(curlOptionCalls().empty());
    proxy->HttpCancel(0);
    EXPECT_EQ("Invalid reqID", errors().back());

    // Destroyed before the main loop ran: nobody is called.
    proxy->HttpRequest(get("http://127.0.0.1:9/"), firstId);
    NetworkProxy::Destory();
    EXPECT_EQ(nullptr, g_main_context_find_source_by_user_data(nullptr, proxy));
    proxy = NetworkProxy::GetInstance();
    drainPending();
    EXPECT_EQ(1u, first.events.size());
}

// Hostile answers each end in exactly one failed response for their client: bodies without end,
// whatever their encoding, stop at the cap; redirects go nowhere but the request's own scheme, and
// not for ever; a body cut short is no answer.
TEST_F(NetworkProxyTest, HostileAnswersEndInOneFailure) {
    TrustTestCa trust;
    TestHttpServer server(TestHttpServer::Mode::Https);
    TestHttpServer plain;
    plain.route("/stolen", {200, {}, "{}"});
    const std::string overCap = "Response body over 1048576 bytes";
    const std::pair<const char*, HttpRoute> cases[] = {
        {"/bomb", hostile::gzipBomb()},
        {"/gigabyte", hostile::zeros(1ull << 30)},
        {"/endless", hostile::endless()},
        {"/to-http", hostile::redirect(plain.url("/stolen?apikey=K"))},
        {"/to-ftp", hostile::redirect("ftp://127.0.0.1:9/x")},
        {"/to-file", hostile::redirect("file:///etc/passwd")},
        {"/loop", hostile::redirect("/loop")},
        {"/cut", hostile::raw("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly a few")},
    };
    HttpEvents client;
    int id = proxy->RegisterHttpNetworkEventListener(&client);
    for (const auto& [path, route] : cases) {
        SCOPED_TRACE(path);
        server.route(path, route);
        clearLog();
        int before = client.finished;
        proxy->HttpRequest(get(server.url(path)), id);
        EXPECT_TRUE(runUntil([&] { return client.finished > before; }, 15000));
        drainPending();
        EXPECT_EQ(before + 1, client.finished);
        EXPECT_EQ("response failed " + std::to_string(client.acceptedIds.back()),
                  client.events.back());
        EXPECT_EQ(route.makeStream != nullptr, logged(DLOG_ERROR, overCap));
    }
    EXPECT_TRUE(logged(DLOG_ERROR, "Incomplete transfer :" + std::to_string(CURLE_PARTIAL_FILE)));
    EXPECT_EQ(0u, plain.requests().size());
    size_t loops = 0;
    for (const auto& r : server.requests()) loops += r.path == "/loop";
    EXPECT_EQ(6u, loops);  // the request and five redirects
}

}  // namespace
