// The sim back end: a walker under the host's simulated weather.
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "core/host_internal.h"
#include "orvex_host/control.h"
#include "orvex_host/sensor_control.h"
#include "sensor/sensor_backend.h"

namespace orvex_host {
namespace sensor {
namespace {

constexpr double kTwoPi = 6.283185307179586;

uint64_t splitmix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

// Uniform in [-1, 1], fixed for a seed and a whole second.
double hashNoise(unsigned seed, long long second) {
    uint64_t h = splitmix((static_cast<uint64_t>(seed) << 32) ^ static_cast<uint64_t>(second));
    return static_cast<double>(h >> 11) / static_cast<double>(1ull << 52) - 1.0;
}

// A long climb and descent over two hours, hills of twenty minutes and short slopes, under the
// shared weather. Phases come from the seed, so a seed gives one reproducible walk.
class SimBackend : public Backend {
public:
    explicit SimBackend(unsigned seed) : seed_(seed) {
        for (int i = 0; i < 3; ++i)
            phase_[i] = kTwoPi * static_cast<double>(splitmix(seed * 3ull + i) >> 11) /
                        static_cast<double>(1ull << 53);
    }
    double altitude(double t) const {
        return 180.0 + 120.0 * std::sin(kTwoPi * t / 7200.0 + phase_[0]) +
               35.0 * std::sin(kTwoPi * t / 1300.0 + phase_[1]) +
               6.0 * std::sin(kTwoPi * t / 240.0 + phase_[2]);
    }
    double truePressure(double t) const {
        return weatherSlp(t) * std::pow(1.0 - altitude(t) / 44330.0, 5.255);
    }
    // A trend sensor compensates for the wearer's climbing; the model knows the weather itself.
    double trend(double t) override { return weatherSlp(t) - weatherSlp(t - kTrendWindow); }
    bool canBackfill() const override { return true; }

protected:
    ReadResult read(double t, Reading* out) override {
        // About 0.03 hPa of noise: a quarter of a metre, as a good barometer shows at rest.
        out->hpa = truePressure(t) + 0.03 * hashNoise(seed_, static_cast<long long>(std::floor(t)));
        out->celsius = 15.0 - 0.0065 * altitude(t);
        return ReadResult::kOk;
    }

private:
    unsigned seed_;
    double phase_[3] = {0, 0, 0};
};

SimBackend configured() {
    configStamp();  // the walk under the weather as it is now
    return SimBackend(configuredSeed());
}

}  // namespace

std::unique_ptr<Backend> makeSimBackend(const Settings& settings) {
    return std::make_unique<SimBackend>(settings.seed);
}

namespace {
Setting<long long> seedSetting() { return configInt("sensor_seed", 0, UINT_MAX); }
// A seed from the environment or the store is checked at start, like the option that sets it.
[[maybe_unused]] const bool g_seedCheck = addConfigCheck([] { return seedSetting().problem; });
}  // namespace

unsigned configuredSeed() { return static_cast<unsigned>(seedSetting().valueOr(1)); }

}  // namespace sensor
}  // namespace orvex_host

extern "C" double orvex_host_sensor_sim_altitude(double t) {
    return orvex_host::sensor::configured().altitude(t);
}

extern "C" double orvex_host_sensor_sim_pressure(double t) {
    return orvex_host::sensor::configured().truePressure(t);
}
