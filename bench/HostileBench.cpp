// What a hostile server costs the application: for a gzip bomb, a 1 GiB body and an endless
// chunked body, the time from HttpRequest to the failure outcome, the process's peak RSS, and the
// longest the main loop is blocked while the transfer runs and when it is cancelled (HttpCancel,
// then NetworkProxy::Destory). Each scenario runs in a process of its own, so that its peak RSS is
// its own.
//
//   build/default/bench/orvex_hostile_bench
#include <glib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <orvex_host/connection_control.h>
#include <orvex_host/control.h>

#include "BlockMeter.h"
#include "HostileRoutes.h"
#include "NetworkProxy.h"
#include "TestHttpServer.h"

namespace {

using orvex_bench::nowMs;

struct Client : HttpNetworkEventListner {
    void OnHttpRequestCompleted(int id) override { requestId = id; }
    void OnHttpRequestFailed() override { failed = true; }
    void OnHttpRequestCancelCompleted() override {}
    void OnHttpResponseCompleted(int, unsigned char*, int) override { succeeded = true; }
    void OnHttpResponseFailed(int) override { failed = true; }
    int requestId = -1;
    bool failed = false, succeeded = false;
};

using orvex_bench::BlockMeter;

void runUntil(bool (*done)(const Client&), const Client& client, double deadlineMs) {
    while (!done(client) && nowMs() < deadlineMs) g_main_context_iteration(nullptr, TRUE);
}

void scenario(const char* name, orvex_test::HttpRoute route) {
    orvex_host_reset();
    orvex_host_connection_set_proxy("");
    orvex_test::TestHttpServer server;
    server.route("/h", route);
    NetworkProxy* proxy = NetworkProxy::GetInstance();
    Client client;
    int listener = proxy->RegisterHttpNetworkEventListener(&client);
    NetProxyHttpReqData request;
    request.URL = server.url("/h");

    double started = nowMs();
    double toFailure = -1, blockedInFlight = 0;
    {
        BlockMeter meter;
        proxy->HttpRequest(request, listener);
        runUntil([](const Client& c) { return c.failed || c.succeeded; }, client, started + 60000);
        if (client.failed) toFailure = nowMs() - started;
        blockedInFlight = meter.longest;
    }

    // The same transfer again, cancelled while it is in full flow (the first bytes are in).
    Client second;
    int secondListener = proxy->RegisterHttpNetworkEventListener(&second);
    auto inFlow = [&] {
        double until = nowMs() + 5;
        while (nowMs() < until) g_main_context_iteration(nullptr, FALSE);
    };
    proxy->HttpRequest(request, secondListener);
    inFlow();
    bool stillRunning = !second.failed;
    double t = nowMs();
    proxy->HttpCancel(second.requestId);
    double cancelMs = nowMs() - t;
    proxy->HttpRequest(request, secondListener);
    inFlow();
    stillRunning = stillRunning && !second.failed;
    t = nowMs();
    NetworkProxy::Destory();
    double destroyMs = nowMs() - t;

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    printf(
        "%-22s failure after %8.1f ms   peak RSS %6.1f MiB   main loop blocked at most "
        "%5.1f ms in flight, %5.1f ms by HttpCancel, %5.1f ms by Destory%s\n",
        name, toFailure, usage.ru_maxrss / 1024.0, blockedInFlight, cancelMs, destroyMs,
        stillRunning ? "" : " (ended before the cancel)");
    fflush(stdout);
}

}  // namespace

int main() {
    setenv("ORVEX_HOST_LOG_LEVEL", "silent", 1);
    struct {
        const char* name;
        orvex_test::HttpRoute (*route)();
    } scenarios[] = {
        {"gzip bomb", [] { return orvex_test::hostile::gzipBomb(); }},
        {"1 GiB body", [] { return orvex_test::hostile::zeros(1ull << 30); }},
        {"endless chunked body", [] { return orvex_test::hostile::endless(); }},
    };
    for (const auto& s : scenarios) {
        pid_t child = fork();
        if (child == 0) {
            scenario(s.name, s.route());
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
    }
    return 0;
}
