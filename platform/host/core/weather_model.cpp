// The host's simulated weather: one sea-level pressure over time, shared by the simulated pressure
// sensor and the weather-agent simulator.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>

#include "core/host_internal.h"
#include "orvex_host/control.h"
#include "orvex_host/plausible.h"

namespace {

constexpr double kStandardSlp = 1013.25;
constexpr double kTwoPi = 6.283185307179586;

// Slow weather systems: a front every few days plus a smaller swing within the day. Smooth, so
// that six hours of recording show a plausible trend and a calibration stays good for an hour.
double modelSlp(double t) {
    return kStandardSlp + 9.0 * std::sin(kTwoPi * t / (4.0 * 86400.0)) +
           2.5 * std::sin(kTwoPi * t / (17.0 * 3600.0) + 1.3);
}

// A pinned pressure is one the simulated sensor can report.
orvex_host::Setting<double> pinnedSetting() {
    return orvex_host::configDouble("weather_slp", ORVEX_HOST_PRESSURE_MIN_HPA,
                                    ORVEX_HOST_PRESSURE_MAX_HPA);
}

[[maybe_unused]] const bool g_check =
    orvex_host::addConfigCheck([] { return pinnedSetting().problem; });

// A pinned pressure ("weather_slp"), read again only when the configuration changed: the
// simulated sensor asks several times per event.
std::optional<double> pinnedSlp(const orvex_host::ConfigStamp& stamp) {
    static std::mutex mutex;
    static orvex_host::ConfigStamp seen;
    static std::optional<double> pinned;
    std::lock_guard<std::mutex> lock(mutex);
    if (!(stamp == seen)) {
        seen = stamp;
        pinned.reset();
        pinned = pinnedSetting().value;
    }
    return pinned;
}

}  // namespace

double orvex_host::weatherSlp(double t) {
    return pinnedSlp(lastConfigStamp()).value_or(modelSlp(t));
}

extern "C" double orvex_host_weather_slp(double t) {
    return pinnedSlp(orvex_host::configStamp()).value_or(modelSlp(t));
}

extern "C" int orvex_host_weather_set_slp(double slp) {
    std::optional<std::string> value;
    if (slp > 0.0) {
        if (!orvex_host_plausible_pressure(slp)) return -EINVAL;
        char buf[64];
        snprintf(buf, sizeof buf, "%.17g", slp);
        value = buf;
    }
    return orvex_host::saveConfig("weather_slp", value);
}
