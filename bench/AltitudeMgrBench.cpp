// From Request to OnWeatherDataCompleted for the TWC chain (one request) and the AccuWeather chain
// (two), against a local HTTPS server playing the services, next to the same requests made with
// bare libcurl (fresh handle each, TLS verified against the same CA). Ratios are printed at the
// end.
//
//   build/default/bench/orvex_altitude_bench [--benchmark_repetitions=5]
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <glib.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <string>

#include <orvex_host/connection_control.h>
#include <orvex_host/control.h>
#include <orvex_host/key_storage_control.h>

#include "BuildConfig.h"
#include "CurlHooks.h"
#include "NetworkProxy.h"
#include "OrvexAltitudeMgr.h"
#include "TestHttpServer.h"

namespace {

const std::string kTwcPath = "/v2/aggcommon/v3-location-point;v3-wx-observations-current;v3-links";

// The services' stand-in issues TLS session tickets, as real services do, so that the second
// request of the AccuWeather chain can resume the first one's session.
orvex_test::TestHttpServer& server() {
    static orvex_test::TestHttpServer s(orvex_test::TestHttpServer::Mode::Https);
    return s;
}

struct Listener : OrvexAltitudeMgrEvent {
    void OnWeatherDataCompleted(std::tr1::shared_ptr<WeatherData> d) override {
        ok = d && d->pressure > 0;
        done = true;
    }
    void OnWeatherDataFailed() override { done = true; }
    bool done = false, ok = false;
};

void managerChain(benchmark::State& state, bool twc) {
    orvex_host_key_set("twc_api_key", twc ? "tw" : nullptr);
    OrvexAltitudeMgr* mgr = OrvexAltitudeMgr::getInstance();
    for (auto _ : state) {
        Listener listener;
        mgr->SetEventListener(&listener);
        mgr->Request(46.02, 7.75, 10000);
        while (!listener.done) g_main_context_iteration(nullptr, TRUE);
        if (!listener.ok) state.SkipWithError("request failed");
    }
    OrvexAltitudeMgr::deleteInstance();
}

size_t discard(char*, size_t size, size_t count, void*) { return size * count; }

bool curlGet(const std::string& url, CURLSH* share = nullptr) {
    CURL* easy = curl_easy_init();
    if (share) curl_easy_setopt(easy, CURLOPT_SHARE, share);
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
    curl_easy_setopt(easy, CURLOPT_CAINFO, orvex_test::TestHttpServer::caFile().c_str());
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "gzip,deflate");
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    long code = 0;
    bool ok = curl_easy_perform(easy) == CURLE_OK &&
              curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &code) == CURLE_OK && code == 200;
    curl_easy_cleanup(easy);
    return ok;
}

// Fresh handles for every request as the engine makes them; with a share object the TLS session
// of the first request is resumed by the second, without one every request is a full handshake.
void curlChain(benchmark::State& state, bool twc, bool shareSessions) {
    std::string base = "https://localhost:" + std::to_string(server().port());

    CURLSH* share = nullptr;
    if (shareSessions) {
        share = curl_share_init();
        curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
        curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    }
    for (auto _ : state) {
        bool ok = twc ? curlGet(base + kTwcPath + "?units=e&geocode=46.020000,7.750000&apiKey=tw")
                      : curlGet(base +
                                    "/locations/v1/cities/geoposition/search.json?q=46.020000,"
                                    "7.750000&apikey=&language=en",
                                share) &&
                            curlGet(base + "/currentconditions/v1/2283045.json?apikey=", share);
        if (!ok) state.SkipWithError("request failed");
    }
    if (share) curl_share_cleanup(share);
}

void BM_Manager_Twc(benchmark::State& s) { managerChain(s, true); }
void BM_Curl_Twc(benchmark::State& s) { curlChain(s, true, false); }
void BM_Manager_AccuWeather(benchmark::State& s) { managerChain(s, false); }
void BM_Curl_AccuWeather(benchmark::State& s) { curlChain(s, false, true); }
void BM_CurlNoReuse_AccuWeather(benchmark::State& s) { curlChain(s, false, false); }

BENCHMARK(BM_Manager_Twc)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Curl_Twc)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Manager_AccuWeather)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Curl_AccuWeather)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CurlNoReuse_AccuWeather)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Prints manager / libcurl for each chain, from the medians when repeated.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.error_occurred || (run.run_type != Run::RT_Iteration && !median)) continue;
            if (median || !times_.count(run.run_name.function_name))
                times_[run.run_name.function_name] = run.GetAdjustedRealTime();
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        for (const char* chain : {"Twc", "AccuWeather"}) {
            double manager = times_[std::string("BM_Manager_") + chain];
            double curl = times_[std::string("BM_Curl_") + chain];
            if (curl > 0)
                std::cout << "ratio " << chain
                          << " (OrvexAltitudeMgr / libcurl): " << manager / curl << "\n";
        }
        double noReuse = times_["BM_CurlNoReuse_AccuWeather"];
        double reuse = times_["BM_Curl_AccuWeather"];
        if (reuse > 0)
            std::cout << "ratio AccuWeather without / with TLS session reuse (libcurl): "
                      << noReuse / reuse
                      << "; sessions resumed by the server: " << server().resumedCount() << " of "
                      << server().acceptedCount() << " connections\n";
    }

private:
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    setenv("ORVEX_HOST_LOG_LEVEL", "silent", 1);
    orvex_host_reset();
    orvex_host_connection_set_proxy("");
    curl_global_init(CURL_GLOBAL_ALL);
    benchmark::Initialize(&argc, argv);
    if (!server().ok()) {
        std::cerr << "cannot start the local HTTPS server\n";
        return 1;
    }
    server().route(kTwcPath, {200, {}, R"({"v3-wx-observations-current":
        {"pressureMeanSeaLevel": 1016.9, "validTimeUtc": 1700000400}})"});
    server().route("/locations/v1/cities/geoposition/search.json",
                   {200, {}, R"({"Key": "2283045"})"});
    server().route("/currentconditions/v1/2283045.json",
                   {200, {}, R"([{"EpochTime": 1700000000, "Pressure": {"Metric":
                       {"Value": 1018.3, "Unit": "mb", "UnitType": 14}}}])"});
    std::string local = "https://localhost:" + std::to_string(server().port());
    orvex_test::curlRedirect(std::string("https://") + ORVEX_ACCUWEATHER_HOST, local);
    orvex_test::curlRedirect(std::string("https://") + ORVEX_TWC_HOST, local);
    orvex_test::curlOverrideCaFile(orvex_test::TestHttpServer::caFile());
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    NetworkProxy::Destory();
    curl_global_cleanup();
    return 0;
}
