// The curl engine on its own: request set-up, the worker and its pipe, cancels, and the body
// callbacks, against the local servers.
#include <curl/curl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>

#include <orvex_host/connection_control.h>

#include "CurlHooks.h"
#include "CurlNetworkConnection.h"
#include "HostFixture.h"
#include "HttpEvents.h"
#include "MainLoop.h"
#include "RawSocketServer.h"
#include "TestHttpServer.h"

using namespace orvex_test;

namespace {
std::atomic<bool> g_failNextThread{false};
std::atomic<bool> g_failNextPipe{false};

template <typename Function>
Function nextDefinition(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
}  // namespace

// Every thread and pipe this test program creates goes through here (the library's worker and its
// pipe included), so that a test can make the next one fail as it would when the system is out of
// threads or descriptors.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                              void* arg) {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const Create real = nextDefinition<Create>("pthread_create");
    if (g_failNextThread.exchange(false)) return EAGAIN;
    return real(thread, attr, start, arg);
}

extern "C" int pipe2(int fds[2], int flags) {
    using Pipe2 = int (*)(int*, int);
    static const Pipe2 real = nextDefinition<Pipe2>("pipe2");
    if (g_failNextPipe.exchange(false)) {
        errno = EMFILE;
        return -1;
    }
    return real(fds, flags);
}

namespace {

// Opens the engine's inner workings to the tests.
class Engine : public CurlNetworkConnection {
public:
    using CurlNetworkConnection::AppendEasySession;
    using CurlNetworkConnection::CheckThreadStatus;
    using CurlNetworkConnection::CurlSingleEasySession;
    using CurlNetworkConnection::DestoryHttpRequest;
    using CurlNetworkConnection::FindSingleEasySessiong;
    using CurlNetworkConnection::mMultiSession;
    using CurlNetworkConnection::mPipeIOChannelData;
    using CurlNetworkConnection::mThread;
    using CurlNetworkConnection::MutexLockImpl;
    using CurlNetworkConnection::MutexUnlockImpl;
    using CurlNetworkConnection::PipeTransCurlData;
    using CurlNetworkConnection::ResponseHttpRequest;
    using CurlNetworkConnection::SGIOPipeWatchCB;
    using CurlNetworkConnection::StartThread;

    bool idle() const { return !mMultiSession || !mMultiSession->mMultiHandle; }
    size_t inFlight() const { return mMultiSession ? mMultiSession->mEasySessionList.size() : 0; }
};

std::shared_ptr<CurlHttpRequestData> request(int id, const std::string& url,
                                             const std::string& body = std::string(),
                                             std::list<std::string> headers = {}) {
    auto r = std::make_shared<CurlHttpRequestData>();
    r->RequestId = id;
    r->URL = url;
    r->Body = body;
    r->Headers = std::move(headers);
    return r;
}

std::string header(const ReceivedRequest& r, const std::string& name) {
    for (const auto& h : r.headers)
        if (strcasecmp(h.first.c_str(), name.c_str()) == 0) return h.second;
    return std::string();
}

const ReceivedRequest* findRequest(const std::vector<ReceivedRequest>& all,
                                   const std::string& path) {
    for (const auto& r : all)
        if (r.path == path) return &r;
    return nullptr;
}

class CurlEngineTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        curlHooksReset();
        // Whatever proxy the machine running the tests has, these requests go direct.
        orvex_host_connection_set_proxy("");
        engine = std::make_unique<Engine>();
        engine->SetListener(&events);
    }
    void TearDown() override {
        engine.reset();
        curlHooksReset();
        HostTest::TearDown();
    }

    bool finishes(int count, int timeoutMs = 10000) {
        return runUntil([&] { return events.finished >= count && engine->idle(); }, timeoutMs);
    }

    EngineEvents events;
    std::unique_ptr<Engine> engine;
};

TEST_F(CurlEngineTest, GetAndPostInOneBurstShareOneWorker) {
    TestHttpServer server;
    ASSERT_TRUE(server.ok());
    server.route("/get", {200, {}, "got it"});
    server.route("/post", {200, {}, "posted"});

    engine->HttpRequest(request(1, server.url("/get"), "", {"X-First: 1", "", "X-Second: 2"}));
    guint watch = engine->mPipeIOChannelData.mWatchId;
    ASSERT_NE(0u, watch);
    engine->HttpRequest(request(2, server.url("/post"), "a=1&b=2"));
    // The second request joined the running worker instead of starting another.
    EXPECT_EQ(watch, engine->mPipeIOChannelData.mWatchId);
    EXPECT_EQ(2u, engine->inFlight());

    ASSERT_TRUE(finishes(2));
    std::vector<std::string> sorted = events.events;
    std::sort(sorted.begin() + 2, sorted.end());
    EXPECT_EQ((std::vector<std::string>{"accepted 1", "accepted 2", "response 1 got it",
                                        "response 2 posted"}),
              sorted);
    EXPECT_EQ(0, engine->mThread);
    EXPECT_EQ(0u, engine->mPipeIOChannelData.mWatchId);
    EXPECT_EQ(nullptr, engine->mPipeIOChannelData.mGIOPipeChanel);

    auto received = server.requests();
    const ReceivedRequest* get = findRequest(received, "/get");
    const ReceivedRequest* post = findRequest(received, "/post");
    ASSERT_TRUE(get && post);
    EXPECT_EQ("GET", get->method);
    EXPECT_EQ("POST", post->method);
    EXPECT_EQ("a=1&b=2", post->body);
    auto first = std::find_if(get->headers.begin(), get->headers.end(),
                              [](const auto& h) { return h.first == "X-First"; });
    auto second = std::find_if(get->headers.begin(), get->headers.end(),
                               [](const auto& h) { return h.first == "X-Second"; });
    ASSERT_TRUE(first != get->headers.end() && second != get->headers.end());
    EXPECT_LT(first - get->headers.begin(), second - get->headers.begin());
    EXPECT_NE(std::string::npos, header(*get, "Accept-Encoding").find("gzip"));

    // POSTFIELDS only with a body; POST follows the body.
    auto calls = curlOptionCalls();
    std::map<std::string, std::vector<CurlOptionCall>> byUrl;
    std::map<void*, std::string> urlOf;
    for (const auto& c : calls)
        if (c.option == CURLOPT_URL) urlOf[c.handle] = c.text;
    for (const auto& c : calls) byUrl[urlOf[c.handle]].push_back(c);
    auto has = [](const std::vector<CurlOptionCall>& v, int option, long* value = nullptr) {
        for (const auto& c : v)
            if (c.option == option) {
                if (value) *value = c.number;
                return true;
            }
        return false;
    };
    long post0 = -1, post1 = -1;
    EXPECT_FALSE(has(byUrl[server.url("/get")], CURLOPT_POSTFIELDS));
    EXPECT_TRUE(has(byUrl[server.url("/get")], CURLOPT_POST, &post0));
    EXPECT_EQ(0, post0);
    EXPECT_TRUE(has(byUrl[server.url("/post")], CURLOPT_POSTFIELDS));
    EXPECT_TRUE(has(byUrl[server.url("/post")], CURLOPT_POST, &post1));
    EXPECT_EQ(1, post1);
    EXPECT_TRUE(logged(DLOG_INFO, "##"));
    // Bodies appear in the verbose log by size only.
    EXPECT_TRUE(logged(DLOG_INFO, "> [7 bytes of data]"));
    EXPECT_TRUE(logged(DLOG_INFO, "< [6 bytes of data]"));
}

TEST_F(CurlEngineTest, DecodesGzipAndChunkedAnswersAndFollowsRedirects) {
    TestHttpServer server;
    std::string big(5000, 'x');
    for (size_t i = 0; i < big.size(); i += 7) big[i] = static_cast<char>('a' + i % 26);
    server.route("/gzip", {200, {}, big, true});
    server.route("/chunked", {200, {}, "several small chunks of text", false, true});
    server.route("/old", {302, {{"Location", "/new"}}, ""});
    server.route("/new", {200, {}, "moved here"});

    engine->HttpRequest(request(1, server.url("/gzip")));
    engine->HttpRequest(request(2, server.url("/chunked")));
    engine->HttpRequest(request(3, server.url("/old")));
    ASSERT_TRUE(finishes(3));

    std::vector<std::string> responses(events.events.begin() + 3, events.events.end());
    std::sort(responses.begin(), responses.end());
    EXPECT_EQ(
        (std::vector<std::string>{"response 1 " + big, "response 2 several small chunks of text",
                                  "response 3 moved here"}),
        responses);
    EXPECT_TRUE(findRequest(server.requests(), "/new"));
}

// The worker has done its last perform and posted its record, but the main loop has not run yet:
// a request queued now lands on the old multi handle, which no worker drives any more.
TEST_F(CurlEngineTest, ARequestQueuedWhileTheWorkerEndsIsNotLost) {
    TestHttpServer server;
    server.route("/", {200, {}, "one"});
    engine->HttpRequest(request(1, server.url("/")));
    pollfd posted{engine->mPipeIOChannelData.mReadFd, POLLIN, 0};
    ASSERT_EQ(1, poll(&posted, 1, 10000));
    engine->HttpRequest(request(2, server.url("/")));
    ASSERT_TRUE(finishes(2));
    std::vector<std::string> tail(events.events.begin() + 2, events.events.end());
    EXPECT_EQ((std::vector<std::string>{"response 1 one", "response 2 one"}), tail);
    EXPECT_EQ(2u, server.requestCount());
}

TEST_F(CurlEngineTest, HttpsVerifiesAgainstTheConfiguredCa) {
    TrustTestCa trust;
    TestHttpServer good(TestHttpServer::Mode::Https);
    TestHttpServer bad(TestHttpServer::Mode::HttpsUntrusted);
    good.route("/", {200, {}, "secure"});
    bad.route("/", {200, {}, "never read"});

    engine->HttpRequest(request(1, good.url("/")));
    engine->HttpRequest(request(2, bad.url("/")));
    ASSERT_TRUE(finishes(2));
    EXPECT_NE(events.events.end(),
              std::find(events.events.begin(), events.events.end(), "response 1 secure"));
    EXPECT_NE(events.events.end(),
              std::find(events.events.begin(), events.events.end(), "response failed 2"));
    // Transport failures carry no HTTP status.
    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :0"));
    for (const auto& c : curlOptionCalls()) {
        if (c.option == CURLOPT_SSL_CIPHER_LIST) {
            EXPECT_EQ("HIGH", c.text);
        }
        if (c.option == CURLOPT_ACCEPT_ENCODING) {
            EXPECT_EQ("gzip,deflate", c.text);
        }
    }
}

TEST_F(CurlEngineTest, SetsTheOptionsInOrderAndLogsEachFailure) {
    orvex_host_connection_set_proxy("http://127.0.0.1:3128");
    curlFailNext("curl_easy_init", 1);
    curlFailNext("curl_multi_add_handle", 1, CURLM_BAD_EASY_HANDLE);
    clearLog();
    engine->HttpRequest(request(7, "http://127.0.0.1:9/x", "body", {"A: 1", "B: 2"}));

    std::vector<int> expectedOptions = {
        CURLOPT_DEBUGFUNCTION, CURLOPT_VERBOSE,         CURLOPT_URL,
        CURLOPT_PROXY,         CURLOPT_HTTPHEADER,      CURLOPT_FOLLOWLOCATION,
        CURLOPT_NOPROGRESS,    CURLOPT_SSL_CIPHER_LIST, CURLOPT_POSTFIELDS,
        CURLOPT_POST,          CURLOPT_WRITEFUNCTION,   CURLOPT_WRITEDATA,
        CURLOPT_PRIVATE,       CURLOPT_ACCEPT_ENCODING, CURLOPT_CAINFO};
    EXPECT_EQ(expectedOptions, curlOptionsOf(nullptr));
    EXPECT_EQ((std::vector<std::string>{
                  "Failed curl_easy_init", "Failed CURLOPT_DEBUGFUNCTION option",
                  "Failed CURLOPT_VERBOSE option", "Failed CURLOPT_URL option",
                  "Failed proxy option", "Failed CURLOPT_HTTPHEADER option",
                  "Failed CURLOPT_FOLLOWLOCATION option", "Failed CURLOPT_NOPROGRESS option",
                  "Failed CURLOPT_SSL_CIPHER_LIST option", "Failed CURLOPT_POST option",
                  "Failed CURLOPT_POST option", "Failed CURLOPT_WRITEFUNCTION option",
                  "Failed CURLOPT_WRITEDATA option", "Failed CURLOPT_PRIVATE option",
                  "Failed CURLOPT_ENCODING option", "Failed CURLOPT_CAINFO option",
                  "[Failed] curl_multi_add_handle", "Failed append easy session"}),
              errors());
    EXPECT_EQ((std::vector<std::string>{"failed 7"}), events.events);
    // The raw line carries the file, the function and the line.
    bool rawSeen = false;
    for (const auto& l : logLines())
        rawSeen |= l.text.rfind("CurlNetworkConnection.cpp: HttpRequest(", 0) == 0 &&
                   l.text.find(") > " + errorText("Failed curl_easy_init")) != std::string::npos;
    EXPECT_TRUE(rawSeen);
    EXPECT_TRUE(engine->idle());

    // Nothing is left half-made: the next request runs normally.
    orvex_host_connection_set_proxy("");
    TestHttpServer server;
    server.route("/", {200, {}, "fine"});
    engine->HttpRequest(request(8, server.url("/")));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 8 fine", events.events.back());
}

TEST_F(CurlEngineTest, AMultiHandleThatCannotBeMadeFailsTheRequest) {
    curlFailNext("curl_multi_init", 1);
    engine->HttpRequest(request(3, "http://127.0.0.1:9/"));
    EXPECT_EQ((std::vector<std::string>{"failed 3"}), events.events);
    EXPECT_TRUE(logged(DLOG_ERROR, "Failed append easy session"));
    EXPECT_EQ(0, engine->mThread);

    clearLog();
    struct NotCurl : IHttpRequestData {};
    engine->HttpRequest(std::make_shared<NotCurl>());
    EXPECT_EQ((std::vector<std::string>{"Invalid httpRequestDataPtr"}), errors());
}

TEST_F(CurlEngineTest, WorkerReportsMultiFailuresAndCarriesOn) {
    TestHttpServer server;
    server.route("/", {200, {}, "still fine"});
    curlFailNext("curl_multi_perform", 1, CURLM_INTERNAL_ERROR);
    curlFailNext("curl_multi_fdset", 1, CURLM_INTERNAL_ERROR);
    engine->HttpRequest(request(1, server.url("/")));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 1 still fine", events.events.back());
    EXPECT_TRUE(
        logged(DLOG_ERROR, "Failed multi perform :" + std::to_string(CURLM_INTERNAL_ERROR)));
    EXPECT_TRUE(logged(DLOG_ERROR, "Failed get multi fd set"));
}

TEST_F(CurlEngineTest, NonOkStatusesEndAsFailedResponses) {
    TestHttpServer server;
    server.route("/missing", {404, {}, "no"});
    server.route("/broken", {500, {}, "oops"});
    engine->HttpRequest(request(1, server.url("/missing")));
    engine->HttpRequest(request(2, server.url("/broken")));
    ASSERT_TRUE(finishes(2));
    std::vector<std::string> tail(events.events.begin() + 2, events.events.end());
    std::sort(tail.begin(), tail.end());
    EXPECT_EQ((std::vector<std::string>{"response failed 1", "response failed 2"}), tail);
    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :404"));
    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :500"));
}

TEST_F(CurlEngineTest, CancelsTakeRequestsOutAndReportThemAsCompleted) {
    // Nothing queued yet.
    engine->CancelHttpRequest(4);
    engine->CancelHttpRequest(request(4, "x"));
    EXPECT_EQ((std::vector<std::string>{"Failed get curl multi session",
                                        "Failed get curl multi session"}),
              errors());

    TestHttpServer server;
    server.route("/silent", {200, {}, "", false, false, 0, true});
    server.route("/quick", {200, {}, "quick"});
    engine->HttpRequest(request(1, server.url("/silent")));
    engine->HttpRequest(request(2, server.url("/silent")));
    ASSERT_TRUE(runUntil([&] { return server.heldCount() == 2; }));

    clearLog();
    engine->CancelHttpRequest(9);
    EXPECT_EQ((std::vector<std::string>{"Failed find curl single easy session ptr"}), errors());
    EXPECT_EQ((std::vector<std::string>{"##"}), infos());
    struct NotCurl : IHttpRequestData {};
    engine->CancelHttpRequest(std::shared_ptr<IHttpRequestData>(std::make_shared<NotCurl>()));
    EXPECT_TRUE(logged(DLOG_ERROR, "Failed get curlHttpRequestDataPtr curl multi session"));
    EXPECT_EQ(2u, events.events.size());

    engine->CancelHttpRequest(1);
    engine->CancelHttpRequest(request(2, "ignored"));
    EXPECT_EQ((std::vector<std::string>{"accepted 1", "accepted 2", "accepted 1", "accepted 2"}),
              events.events);
    // With nothing left the worker ends and the engine goes idle without a response callback.
    ASSERT_TRUE(runUntil([&] { return engine->idle(); }));
    EXPECT_EQ(4u, events.events.size());

    engine->HttpRequest(request(3, server.url("/quick")));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 3 quick", events.events.back());
    server.releaseHeld();
}

TEST_F(CurlEngineTest, ASilentServerKeepsTheTransferInFlightUntilCancelled) {
    TestHttpServer server;
    server.route("/", {200, {}, "", false, false, 0, true});
    engine->HttpRequest(request(1, server.url("/")));
    ASSERT_TRUE(runUntil([&] { return server.heldCount() == 1; }));
    runFor(1500);  // longer than the worker's one-second pacing
    EXPECT_EQ((std::vector<std::string>{"accepted 1"}), events.events);
    EXPECT_NE(0, engine->mThread);

    clearLog();
    engine->CancelAllHttpRequest();
    EXPECT_EQ(0, engine->mThread);
    EXPECT_EQ(0, engine->mPipeIOChannelData.mReadFd);
    EXPECT_EQ(0u, engine->mPipeIOChannelData.mWatchId);
    EXPECT_FALSE(engine->mMultiSession);
    auto info = infos();
    EXPECT_EQ(2, std::count(info.begin(), info.end(), "##"));  // cancel-all, then destroy-all
    runFor(50);
    EXPECT_EQ((std::vector<std::string>{"accepted 1"}), events.events);
    // Nothing left to cancel.
    engine->CancelAllHttpRequest();
    EXPECT_TRUE(logged(DLOG_ERROR, "Failed get curl multi session"));
}

// The cancel may reach the worker anywhere: before its first perform, inside libcurl while it
// connects or reads, in select, or after it posted its record. None of these may hang, leak or
// leave the engine unusable.
TEST_F(CurlEngineTest, CancelAndDestroyMidFlightAreSafe) {
    TestHttpServer server;
    server.route("/slow", {200, {}, std::string(3000, 's'), false, true, 15});
    server.route("/fast", {200, {}, "ok"});
    for (int i = 0; i < 300; ++i) {
        engine->HttpRequest(request(1, server.url("/slow")));
        engine->HttpRequest(request(2, server.url("/fast")));
        switch (i % 4) {
            case 0:
                break;  // right away, the worker is just starting
            case 1:
                runUntil([&] { return events.finished > 0 || server.heldCount() > 0; }, 2000);
                break;
            case 2:
                drainPending();
                break;
            case 3:
                runUntil([&] { return engine->idle(); }, 2000);
                break;
        }
        if (i % 2)
            engine->CancelAllHttpRequest();
        else {
            engine.reset();
            engine = std::make_unique<Engine>();
            engine->SetListener(&events);
        }
        ASSERT_EQ(0, engine->mThread);
    }
    events.events.clear();
    events.finished = 0;
    engine->HttpRequest(request(5, server.url("/fast")));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 5 ok", events.events.back());
}

TEST_F(CurlEngineTest, ProxyRule) {
    TestHttpServer server;
    server.route("/", {200, {}, "direct"});
    auto proxyOptions = [] {
        std::vector<std::string> out;
        for (const auto& c : curlOptionCalls())
            if (c.option == CURLOPT_PROXY) out.push_back(c.text);
        return out;
    };
    for (const char* none : {"0.0.0.0", "http://0.0.0.0", ""}) {
        curlHooksReset();
        clearLog();
        orvex_host_connection_set_proxy(none);
        engine->HttpRequest(request(1, server.url("/")));
        EXPECT_TRUE(proxyOptions().empty()) << none;
        EXPECT_TRUE(logged(DLOG_ERROR, "Invalid proxy address")) << none;
        ASSERT_TRUE(runUntil([&] { return engine->idle(); }));
    }
    // The handle is closed after each look-up.
    EXPECT_EQ(0, orvex_host_connection_open_handles());

    clearLog();
    orvex_host_fail_next("connection_create", 1, -5);
    engine->HttpRequest(request(2, server.url("/")));
    EXPECT_TRUE(logged(DLOG_ERROR, "Failed Create connection handler"));
    ASSERT_TRUE(runUntil([&] { return engine->idle(); }));
    EXPECT_EQ("response 2 direct", events.events.back());

    clearLog();
    orvex_host_connection_set_proxy("127.0.0.1:3128");
    orvex_host_fail_next("connection_get_proxy", 1, -5);
    engine->HttpRequest(request(3, server.url("/")));
    EXPECT_TRUE(logged(DLOG_ERROR, "Invalid proxy address"));
    ASSERT_TRUE(runUntil([&] { return engine->idle(); }));
    EXPECT_EQ(0, orvex_host_connection_open_handles());

    // A real proxy is used: the request line names the absolute URL.
    RawSocketServer proxy;
    proxy.setAction(RawSocketServer::Action::Reply,
                    "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\nproxied");
    orvex_host_connection_set_proxy(("http://127.0.0.1:" + std::to_string(proxy.port())).c_str());
    engine->HttpRequest(request(4, "http://weather.invalid/now?x=1"));
    ASSERT_TRUE(runUntil([&] { return engine->idle(); }));
    EXPECT_EQ("response 4 proxied", events.events.back());
    ASSERT_EQ(1u, proxy.requests().size());
    EXPECT_EQ(0u, proxy.requests()[0].find("GET http://weather.invalid/now?x=1 HTTP/1.1\r\n"));
}

TEST_F(CurlEngineTest, VerboseOutputReachesTheLogWithoutSecrets) {
    TestHttpServer server;
    server.route("/v1", {302, {{"Location", "/v2?lang=en&apiKey=SECRETKEY2"}}, ""});
    server.route("/v2", {200, {}, "{}"});
    engine->HttpRequest(
        request(1, server.url("/v1?q=1&apikey=SECRETKEY1&details=true&APIKEY=SECRETKEY3#frag"), "",
                {"Authorization: Bearer SECRETTOKEN", "Accept: */*"}));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 1 {}", events.events.back());

    std::vector<std::string> info = infos();
    for (const auto& line : logLines()) {
        EXPECT_EQ(std::string::npos, line.text.find("SECRETKEY")) << line.text;
        EXPECT_EQ(std::string::npos, line.text.find("SECRETTOKEN")) << line.text;
    }
    auto seen = [&](const std::string& m) {
        return std::find(info.begin(), info.end(), m) != info.end();
    };
    // Every key of a line, whatever its case, and one that ends the line.
    EXPECT_TRUE(seen("> GET /v1?q=1&apikey=<redacted>&details=true&APIKEY=<redacted> HTTP/1.1"));
    EXPECT_TRUE(seen("> Authorization: <redacted>"));
    EXPECT_TRUE(seen("< Location: /v2?lang=en&apiKey=<redacted>"));
    EXPECT_TRUE(seen("> GET /v2?lang=en&apiKey=<redacted> HTTP/1.1"));
    EXPECT_TRUE(seen("< HTTP/1.1 200 OK"));
    EXPECT_TRUE(seen("< [2 bytes of data]"));
}

// ---- The pipe watch and the body callbacks, driven directly ----

class PipeWatchTest : public CurlEngineTest {
protected:
    void SetUp() override {
        CurlEngineTest::SetUp();
        ASSERT_EQ(0, pipe(fds));
        channel = g_io_channel_unix_new(fds[0]);
    }
    void TearDown() override {
        g_io_channel_unref(channel);
        close(fds[0]);
        close(fds[1]);
        detach();
        CurlEngineTest::TearDown();
    }
    void attach(int readFd) {
        engine->mPipeIOChannelData.mGIOPipeChanel = channel;
        engine->mPipeIOChannelData.mReadFd = readFd;
    }
    void detach() {
        engine->mPipeIOChannelData.mGIOPipeChanel = nullptr;
        engine->mPipeIOChannelData.mReadFd = 0;
        engine->mPipeIOChannelData.mWatchId = 0;
    }
    void post(Engine::PipeTransCurlData* record) {
        ASSERT_EQ(static_cast<ssize_t>(sizeof record), write(fds[1], &record, sizeof record));
    }
    gboolean fire(int condition) {
        return Engine::SGIOPipeWatchCB(channel, static_cast<GIOCondition>(condition), engine.get());
    }

    int fds[2];
    GIOChannel* channel = nullptr;
};

TEST_F(PipeWatchTest, WatchBranches) {
    EXPECT_FALSE(fire(G_IO_IN));
    EXPECT_EQ((std::vector<std::string>{"INAVLID mGIOPipeChanel"}), errors());

    // A failed read keeps the watch for the next message.
    int closed[2];
    ASSERT_EQ(0, pipe(closed));
    close(closed[0]);
    close(closed[1]);
    attach(closed[0]);
    clearLog();
    EXPECT_TRUE(fire(G_IO_IN));
    EXPECT_EQ((std::vector<std::string>{"Failed get pipe message"}), errors());

    // A record of another type is consumed without touching the worker or the listener.
    attach(fds[0]);
    engine->mPipeIOChannelData.mWatchId = 77;
    post(new Engine::PipeTransCurlData(5));
    clearLog();
    EXPECT_FALSE(fire(G_IO_IN));
    EXPECT_TRUE(errors().empty());
    EXPECT_TRUE(events.events.empty());
    EXPECT_EQ(0u, engine->mPipeIOChannelData.mWatchId);
    EXPECT_EQ(channel, engine->mPipeIOChannelData.mGIOPipeChanel);

    post(nullptr);
    EXPECT_FALSE(fire(G_IO_IN));
    EXPECT_EQ((std::vector<std::string>{"Invalid pipe Curl data"}), errors());

    clearLog();
    EXPECT_FALSE(fire(G_IO_ERR));
    EXPECT_FALSE(fire(G_IO_HUP));
    EXPECT_FALSE(fire(G_IO_PRI));
    EXPECT_EQ((std::vector<std::string>{"G_IO_ERR", "G_IO_HUP"}), errors());

    // Only a whole pointer is taken as a record.
    auto* record = new Engine::PipeTransCurlData(3);
    char buffer[sizeof record];
    memcpy(buffer, &record, sizeof record);
    engine->CheckThreadStatus(buffer, sizeof record - 1);
    engine->CheckThreadStatus(nullptr, sizeof record);
    delete record;
    EXPECT_TRUE(events.events.empty());
}

TEST_F(CurlEngineTest, SessionHelpersRefuseToWorkWithoutAMultiSession) {
    EXPECT_EQ(nullptr, engine->FindSingleEasySessiong(0));
    EXPECT_EQ(nullptr, engine->FindSingleEasySessiong(static_cast<void*>(nullptr)));
    EXPECT_EQ(4, engine->AppendEasySession(nullptr));
    EXPECT_EQ(4, engine->AppendEasySession(std::make_shared<Engine::CurlSingleEasySession>()));
    engine->DestoryHttpRequest(nullptr);
    engine->ResponseHttpRequest();
    EXPECT_EQ((std::vector<std::string>{"Invalid multi session", "Invalid multi session",
                                        "[Failed] Invalid curlSingleEasySessiongPtr",
                                        "Failed get multi session or easy session list",
                                        "Invalid Multisession Ptr or curlSingleEasySessiongPtr",
                                        "Failed get curl multi session"}),
              errors());
    EXPECT_TRUE(events.events.empty());
}

// Without a pipe or a thread nothing would ever run the queued transfers: they fail at once, and
// the next request starts afresh.
TEST_F(CurlEngineTest, TransfersFailWhenNoWorkerCanStart) {
    TestHttpServer server;
    server.route("/", {200, {}, "fine"});

    g_failNextPipe = true;
    engine->HttpRequest(request(1, server.url("/")));
    EXPECT_FALSE(g_failNextPipe);
    EXPECT_TRUE(logged(DLOG_ERROR, "pipe create failed"));
    EXPECT_EQ((std::vector<std::string>{"accepted 1", "response failed 1"}), events.events);
    EXPECT_EQ(0, engine->mThread);
    EXPECT_EQ(0u, engine->mPipeIOChannelData.mWatchId);
    EXPECT_TRUE(engine->idle());

    g_failNextThread = true;
    engine->HttpRequest(request(2, server.url("/")));
    EXPECT_FALSE(g_failNextThread);
    EXPECT_TRUE(logged(DLOG_ERROR, "Failed create curl thread"));
    EXPECT_EQ("response failed 2", events.events.back());
    EXPECT_EQ(0, engine->mThread);
    EXPECT_EQ(0, engine->mPipeIOChannelData.mReadFd);
    EXPECT_EQ(0u, engine->mPipeIOChannelData.mWatchId);
    EXPECT_TRUE(engine->idle());
    EXPECT_EQ(0u, server.requestCount());

    engine->HttpRequest(request(3, server.url("/")));
    ASSERT_TRUE(finishes(3));
    EXPECT_EQ("response 3 fine", events.events.back());
}

// The worker's record cannot be posted: it says so and ends, and the engine is recovered by a
// cancel.
TEST_F(CurlEngineTest, AWorkerThatCannotPostItsRecordLogsIt) {
    TestHttpServer server;
    server.route("/late", {200, {}, "late", false, false, 200});
    engine->HttpRequest(request(1, server.url("/late")));
    ASSERT_TRUE(runUntil([&] { return server.heldCount() == 1; }));
    // Swap the pipe's write end for a descriptor that cannot be written. The swap is made under
    // the engine's mutex, which the worker takes before it writes.
    int readOnly = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(readOnly, 0);
    ASSERT_TRUE(engine->MutexLockImpl(__func__, __LINE__));
    ASSERT_EQ(engine->mPipeIOChannelData.mWriteFd,
              dup2(readOnly, engine->mPipeIOChannelData.mWriteFd));
    ASSERT_TRUE(engine->MutexUnlockImpl(__func__, __LINE__));
    close(readOnly);

    ASSERT_TRUE(runUntil([&] { return logged(DLOG_ERROR, "Failed write pipe"); }));
    // The pipe's real write end is gone, which ends the watch.
    EXPECT_TRUE(logged(DLOG_ERROR, "G_IO_HUP"));
    runFor(50);
    EXPECT_EQ((std::vector<std::string>{"accepted 1"}), events.events);

    engine->CancelAllHttpRequest();
    EXPECT_EQ(0, engine->mThread);
    EXPECT_TRUE(engine->idle());
    server.route("/", {200, {}, "again"});
    engine->HttpRequest(request(2, server.url("/")));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 2 again", events.events.back());
}

void ignoreSignal(int) {}

// A signal that interrupts the worker's wait is logged, and the transfer goes on.
TEST_F(CurlEngineTest, AnInterruptedWaitIsLoggedAndTheWorkerCarriesOn) {
    struct sigaction action {};
    action.sa_handler = &ignoreSignal;  // no SA_RESTART; select is never restarted anyway
    sigemptyset(&action.sa_mask);
    struct sigaction saved {};
    ASSERT_EQ(0, sigaction(SIGUSR2, &action, &saved));
    std::shared_ptr<void> restore(nullptr, [&](void*) { sigaction(SIGUSR2, &saved, nullptr); });

    TestHttpServer server;
    server.route("/late", {200, {}, "late", false, false, 600});
    engine->HttpRequest(request(1, server.url("/late")));
    ASSERT_TRUE(runUntil([&] { return server.heldCount() == 1; }));
    // The worker spends nearly all its time waiting here; a signal that lands while it is inside
    // libcurl is absorbed there, so keep sending until one interrupts the wait.
    for (int i = 0; i < 50 && !logged(DLOG_ERROR, "select error"); ++i) {
        ASSERT_NE(0, engine->mThread);
        pthread_kill(engine->mThread, SIGUSR2);
        runFor(5);
    }
    EXPECT_TRUE(logged(DLOG_ERROR, "select error"));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 1 late", events.events.back());
}

TEST_F(CurlEngineTest, WriteCallbackAndBodyAppend) {
    CurlHttpTotalPacketData packet;
    char hello[] = "hello";
    char world[] = "worldworld";
    EXPECT_EQ(0u, CurlNetworkConnection::ResponseHttpPacketCB(hello, 0, 5, &packet));
    EXPECT_EQ(5u, CurlNetworkConnection::ResponseHttpPacketCB(hello, 1, 5, &packet));
    EXPECT_EQ(10u, CurlNetworkConnection::ResponseHttpPacketCB(world, 2, 5, &packet));
    ASSERT_EQ(15, packet.Length);
    EXPECT_EQ("helloworldworld", std::string(reinterpret_cast<char*>(packet.Buffer), 15));
    EXPECT_TRUE(errors().empty());

    EXPECT_EQ(4u, CurlNetworkConnection::ResponseHttpPacketCB(nullptr, 1, 4, &packet));
    EXPECT_EQ(0u, CurlNetworkConnection::ResponseHttpPacketCB(hello, 1, 5, nullptr));
    EXPECT_EQ(15, packet.Length);
    EXPECT_EQ((std::vector<std::string>{"Invalid received data", "Invalid cur http packet data"}),
              errors());

    clearLog();
    unsigned char ab[] = {'a', 'b'};
    EXPECT_EQ(nullptr, CurlNetworkConnection::AppendPacketBodyData(nullptr, -1, ab, 2));
    EXPECT_EQ(nullptr, CurlNetworkConnection::AppendPacketBodyData(ab, 2, ab, -2));
    EXPECT_EQ(nullptr, CurlNetworkConnection::AppendPacketBodyData(nullptr, 0, nullptr, 0));
    EXPECT_EQ((std::vector<std::string>{"Invalid input length", "Invalid input length",
                                        "Invalied total len"}),
              errors());
    unsigned char* joined = CurlNetworkConnection::AppendPacketBodyData(ab, 2, ab, 1);
    ASSERT_NE(nullptr, joined);
    EXPECT_EQ(0, memcmp(joined, "aba", 3));
    delete[] joined;
}

}  // namespace
