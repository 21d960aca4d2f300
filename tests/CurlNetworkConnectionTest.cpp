// The curl engine on its own: request set-up, the worker and its pipe, cancels, and the body
// callbacks, against the local servers.
#include <curl/curl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

#include <orvex_host/connection_control.h>

#include "BuildConfig.h"
#include "CurlHooks.h"
#include "CurlNetworkConnection.h"
#include "HostFixture.h"
#include "HostileRoutes.h"
#include "HttpEvents.h"
#include "MainLoop.h"
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

// The engine as the tests watch it: whether a burst, its worker and the main loop's watch on the
// worker's pipe are alive. Nothing of it is driven from here.
class Engine : public CurlNetworkConnection {
public:
    bool workerRunning() const { return mThread != 0; }
    guint pipeWatch() const { return mPipeIOChannelData.mWatchId; }
    int pipeReadEnd() const { return mPipeIOChannelData.mReadFd; }
    bool pipeChannel() const { return mPipeIOChannelData.mGIOPipeChanel != nullptr; }

    bool idle() const { return !mMultiSession || !mMultiSession->mMultiHandle; }
    size_t inFlight() const { return mMultiSession ? mMultiSession->mEasySessionList.size() : 0; }
};

// Descriptors of a kind this process holds open: the engine's worker holds a pipe while transfers
// are in flight, and each multi handle a pair of sockets.
int descriptorsOpen(const char* kind = "pipe:") {
    int count = 0;
    GDir* dir = g_dir_open("/proc/self/fd", 0, nullptr);
    while (const char* name = g_dir_read_name(dir)) {
        char target[64] = "";
        std::string path = std::string("/proc/self/fd/") + name;
        if (readlink(path.c_str(), target, sizeof target - 1) > 0 &&
            strncmp(target, kind, strlen(kind)) == 0)
            ++count;
    }
    g_dir_close(dir);
    return count;
}

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

    HttpEvents events;
    std::unique_ptr<Engine> engine;
};

TEST_F(CurlEngineTest, OneBurstSharesOneWorkerAndReportsEveryOutcomeOnTheMainLoop) {
    TestHttpServer server;
    server.route("/get", {200, {}, "got it"});
    server.route("/post", {200, {}, "posted"});
    server.route("/chunked", {200, {}, "several small chunks of text", true});
    server.route("/old", {302, {{"Location", "/new"}}, ""});
    server.route("/new", {200, {}, "moved here"});
    server.route("/broken", {500, {}, "oops"});

    engine->HttpRequest(request(1, server.url("/get"), "", {"X-First: 1", "", "X-Second: 2"}));
    guint watch = engine->pipeWatch();
    ASSERT_NE(0u, watch);
    engine->HttpRequest(request(2, server.url("/post"), "a=1&b=2"));
    const char* paths[] = {"/chunked", "/old", "/missing", "/broken"};
    for (int i = 0; i < 4; ++i) engine->HttpRequest(request(3 + i, server.url(paths[i])));
    // The later requests joined the running worker instead of starting another.
    EXPECT_EQ(watch, engine->pipeWatch());
    EXPECT_EQ(6u, engine->inFlight());

    ASSERT_TRUE(finishes(6));
    // Every request was accepted before any outcome came.
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5, 6}), events.acceptedIds);
    EXPECT_EQ("accepted 6", events.events[5]);
    std::vector<std::string> outcomes(events.events.begin() + 6, events.events.end());
    std::sort(outcomes.begin(), outcomes.end());
    EXPECT_EQ(
        (std::vector<std::string>{
            "response 1 got it", "response 2 posted", "response 3 several small chunks of text",
            "response 4 moved here", "response failed 5", "response failed 6"}),
        outcomes);
    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :404"));
    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :500"));
    EXPECT_FALSE(engine->workerRunning());
    EXPECT_EQ(0u, engine->pipeWatch());
    EXPECT_FALSE(engine->pipeChannel());
}

TEST_F(CurlEngineTest, SetsTheOptionsInOrderAndLogsEachFailure) {
    orvex_host_connection_set_proxy("http://127.0.0.1:3128");
    curlFailNext("curl_easy_init", 1);
    curlFailNext("curl_multi_add_handle", 1, CURLM_BAD_EASY_HANDLE);
    clearLog();
    engine->HttpRequest(request(7, "http://127.0.0.1:9/x", "body", {"A: 1", "B: 2"}));
    std::vector<int> set;  // all of them on the handle that could not be made
    for (const auto& c : curlOptionCalls()) set.push_back(c.handle ? -1 : c.option);
    EXPECT_EQ((std::vector<int>{CURLOPT_VERBOSE, CURLOPT_URL, CURLOPT_PROXY, CURLOPT_HTTPHEADER,
                                CURLOPT_FOLLOWLOCATION, CURLOPT_NOPROGRESS, CURLOPT_SSL_CIPHER_LIST,
                                CURLOPT_POSTFIELDS, CURLOPT_POST, CURLOPT_WRITEFUNCTION,
                                CURLOPT_WRITEDATA, CURLOPT_PRIVATE, CURLOPT_ACCEPT_ENCODING,
                                CURLOPT_CAINFO}),
              set);
    EXPECT_EQ(
        (std::vector<std::string>{
            "Failed curl_easy_init", "Failed CURLOPT_VERBOSE option", "Failed CURLOPT_URL option",
            "Failed proxy option", "Failed CURLOPT_HTTPHEADER option",
            "Failed CURLOPT_FOLLOWLOCATION option", "Failed CURLOPT_NOPROGRESS option",
            "Failed CURLOPT_SSL_CIPHER_LIST option", "Failed CURLOPT_POST option",
            "Failed CURLOPT_POST option", "Failed CURLOPT_WRITEFUNCTION option",
            "Failed CURLOPT_WRITEDATA option", "Failed CURLOPT_PRIVATE option",
            "Failed CURLOPT_ENCODING option", "Failed CURLOPT_CAINFO option",
            "[Failed] curl_multi_add_handle", "Failed append easy session"}),
        errors());
    EXPECT_EQ((std::vector<std::string>{"failed 7"}), events.events);
    // The raw line carries the file, the function and the line, also for the options.
    bool rawSeen = false;
    for (const auto& l : logLines())
        rawSeen |=
            l.text.rfind("CurlNetworkConnection.cpp: HttpRequest(", 0) == 0 &&
            l.text.find(") > " + errorText("Failed CURLOPT_URL option")) != std::string::npos;
    EXPECT_TRUE(rawSeen);
    EXPECT_TRUE(engine->idle());

    // Nothing is left half-made: the next requests run, with the engine's own options after the
    // request's, redirects held to the request's scheme.
    orvex_host_connection_set_proxy("");
    TestHttpServer server;
    server.route("/", {200, {}, "fine"});
    // Each request's options, recorded on their own.
    std::vector<CurlOptionCall> options[2];
    for (int id : {8, 9}) {
        curlHooksReset();
        engine->HttpRequest(request(id, id == 8 ? server.url("/") : "ftp://127.0.0.1:9/"));
        options[id - 8] = curlOptionCalls();
    }
    ASSERT_TRUE(finishes(2));
    EXPECT_TRUE(events.saw("response 8 fine"));
    EXPECT_TRUE(events.saw("response failed 9"));
    auto tail = [](const std::vector<CurlOptionCall>& calls) {
        std::vector<std::pair<int, std::string>> out;
        for (size_t i = calls.size() >= 5 ? calls.size() - 5 : 0; i < calls.size(); ++i)
            out.emplace_back(calls[i].option, calls[i].value);
        return out;
    };
    EXPECT_EQ((std::vector<std::pair<int, std::string>>{{CURLOPT_DEBUGFUNCTION, ""},
                                                        {CURLOPT_MAXREDIRS, "5"},
                                                        {CURLOPT_REDIR_PROTOCOLS_STR, "http"},
                                                        {CURLOPT_NOSIGNAL, "1"},
                                                        {CURLOPT_SHARE, ""}}),
              tail(options[0]));
    EXPECT_EQ((std::pair<int, std::string>{CURLOPT_FOLLOWLOCATION, "0"}), tail(options[1])[2]);
}

// The worker has done its last perform and posted its record, but the main loop has not run yet:
// a request queued now lands on the old multi handle, which no worker drives any more. It moves
// to a new one, or fails when that cannot be made.
TEST_F(CurlEngineTest, ARequestQueuedWhileTheWorkerEndsIsNotLost) {
    TestHttpServer server;
    server.route("/", {200, {}, "one"});
    for (bool multiFails : {false, true}) {
        SCOPED_TRACE(multiFails ? "no new multi handle" : "a new multi handle");
        events = HttpEvents();
        engine->HttpRequest(request(1, server.url("/")));
        pollfd posted{engine->pipeReadEnd(), POLLIN, 0};
        EXPECT_EQ(1, poll(&posted, 1, 10000));
        engine->HttpRequest(request(2, server.url("/")));
        if (multiFails) curlFailNext("curl_multi_init", 1);
        EXPECT_TRUE(finishes(2));
        if (events.events.size() < 2) continue;
        std::vector<std::string> tail(events.events.begin() + 2, events.events.end());
        EXPECT_EQ((std::vector<std::string>{"response 1 one",
                                            multiFails ? "response failed 2" : "response 2 one"}),
                  tail);
    }
    EXPECT_TRUE(logged(DLOG_ERROR, "[Failed] curl_multi_add_handle"));
    EXPECT_EQ(3u, server.requests().size());
}

TEST_F(CurlEngineTest, HttpsVerifiesTheCaAndResumesTlsSessionsAcrossBursts) {
    TrustTestCa trust;
    TestHttpServer good(TestHttpServer::Mode::Https);
    good.route("/", {200, {}, "secure"});
    TestHttpServer bad(TestHttpServer::Mode::HttpsUntrusted);
    bad.route("/", {200, {}, "never read"});

    engine->HttpRequest(request(1, good.url("/")));
    engine->HttpRequest(request(2, bad.url("/")));
    ASSERT_TRUE(finishes(2));
    EXPECT_TRUE(events.saw("response 1 secure"));
    EXPECT_TRUE(events.saw("response failed 2"));
    // Transport failures carry no HTTP status.
    EXPECT_TRUE(logged(DLOG_ERROR, "Response Error Code :0"));

    // A new burst has a new multi handle and a new connection, but no full TLS handshake.
    EXPECT_EQ(0, good.resumedCount());
    engine->HttpRequest(request(3, good.url("/")));
    ASSERT_TRUE(finishes(3));
    EXPECT_TRUE(events.saw("response 3 secure"));
    EXPECT_EQ(1, good.resumedCount());
    EXPECT_EQ(2, good.acceptedCount());
}

TEST_F(CurlEngineTest, CancelsTakeRequestsOutAndReportThemAsCompleted) {
    // Nothing queued yet.
    engine->CancelHttpRequest(4);
    engine->CancelHttpRequest(request(4, "x"));
    engine->CancelAllHttpRequest();
    EXPECT_EQ(std::vector<std::string>(3, "Failed get curl multi session"), errors());

    TestHttpServer server;
    server.route("/silent", hostile::silent());
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
    // The worker may still be on its way out: a request that cannot join it must not take its
    // multi handle away.
    curlFailNext("curl_multi_add_handle", 1, CURLM_BAD_EASY_HANDLE);
    engine->HttpRequest(request(5, server.url("/quick")));
    EXPECT_EQ("failed 5", events.events.back());
    EXPECT_FALSE(engine->idle());
    events.events.pop_back();
    // With nothing left the worker ends and the engine goes idle without a response callback.
    ASSERT_TRUE(runUntil([&] { return engine->idle(); }));
    EXPECT_EQ(4u, events.events.size());

    // Cancelling everything joins the worker and tells nobody.
    engine->HttpRequest(request(3, server.url("/silent")));
    ASSERT_TRUE(runUntil([&] { return server.heldCount() == 3; }));
    clearLog();
    engine->CancelAllHttpRequest();
    EXPECT_FALSE(engine->workerRunning());
    EXPECT_EQ(0, engine->pipeReadEnd());
    EXPECT_EQ(0u, engine->pipeWatch());
    EXPECT_TRUE(engine->idle());
    auto info = infos();
    EXPECT_EQ(2, std::count(info.begin(), info.end(), "##"));  // cancel-all, then destroy-all
    drainPending();
    EXPECT_EQ(5u, events.events.size());

    engine->HttpRequest(request(4, server.url("/quick")));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 4 quick", events.events.back());
    server.releaseHeld();
}

// The cancel may reach the worker anywhere: before its first perform, inside libcurl while it
// connects or reads, in select, or after it posted its record. None of these may hang, leak or
// leave the engine unusable.
TEST_F(CurlEngineTest, CancelAndDestroyMidFlightAreSafe) {
    TestHttpServer server;
    server.route("/slow", {200, {}, std::string(3000, 's'), true, 15});
    server.route("/fast", {200, {}, "ok"});
    for (int i = 0; i < 200; ++i) {
        engine->HttpRequest(request(1, server.url("/slow")));
        engine->HttpRequest(request(2, server.url("/fast")));
        if (i % 4 == 1)
            runUntil([&] { return events.finished > 0 || server.heldCount() > 0; }, 2000);
        else if (i % 4 == 2)
            drainPending();
        else if (i % 4 == 3)
            runUntil([&] { return engine->idle(); }, 2000);
        if (i % 2) {
            engine->CancelAllHttpRequest();
        } else {
            engine = std::make_unique<Engine>();
            engine->SetListener(&events);
        }
        ASSERT_FALSE(engine->workerRunning());
    }
    // Every destroyed engine had let go of all its transfers.
    EXPECT_FALSE(logged(DLOG_ERROR, "Failed curl_share_cleanup"));
    events = HttpEvents();
    engine->HttpRequest(request(5, server.url("/fast")));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 5 ok", events.events.back());
}

TEST_F(CurlEngineTest, ProxyRule) {
    TestHttpServer server;
    server.route("/", {200, {}, "direct"});
    struct Case {
        const char* proxy;
        const char* fault;
        const char* error;
    } cases[] = {{"0.0.0.0", nullptr, "Invalid proxy address"},
                 {"http://0.0.0.0", nullptr, "Invalid proxy address"},
                 {"", nullptr, "Invalid proxy address"},
                 {"127.0.0.1:3128", "connection_get_proxy", "Invalid proxy address"},
                 {"127.0.0.1:3128", "connection_create", "Failed Create connection handler"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string("proxy '") + c.proxy + "', failing " +
                     (c.fault ? c.fault : "nothing"));
        curlHooksReset();
        clearLog();
        orvex_host_connection_set_proxy(c.proxy);
        if (c.fault) orvex_host_fail_next(c.fault, 1, -5);
        engine->HttpRequest(request(1, server.url("/")));
        EXPECT_NE(CURLOPT_PROXY, curlOptionCalls().at(2).option);  // after the URL
        EXPECT_TRUE(logged(DLOG_ERROR, c.error));
        EXPECT_TRUE(runUntil([&] { return engine->idle(); }));
        EXPECT_EQ("response 1 direct", events.events.back());
    }
    // The handle is closed after each look-up.
    EXPECT_EQ(0, orvex_host_connection_open_handles());

    // A real proxy is used: the request line names the absolute URL.
    TestHttpServer proxy;
    proxy.route("*", {200, {}, "proxied"});
    orvex_host_connection_set_proxy(("http://127.0.0.1:" + std::to_string(proxy.port())).c_str());
    engine->HttpRequest(request(4, "http://weather.invalid/now?x=1"));
    ASSERT_TRUE(runUntil([&] { return engine->idle(); }));
    EXPECT_EQ("response 4 proxied", events.events.back());
    ASSERT_EQ(1u, proxy.requests().size());
    EXPECT_EQ(0u, proxy.requests()[0].head.find("GET http://weather.invalid/now?x=1 HTTP/1.1\r\n"));
}

TEST_F(CurlEngineTest, VerboseHeadersReachTheLogWithoutSecretsOrBodies) {
    TestHttpServer server;
    server.route("/v1", {302, {{"Location", "/v2?lang=en&apiKey=SECRETKEY2"}}, ""});
    server.route("/v2", {200, {{"X-Next", "/v3?apikey="}}, "{}"});
    engine->HttpRequest(
        request(1, server.url("/v1?q=1&apikey=SECRETKEY1&details=true&APIKEY=SECRETKEY3#frag"),
                "k=v", {"Authorization: Bearer SECRETTOKEN", "Accept: */*"}));
    ASSERT_TRUE(finishes(1));
    EXPECT_EQ("response 1 {}", events.events.back());

    // Every kind of line is covered by the redaction's own suite; here, that the engine routes
    // its verbose output through it.
    for (const auto& line : logLines()) {
        EXPECT_EQ(std::string::npos, line.text.find("SECRET")) << line.text;
        EXPECT_EQ(std::string::npos, line.text.find("bytes of data")) << line.text;
    }
    std::vector<std::string> info = infos();
    EXPECT_NE(info.end(),
              std::find(info.begin(), info.end(), "< Location: /v2?lang=en&apiKey=<redacted>"));
}

// ---- The pipe watch and the body callbacks, driven directly ----

// A request sent from inside a response, as a chain of requests does, starts the next burst
// while the last one is being delivered: the engine keeps the new burst's watch, and a cancel
// then takes it down with the worker.
TEST_F(CurlEngineTest, ARequestSentFromAResponseKeepsItsOwnWorker) {
    TestHttpServer server;
    server.route("/", {200, {}, "first"});
    server.route("/held", hostile::silent());
    struct Chain : HttpEvents {
        std::function<void()> next;
        void OnHttpResponseCompleted(std::shared_ptr<IHttpRequestData> request,
                                     std::shared_ptr<IHttpResponseData> response) override {
            HttpEvents::OnHttpResponseCompleted(request, response);
            if (auto then = std::exchange(next, nullptr)) then();
        }
    } chain;
    engine->SetListener(&chain);
    chain.next = [&] { engine->HttpRequest(request(2, server.url("/held"))); };
    engine->HttpRequest(request(1, server.url("/")));
    EXPECT_TRUE(runUntil([&] { return server.heldCount() == 1; }));
    EXPECT_TRUE(engine->workerRunning());
    EXPECT_NE(0u, engine->pipeWatch());
    const int pipes = descriptorsOpen();
    engine->CancelAllHttpRequest();
    server.releaseHeld();
    EXPECT_EQ(0u, engine->pipeWatch());
    EXPECT_EQ(pipes - 2, descriptorsOpen());
    EXPECT_EQ((Lines{"accepted 1", "response 1 first", "accepted 2"}), chain.events);
}

// The worker, its pipe and the burst's multi handle live only while transfers are in flight: after
// a burst that finished and one that was cancelled, no pipe or socket is left open, and an idle
// engine has nothing to work on.
TEST_F(CurlEngineTest, AnIdleEngineHoldsNoDescriptorAndHasNothingToCancel) {
    TestHttpServer server;
    server.route("/", {200, {}, "fine"});
    server.route("/held", hostile::silent());
    const int before = descriptorsOpen(), sockets = descriptorsOpen("socket:");
    engine->HttpRequest(request(1, server.url("/")));
    EXPECT_TRUE(finishes(1));
    EXPECT_EQ(before, descriptorsOpen());
    engine->HttpRequest(request(2, server.url("/held")));
    EXPECT_TRUE(runUntil([&] { return server.heldCount() == 1; }));
    EXPECT_EQ(before + 2, descriptorsOpen());  // both ends of the worker's pipe
    engine->CancelAllHttpRequest();
    server.releaseHeld();
    EXPECT_EQ(before, descriptorsOpen());
    // The server closes its end of the held connection in its own time.
    EXPECT_TRUE(runUntil([&] { return descriptorsOpen("socket:") == sockets; }));

    clearLog();
    struct NotCurl : IHttpRequestData {};
    engine->HttpRequest(std::make_shared<NotCurl>());
    engine->CancelHttpRequest(5);
    engine->CancelHttpRequest(request(6, server.url("/")));
    EXPECT_EQ((Lines{"Invalid httpRequestDataPtr", "Failed get curl multi session",
                     "Failed get curl multi session"}),
              errors());
    EXPECT_EQ((Lines{"response 1 fine", "accepted 2"}),
              Lines(events.events.end() - 2, events.events.end()));
}

// Without a pipe or a thread nothing would ever run the queued transfers: they fail, reported from
// the main loop and not from inside the request, and the next request starts afresh.
TEST_F(CurlEngineTest, TransfersFailWhenNoWorkerCanStart) {
    TestHttpServer server;
    server.route("/", {200, {}, "fine"});
    struct Case {
        std::atomic<bool>* fault;
        const char* error;
    } cases[] = {{&g_failNextPipe, "pipe create failed"},
                 {&g_failNextThread, "Failed create curl thread"}};
    int id = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.error);
        *c.fault = true;
        engine->HttpRequest(request(++id, server.url("/")));
        EXPECT_FALSE(*c.fault);
        EXPECT_TRUE(logged(DLOG_ERROR, c.error));
        EXPECT_EQ("accepted " + std::to_string(id), events.events.back());
        EXPECT_FALSE(engine->workerRunning());
        EXPECT_EQ(0, engine->pipeReadEnd());
        EXPECT_TRUE(finishes(id));
        EXPECT_EQ("response failed " + std::to_string(id), events.events.back());
        EXPECT_EQ(0u, engine->pipeWatch());
    }
    EXPECT_EQ(0u, server.requests().size());
    engine->HttpRequest(request(3, server.url("/")));
    ASSERT_TRUE(finishes(3));
    EXPECT_EQ("response 3 fine", events.events.back());

    // A burst failed this way and cancelled before the main loop reported it tells nobody.
    g_failNextPipe = true;
    engine->HttpRequest(request(4, server.url("/")));
    engine->CancelAllHttpRequest();
    drainPending();
    EXPECT_EQ("accepted 4", events.events.back());
    // That cancel found no pipe of this burst to close: it must not close a number left over from
    // the burst before, which is by now a descriptor of someone else's (here, the test's own).
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        EXPECT_NE(-1, fcntl(fd, F_GETFD)) << "descriptor " << fd << " was closed";
}

TEST_F(CurlEngineTest, WriteCallbackBodyAppendAndTheBodyCap) {
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

    // Up to the cap a body grows; one byte more ends the transfer.
    CurlHttpTotalPacketData full;
    full.Length = ORVEX_MAX_BODY_BYTES - 5;
    EXPECT_EQ(0u, CurlNetworkConnection::ResponseHttpPacketCB(world, 1, 6, &full));
    EXPECT_EQ("Response body over 1048576 bytes", errors().back());
    EXPECT_EQ(5u, CurlNetworkConnection::ResponseHttpPacketCB(hello, 1, 5, &full));
    EXPECT_EQ(ORVEX_MAX_BODY_BYTES, full.Length);

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
