// Parse-and-read of each weather answer kind, and the conversions that build request URLs.
#include <benchmark/benchmark.h>
#include <orvex_host/control.h>
#include <platform/dlog.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "StringUtil.h"
#include "WeatherParser.h"

namespace {

std::string load(const char* name) {
    std::ifstream in(std::string(ORVEX_CORPUS_DIR) + "/" + name);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

template <typename Read>
void parseAndRead(benchmark::State& state, const char* file, Read read) {
    orvex_host_log_set_stderr_threshold(DLOG_SILENT);
    std::string body = load(file);
    std::vector<char> bytes(body.begin(), body.end());
    for (auto _ : state) {
        WeatherParser parser;
        parser.Parse(bytes.data(), static_cast<int>(bytes.size()));
        benchmark::DoNotOptimize(read(parser));
        orvex_host_log_clear();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}

void BM_ParseLocationKey(benchmark::State& state) {
    parseAndRead(state, "geoposition.json", [](WeatherParser& p) { return p.GetLocationID(); });
}
void BM_ParseCurrentConditions(benchmark::State& state) {
    parseAndRead(state, "currentconditions.json",
                 [](WeatherParser& p) { return p.GetWeatherData(); });
}
void BM_ParseTwcObservation(benchmark::State& state) {
    parseAndRead(state, "twcaggcommon.json",
                 [](WeatherParser& p) { return p.GetTWCWeatherData(); });
}

// The substitutions and coordinate formatting of one request URL.
void BM_BuildUrl(benchmark::State& state) {
    const std::string templ =
        "https://host/v3/aggcommon/v3-wx-observations-current?geocodes="
        "LATITUDE,LONGITUDE&language=en-US&units=m&format=json&apiKey=KEY";
    for (auto _ : state) {
        std::string url =
            StringUtil::StringReplace(templ, "LATITUDE", StringUtil::DoubleToString(46.020713, 6));
        url = StringUtil::StringReplace(url, "LONGITUDE", StringUtil::DoubleToString(7.749117, 6));
        url = StringUtil::StringReplace(url, "KEY", "0123456789abcdef");
        benchmark::DoNotOptimize(url);
    }
}

void BM_DoubleToString(benchmark::State& state) {
    double v = -37.813611;
    for (auto _ : state) benchmark::DoNotOptimize(StringUtil::DoubleToString(v, 6));
}

BENCHMARK(BM_ParseLocationKey);
BENCHMARK(BM_ParseCurrentConditions);
BENCHMARK(BM_ParseTwcObservation);
BENCHMARK(BM_BuildUrl);
BENCHMARK(BM_DoubleToString);

}  // namespace

BENCHMARK_MAIN();
