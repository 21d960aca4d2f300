// Rows a second of `orvex analyse`'s path (reading the CSV and the altimeter's logic) on a
// generated day at 1 Hz: a walk up and down through changing weather, with and without a GNSS
// column.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>

#include "TraceAnalysis.h"

namespace {

std::string dayTrace(bool gnss) {
    std::string path =
        "/tmp/orvex-analyse-bench-" + std::to_string(getpid()) + (gnss ? "-gnss" : "") + ".csv";
    std::ofstream out(path);
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0.0, 1.0);
    out << "seconds,hPa" << (gnss ? ",gnss_alt_m" : "") << "\n";
    char row[96];
    for (int t = 0; t < 86400; ++t) {
        // Three hikes of a few hundred metres, the weather falling and rising by 8 hPa.
        double altitude = 400.0 + (t > 25200 && t < 61200 ? 350.0 * std::sin(t / 1800.0) : 0.0);
        double slp = 1013.0 + 4.0 * std::cos(t / 14000.0);
        double hPa = slp * std::pow(1.0 - altitude / 44330.0, 5.255) + 0.03 * noise(random);
        int n = gnss ? snprintf(row, sizeof row, "%d,%.3f,%.1f\n", t, hPa,
                                altitude + 5.0 * noise(random))
                     : snprintf(row, sizeof row, "%d,%.3f\n", t, hPa);
        out.write(row, n);
    }
    return path;
}

void BM_AnalyseDay(benchmark::State& state) {
    const std::string path = dayTrace(state.range(0) != 0);
    long rows = 0;
    for (auto _ : state) {
        orvex_altimeter::TraceSummary s = orvex_altimeter::TraceAnalysis::run(path, 3.0);
        if (!s.error.empty()) state.SkipWithError(s.error.c_str());
        rows += s.rows;
        benchmark::DoNotOptimize(s.ascent);
    }
    state.counters["rows/s"] =
        benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
    std::remove(path.c_str());
}
// Wall time: reading the file is part of the cost.
BENCHMARK(BM_AnalyseDay)
    ->ArgName("gnss")
    ->Arg(0)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
