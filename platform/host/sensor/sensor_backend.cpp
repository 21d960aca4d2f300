// The table of pressure back ends, the chooser that makes one from the host configuration, and the
// door every reading passes before the sensor service or the recorder sees it.
#include <glib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/host_internal.h"
#include "orvex_host/plausible.h"
#include "orvex_host/sensor_control.h"
#include "sensor/sensor_backend.h"

namespace orvex_host {
namespace sensor {
namespace {

Setting<bool> loopSetting() { return configBool("sensor_trace_loop"); }
[[maybe_unused]] const bool g_loopCheck = addConfigCheck([] { return loopSetting().problem; });

constexpr const char* kDefaultIioRoot = "/sys/bus/iio/devices";

// The only list of back ends; the first is the default.
constexpr Kind kKinds[] = {
    {"sim", "a simulated walker under the simulated weather (the default)", &makeSimBackend},
    {"iio", "a Linux IIO barometer", &makeIioBackend},
    {"trace", "replay of a CSV file of \"seconds,hPa\" rows", &makeTraceBackend},
};
constexpr int kKindCount = static_cast<int>(sizeof kKinds / sizeof kKinds[0]);

const Kind* findKind(const std::string& name) {
    for (const Kind& k : kKinds)
        if (name == k.name) return &k;
    return nullptr;
}

std::string refusal(const std::string& name) {
    if (findKind(name)) return "";
    std::string names;
    for (int i = 0; i < kKindCount; ++i)
        names += std::string(i == 0 ? "" : i == kKindCount - 1 ? " or " : ", ") + kKinds[i].name;
    return "unknown sensor back end '" + name + "' (" + names + ")";
}

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
    std::string name = configOr("sensor_backend", kKinds[0].name);
    std::string seed = configOr("sensor_seed", "1");
    std::string trace = configOr("sensor_trace", "");
    std::string loop = configOr("sensor_trace_loop", "1");
    std::string root = configOr("sensor_iio_root", kDefaultIioRoot);
    std::string key = name + '\n' + seed + '\n' + trace + '\n' + loop + '\n' + root;
    if (g_backend && key == g_key) return *g_backend;
    Settings settings{configuredSeed(), trace, loopSetting().valueOr(true), root};
    const Kind* kind = findKind(name);
    g_backend = (kind ? kind : &kKinds[0])->make(settings);
    if (!kind) g_backend->problem = refusal(name);
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

ReadResult Backend::reading(double t, Reading* out) {
    failure.clear();
    ReadResult rc = read(t, out);
    if (rc == ReadResult::kOk && !orvex_host_plausible_pressure(out->hpa)) {
        char text[160];
        snprintf(text, sizeof text, "%g hPa is outside the plausible %g to %g hPa at the sensor",
                 out->hpa, ORVEX_HOST_PRESSURE_MIN_HPA, ORVEX_HOST_PRESSURE_MAX_HPA);
        failure = text;
        rc = ReadResult::kFailed;
    }
    if (rc == ReadResult::kOk) accepted(t, *out);
    return rc;
}

double now() { return g_clock > 0.0 ? g_clock : static_cast<double>(g_get_real_time()) / 1e6; }

ReadResult readPressure(double t, Reading* out) {
    Backend& b = backend();
    if (!b.problem.empty()) return ReadResult::kFailed;
    return b.reading(t, out);
}

ReadResult readPressureAndTrend(double t, Reading* out, double* trend) {
    Backend& b = backend();
    if (!b.problem.empty()) return ReadResult::kFailed;
    ReadResult rc = b.reading(t, out);
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

extern "C" const char* orvex_host_sensor_backend_name(int index) {
    return index >= 0 && index < sensor::kKindCount ? sensor::kKinds[index].name : nullptr;
}

extern "C" const char* orvex_host_sensor_backend_summary(int index) {
    return index >= 0 && index < sensor::kKindCount ? sensor::kKinds[index].summary : nullptr;
}

extern "C" const char* orvex_host_sensor_backend_refusal(const char* name) {
    static thread_local std::string slot;
    return lendProblem(slot, sensor::refusal(name ? name : ""));
}

extern "C" int orvex_host_sensor_set_backend(const char* name) {
    if (name && !sensor::findKind(name)) return -EINVAL;
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

extern "C" const char* orvex_host_sensor_reading_problem(void) {
    static thread_local std::string slot;
    sensor::Backend& b = sensor::backend();
    return lendProblem(slot, b.problem.empty() ? b.failure : b.problem);
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
