// Cost of the host platform's hot paths: a stored-pressure read, a key read, one sensor reading and
// the library's altitude from the stored sea-level pressure.
//
//   orvex_host_bench [benchmark flags]   Google Benchmark timings
//   orvex_host_bench --run OP N          runs OP N times and nothing else, for callgrind and strace
//                                        (OP: pref, key, sensor, altitude, live)
#include <benchmark/benchmark.h>
#include <orvex_host/control.h>
#include <orvex_host/key_storage_control.h>
#include <orvex_host/sensor_control.h>
#include <platform/app_preference.h>
#include <platform/key_storage.h>
#include <platform/sensor.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "OrvexStorageMgr.h"

namespace {

sensor_listener_h g_listener = nullptr;
sensor_listener_h g_trendListener = nullptr;

void setUp() {
    setenv("ORVEX_HOST_LOG_LEVEL", "silent", 1);
    orvex_host_reset();
    preference_set_double("bench_pressure", 1013.25);
    orvex_host_key_set("bench_key", "0123456789abcdef0123456789abcdef");
    OrvexStorageMgr::getInstance()->initStorage();
    orvex_host_sensor_set_backend("sim");
    orvex_host_sensor_set_generating(0);
    sensor_h sensor = nullptr;
    sensor_get_default_sensor(SENSOR_PRESSURE, &sensor);
    sensor_create_listener(sensor, &g_listener);
    sensor_get_default_sensor(SENSOR_PRESSURE_TREND, &sensor);
    sensor_create_listener(sensor, &g_trendListener);
}

// One operation each; every one checks its result so that a failing path cannot look cheap.
bool readPreference() {
    double v = 0;
    return preference_get_double("bench_pressure", &v) == PREFERENCE_ERROR_NONE && v > 0;
}

bool readKey() {
    char* value = nullptr;
    if (key_storage_get("bench_key", &value) != KEY_STORAGE_ERROR_NONE) return false;
    free(value);
    return true;
}

bool readSensor() {
    sensor_event_s event;
    return sensor_listener_read_data(g_listener, &event) == SENSOR_ERROR_NONE &&
           event.values[0] > 0;
}

bool altitude() { return OrvexStorageMgr::getInstance()->getAltivalue(1000.0) > 0; }

// What `orvex live` does for each reading: a pressure and a trend event and the altitude.
bool liveReading() {
    sensor_event_s pressure, trend;
    return sensor_listener_read_data(g_listener, &pressure) == SENSOR_ERROR_NONE &&
           sensor_listener_read_data(g_trendListener, &trend) == SENSOR_ERROR_NONE &&
           OrvexStorageMgr::getInstance()->getAltivalue(pressure.values[0]) > -1000.0;
}

const std::map<std::string, bool (*)()>& operations() {
    static const std::map<std::string, bool (*)()> ops = {{"pref", readPreference},
                                                          {"key", readKey},
                                                          {"sensor", readSensor},
                                                          {"altitude", altitude},
                                                          {"live", liveReading}};
    return ops;
}

void run(benchmark::State& state, bool (*op)()) {
    for (auto _ : state)
        if (!op()) state.SkipWithError("the operation failed");
}

BENCHMARK_CAPTURE(run, preference_get_double, readPreference);
BENCHMARK_CAPTURE(run, key_storage_get, readKey);
BENCHMARK_CAPTURE(run, sensor_reading, readSensor);
BENCHMARK_CAPTURE(run, getAltivalue, altitude);
BENCHMARK_CAPTURE(run, live_reading, liveReading);

}  // namespace

int main(int argc, char** argv) {
    setUp();
    if (argc == 4 && strcmp(argv[1], "--run") == 0) {
        auto it = operations().find(argv[2]);
        long n = strtol(argv[3], nullptr, 10);
        if (it == operations().end() || n < 0) {
            std::cerr << "usage: orvex_host_bench --run pref|key|sensor|altitude|live N\n";
            return 2;
        }
        for (long i = 0; i < n; ++i)
            if (!it->second()) {
                std::cerr << argv[2] << " failed\n";
                return 1;
            }
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    OrvexStorageMgr::deleteInstance();
    return 0;
}
