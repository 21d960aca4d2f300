// Chooses the pressure back end from the host configuration and gives the sensor service its
// readings.
#include <glib.h>

#include <cerrno>
#include <cstring>

#include "core/host_internal.h"
#include "orvex_host/sensor_control.h"
#include "sensor/sensor_backend.h"

namespace orvex_host {
namespace sensor {
namespace {

constexpr const char* kDefaultIioRoot = "/sys/bus/iio/devices";

double g_clock = 0.0;  // <= 0: the real clock

std::unique_ptr<Backend> g_backend;
std::string g_name;
std::string g_key;  // the configuration g_backend was made from
ConfigStamp g_stamp;

std::string configOr(const char* key, const char* fallback) {
    auto v = config(key);
    return v ? *v : fallback;
}

// Built again only when the configuration behind it changed, so that a test or the tool can switch
// back ends between two events while a reading costs one cheap check.
Backend& backend() {
    ConfigStamp stamp = configStamp();
    if (g_backend && stamp == g_stamp) return *g_backend;
    g_stamp = stamp;
    std::string name = configOr("sensor_backend", "sim");
    std::string seed = configOr("sensor_seed", "1");
    std::string trace = configOr("sensor_trace", "");
    std::string loop = configOr("sensor_trace_loop", "1");
    std::string root = configOr("sensor_iio_root", kDefaultIioRoot);
    std::string key = name + '\n' + seed + '\n' + trace + '\n' + loop + '\n' + root;
    if (g_backend && key == g_key) return *g_backend;
    if (name == "iio") {
        g_backend = makeIioBackend(root);
    } else if (name == "trace") {
        g_backend = makeTraceBackend(trace, configBool("sensor_trace_loop").valueOr(true));
    } else {
        g_backend = makeSimBackend(configuredSeed());
        if (name != "sim")
            g_backend->problem = "unknown sensor back end '" + name + "' (sim, iio or trace)";
    }
    g_name = name;
    g_key = key;
    return *g_backend;
}

void resetBackends() {
    g_backend.reset();
    g_key.clear();
    g_clock = 0.0;
}

[[maybe_unused]] const bool g_registered = onReset(&resetBackends);

}  // namespace

double now() { return g_clock > 0.0 ? g_clock : static_cast<double>(g_get_real_time()) / 1e6; }

ReadResult readPressure(double t, Reading* out) {
    Backend& b = backend();
    if (!b.problem.empty()) return ReadResult::kFailed;
    return b.read(t, out);
}

ReadResult readPressureAndTrend(double t, Reading* out, double* trend) {
    Backend& b = backend();
    if (!b.problem.empty()) return ReadResult::kFailed;
    ReadResult rc = b.read(t, out);
    if (rc == ReadResult::kOk) *trend = b.trend(t);
    return rc;
}

double pressureTrend(double t) {
    Backend& b = backend();
    return b.problem.empty() ? b.trend(t) : 0.0;
}

std::string backendProblem() { return backend().problem; }

bool backendEnded() { return backend().ended; }

std::string backendName() {
    backend();
    return g_name;
}

bool canBackfill() {
    Backend& b = backend();
    return b.problem.empty() && b.canBackfill();
}

}  // namespace sensor
}  // namespace orvex_host

using namespace orvex_host;

extern "C" int orvex_host_sensor_set_backend(const char* name) {
    if (name && strcmp(name, "sim") != 0 && strcmp(name, "iio") != 0 && strcmp(name, "trace") != 0)
        return -EINVAL;
    return saveConfig("sensor_backend", name);
}

extern "C" const char* orvex_host_sensor_backend(void) {
    static std::string copy;
    copy = sensor::backendName();
    return copy.c_str();
}

extern "C" const char* orvex_host_sensor_backend_problem(void) {
    static thread_local std::string slot;
    return lendProblem(slot, sensor::backendProblem());
}

extern "C" int orvex_host_sensor_ended(void) { return sensor::backendEnded() ? 1 : 0; }

extern "C" int orvex_host_sensor_set_seed(unsigned int seed) {
    return saveConfig("sensor_seed", std::to_string(seed));
}

extern "C" int orvex_host_sensor_set_trace(const char* path, int loop) {
    if (int rc = saveConfig("sensor_trace", path); rc != 0) return rc;
    return saveConfig("sensor_trace_loop", loop ? "1" : "0");
}

extern "C" int orvex_host_sensor_set_iio_root(const char* path) {
    return saveConfig("sensor_iio_root", path);
}

extern "C" void orvex_host_sensor_set_clock(double t) { sensor::g_clock = t > 0.0 ? t : 0.0; }

extern "C" double orvex_host_sensor_now(void) { return sensor::now(); }
