// Request-to-response latency of NetworkProxy on loopback, against libcurl driven directly on
// the same server in the same run. Each pair is printed as a ratio at the end. The "Paired" runs
// take the candidates in turn within each iteration and compare medians, which holds up far better
// on a noisy machine than two runs one after the other. Besides NetworkProxy and bare libcurl they
// time the bare worker hand-off and the "design floor": the same libcurl transfer made on a thread
// started for it, which reports to the main loop through a pipe and is joined there. That is what
// a worker per burst costs before any of the engine's own code runs.
//
//   build/default/bench/orvex_http_bench [--benchmark_repetitions=5]
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <glib.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <orvex_host/connection_control.h>
#include <orvex_host/control.h>

#include "NetworkProxy.h"
#include "TestHttpServer.h"

namespace {

constexpr int kBurst = 50;

orvex_test::TestHttpServer& server() {
    static orvex_test::TestHttpServer s;
    static bool routed = false;
    if (!routed) {
        s.route("/2k", {200, {{"Content-Type", "application/json"}}, std::string(2048, 'p')});
        routed = true;
    }
    return s;
}

std::string urlFor(bool hostName) {
    return hostName ? "http://localhost:" + std::to_string(server().port()) + "/2k"
                    : server().url("/2k");
}

class Counter : public HttpNetworkEventListner {
public:
    void OnHttpRequestCompleted(int) override {}
    void OnHttpRequestFailed() override { ++failed; }
    void OnHttpRequestCancelCompleted() override {}
    void OnHttpResponseCompleted(int, unsigned char*, int length) override {
        ++done;
        bytes += length;
    }
    void OnHttpResponseFailed(int) override { ++failed; }
    int done = 0;
    int failed = 0;
    long bytes = 0;
};

// A client of NetworkProxy that sends requests and waits on the main loop for their answers.
class ProxyClient {
public:
    explicit ProxyClient(bool hostName) : proxy_(NetworkProxy::GetInstance()) {
        id_ = proxy_->RegisterHttpNetworkEventListener(&counter_);
        request_.URL = urlFor(hostName);
    }
    ~ProxyClient() {
        proxy_->UnRegisterHttpNetworkEventListener(id_);
        NetworkProxy::Destory();
    }
    void run(int requests) {
        int target = counter_.done + counter_.failed + requests;
        for (int i = 0; i < requests; ++i) proxy_->HttpRequest(request_, id_);
        while (counter_.done + counter_.failed < target) g_main_context_iteration(nullptr, TRUE);
    }
    bool anyFailed() const { return counter_.failed != 0; }
    const std::string& url() const { return request_.URL; }

private:
    NetworkProxy* proxy_;
    Counter counter_;
    int id_;
    NetProxyHttpReqData request_;
};

void proxyRequests(benchmark::State& state, bool hostName, int perIteration) {
    {
        ProxyClient client(hostName);
        for (auto _ : state) client.run(perIteration);
        if (client.anyFailed()) state.SkipWithError("requests failed");
    }
    state.SetItemsProcessed(state.iterations() * perIteration);
}

size_t discard(char*, size_t size, size_t count, void* total) {
    *static_cast<long*>(total) += static_cast<long>(size * count);
    return size * count;
}

CURL* easyFor(const std::string& url, long* total) {
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, total);
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "gzip,deflate");
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    return easy;
}

// A fresh handle per request, as the engine makes one: no connection is reused on either side.
bool curlGet(const std::string& url, long* total) {
    CURL* easy = easyFor(url, total);
    bool ok = curl_easy_perform(easy) == CURLE_OK;
    curl_easy_cleanup(easy);
    return ok;
}

void curlEasy(benchmark::State& state, bool hostName) {
    std::string url = urlFor(hostName);
    long total = 0;
    for (auto _ : state)
        if (!curlGet(url, &total)) state.SkipWithError("transfer failed");
    state.SetItemsProcessed(state.iterations());
}

void curlMultiBurst(benchmark::State& state) {
    std::string url = urlFor(false);
    long total = 0;
    for (auto _ : state) {
        CURLM* multi = curl_multi_init();
        CURL* handles[kBurst];
        for (auto& h : handles) {
            h = easyFor(url, &total);
            curl_multi_add_handle(multi, h);
        }
        int running = 1;
        while (running) {
            curl_multi_perform(multi, &running);
            if (running) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
        for (auto& h : handles) {
            curl_multi_remove_handle(multi, h);
            curl_easy_cleanup(h);
        }
        curl_multi_cleanup(multi);
    }
    state.SetItemsProcessed(state.iterations() * kBurst);
}

// What the engine's design costs: a pipe and a GLib watch on it, a worker thread that posts one
// record through the pipe and ends, and the main loop that reads it and joins the worker. With a
// URL the worker first makes the transfer itself, as bare libcurl would.
struct Handoff {
    int fds[2];
    bool delivered;
    const std::string* url;
    bool transferred;
};

void* postRecord(void* arg) {
    auto* handoff = static_cast<Handoff*>(arg);
    if (handoff->url) {
        long total = 0;
        handoff->transferred = curlGet(*handoff->url, &total);
    }
    void* record = handoff;
    if (write(handoff->fds[1], &record, sizeof record) != static_cast<ssize_t>(sizeof record))
        return nullptr;
    return nullptr;
}

gboolean readRecord(GIOChannel*, GIOCondition, gpointer arg) {
    auto* handoff = static_cast<Handoff*>(arg);
    void* record = nullptr;
    handoff->delivered = read(handoff->fds[0], &record, sizeof record) == sizeof record;
    return FALSE;
}

bool handoffOnce(const std::string* url = nullptr) {
    Handoff handoff{{-1, -1}, false, url, true};
    if (pipe2(handoff.fds, O_CLOEXEC) != 0) return false;
    GIOChannel* channel = g_io_channel_unix_new(handoff.fds[0]);
    g_io_add_watch(channel, static_cast<GIOCondition>(G_IO_IN | G_IO_ERR | G_IO_HUP), &readRecord,
                   &handoff);
    pthread_t worker;
    bool started = pthread_create(&worker, nullptr, &postRecord, &handoff) == 0;
    if (started) {
        while (!handoff.delivered) g_main_context_iteration(nullptr, TRUE);
        pthread_join(worker, nullptr);
    }
    g_io_channel_unref(channel);
    close(handoff.fds[0]);
    close(handoff.fds[1]);
    return started && handoff.transferred;
}

void BM_Floor_WorkerHandoff(benchmark::State& state) {
    for (auto _ : state) {
        if (!handoffOnce()) {
            state.SkipWithError("no pipe or thread");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// The same GET through NetworkProxy, through bare libcurl, through libcurl on a worker of its own
// (the design floor) and the bare hand-off, taken in turn in every iteration, so that a burst of
// noise on the machine hits all four alike. Each figure is the median of its own timings.
void pairedGet(benchmark::State& state, bool hostName) {
    using Clock = std::chrono::steady_clock;
    auto micros = [](Clock::time_point since) {
        return std::chrono::duration<double, std::micro>(Clock::now() - since).count();
    };
    // CPU of the whole process (the server's threads included, alike for every candidate).
    auto cpuMicros = [] {
        timespec t{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
        return t.tv_sec * 1e6 + t.tv_nsec / 1e3;
    };
    std::vector<double> viaProxy, viaCurl, viaWorker, handoff, proxyCpu, workerCpu;
    {
        ProxyClient client(hostName);
        long total = 0;
        for (auto _ : state) {
            auto start = Clock::now();
            double cpu = cpuMicros();
            client.run(1);
            proxyCpu.push_back(cpuMicros() - cpu);
            viaProxy.push_back(micros(start));

            start = Clock::now();
            if (!curlGet(client.url(), &total)) state.SkipWithError("transfer failed");
            viaCurl.push_back(micros(start));

            start = Clock::now();
            cpu = cpuMicros();
            if (!handoffOnce(&client.url())) state.SkipWithError("worker transfer failed");
            workerCpu.push_back(cpuMicros() - cpu);
            viaWorker.push_back(micros(start));

            start = Clock::now();
            if (!handoffOnce()) state.SkipWithError("no pipe or thread");
            handoff.push_back(micros(start));
        }
        if (client.anyFailed()) state.SkipWithError("requests failed");
    }
    double p = median(viaProxy), c = median(viaCurl), w = median(viaWorker), h = median(handoff);
    state.counters["proxy_us"] = p;
    state.counters["curl_us"] = c;
    state.counters["worker_us"] = w;
    state.counters["handoff_us"] = h;
    state.counters["ratio"] = c > 0 ? p / c : 0;
    state.counters["floor_ratio"] = c > 0 ? w / c : 0;
    state.counters["over_floor"] = w > 0 ? p / w : 0;
    double pc = median(proxyCpu), wc = median(workerCpu);
    state.counters["proxy_cpu_us"] = pc;
    state.counters["floor_cpu_us"] = wc;
    state.counters["cpu_over_floor"] = wc > 0 ? pc / wc : 0;
}

void BM_Proxy_Get2K_IpLiteral(benchmark::State& s) { proxyRequests(s, false, 1); }
void BM_Curl_Get2K_IpLiteral(benchmark::State& s) { curlEasy(s, false); }
void BM_Proxy_Burst50(benchmark::State& s) { proxyRequests(s, false, kBurst); }
void BM_Curl_Burst50(benchmark::State& s) { curlMultiBurst(s); }
void BM_Proxy_Get2K_HostName(benchmark::State& s) { proxyRequests(s, true, 1); }
void BM_Curl_Get2K_HostName(benchmark::State& s) { curlEasy(s, true); }
void BM_Paired_Get2K_IpLiteral(benchmark::State& s) { pairedGet(s, false); }
void BM_Paired_Get2K_HostName(benchmark::State& s) { pairedGet(s, true); }

BENCHMARK(BM_Proxy_Get2K_IpLiteral)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Curl_Get2K_IpLiteral)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Proxy_Burst50)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Curl_Burst50)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Floor_WorkerHandoff)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Proxy_Get2K_HostName)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Curl_Get2K_HostName)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Paired_Get2K_IpLiteral)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->Iterations(2000);
BENCHMARK(BM_Paired_Get2K_HostName)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(1000);

// Prints the usual table, then NetworkProxy's time over libcurl's for each pair.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            if (run.error_occurred) continue;
            // With repetitions the median stands for the pair; otherwise the single run.
            bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type != Run::RT_Iteration && !median) continue;
            std::string name = run.run_name.function_name;
            if (!median && medians_.count(name)) continue;
            times_[name] = run.GetAdjustedRealTime();
            for (const auto& counter : run.counters)
                counters_[name][counter.first] = counter.second;
            if (median) medians_.insert(name);
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        for (const char* pair : {"Get2K_IpLiteral", "Burst50", "Get2K_HostName"}) {
            auto proxy = times_.find(std::string("BM_Proxy_") + pair);
            auto curl = times_.find(std::string("BM_Curl_") + pair);
            if (proxy == times_.end() || curl == times_.end() || curl->second <= 0) continue;
            std::cout << "ratio " << pair
                      << " (NetworkProxy / libcurl): " << proxy->second / curl->second << "\n";
        }
        auto handoff = times_.find("BM_Floor_WorkerHandoff");
        if (handoff != times_.end())
            std::cout << "worker hand-off alone: " << handoff->second << " us\n";
        for (const char* pair : {"Get2K_IpLiteral", "Get2K_HostName"}) {
            auto paired = counters_.find(std::string("BM_Paired_") + pair);
            if (paired == counters_.end()) continue;
            auto& c = paired->second;
            std::cout << "paired " << pair << ": NetworkProxy " << c["proxy_us"] << " us, libcurl "
                      << c["curl_us"] << " us, libcurl on a worker " << c["worker_us"]
                      << " us, hand-off " << c["handoff_us"] << " us; ratio " << c["ratio"]
                      << ", design floor " << c["floor_ratio"] << ", NetworkProxy over the floor "
                      << c["over_floor"] << "; CPU over the floor " << c["cpu_over_floor"] << "\n";
        }
    }

private:
    std::map<std::string, std::map<std::string, double>> counters_;
    std::map<std::string, double> times_;
    std::set<std::string> medians_;
};

}  // namespace

int main(int argc, char** argv) {
    // The library logs every request (libcurl's verbose output included); keep stderr for the
    // table. The host log capture still records it, as it would on a device.
    setenv("ORVEX_HOST_LOG_LEVEL", "silent", 1);
    orvex_host_reset();
    orvex_host_connection_set_proxy("");
    curl_global_init(CURL_GLOBAL_ALL);
    benchmark::Initialize(&argc, argv);
    if (!server().ok()) {
        std::cerr << "cannot start the local HTTP server\n";
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    curl_global_cleanup();
    return 0;
}
