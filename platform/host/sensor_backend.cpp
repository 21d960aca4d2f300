// Where the host's pressure comes from: the walker model, a Linux IIO barometer or a replayed
// trace.
#include <dirent.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <utility>
#include <vector>

#include "csv_reader.h"
#include "host_internal.h"
#include "orvex_host/control.h"
#include "orvex_host/sensor_control.h"
#include "sensor_internal.h"

namespace orvex_host {
namespace sensor {
namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kTrendWindow = 3.0 * 3600.0;
constexpr const char* kDefaultIioRoot = "/sys/bus/iio/devices";

double g_clock = 0.0;  // <= 0: the real clock

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

class Backend {
public:
    virtual ~Backend() = default;
    virtual ReadResult read(double t, Reading* out) = 0;
    virtual double trend(double t) = 0;
    std::string problem;
};

// Readings of this process, for back ends that cannot look into the past.
class History {
public:
    void add(double t, double hpa) {
        if (!samples_.empty() && t < samples_.back().first) samples_.clear();  // clock went back
        samples_.emplace_back(t, hpa);
        while (!samples_.empty() && samples_.front().first < t - kTrendWindow) samples_.pop_front();
    }
    bool has(double t) const { return !samples_.empty() && samples_.back().first == t; }
    double trend() const {
        return samples_.size() < 2 ? 0.0 : samples_.back().second - samples_.front().second;
    }

private:
    std::deque<std::pair<double, double>> samples_;
};

// A back end that only knows the present: the trend comes from the readings this process made.
// read() must add each reading to history_.
class RecordedTrendBackend : public Backend {
public:
    double trend(double t) override {
        // The pressure event of the same moment has read the device already.
        Reading r;
        if (!history_.has(t)) read(t, &r);
        return history_.trend();
    }

protected:
    History history_;
};

// A walker: a long climb and descent over two hours, hills of twenty minutes and short slopes,
// under the shared weather. Phases come from the seed, so a seed gives one reproducible walk.
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
        return orvex_host_weather_slp(t) * std::pow(1.0 - altitude(t) / 44330.0, 5.255);
    }
    ReadResult read(double t, Reading* out) override {
        // About 0.03 hPa of noise: a quarter of a metre, as a good barometer shows at rest.
        out->hpa = truePressure(t) + 0.03 * hashNoise(seed_, static_cast<long long>(std::floor(t)));
        out->celsius = 15.0 - 0.0065 * altitude(t);
        return ReadResult::kOk;
    }
    // A trend sensor compensates for the wearer's climbing; the model knows the weather itself.
    double trend(double t) override {
        return orvex_host_weather_slp(t) - orvex_host_weather_slp(t - kTrendWindow);
    }

private:
    unsigned seed_;
    double phase_[3] = {0, 0, 0};
};

bool readNumber(const std::string& path, double* value) {
    FILE* f = fopen(path.c_str(), "re");
    if (!f) return false;
    char buf[64] = {0};
    size_t n = fread(buf, 1, sizeof buf - 1, f);
    fclose(f);
    if (n == 0) return false;
    buf[n] = '\0';
    char* end = nullptr;
    errno = 0;
    double v = strtod(buf, &end);
    if (end == buf || errno == ERANGE || !std::isfinite(v)) return false;
    while (*end == '\n' || *end == ' ') ++end;
    if (*end != '\0') return false;
    *value = v;
    return true;
}

bool exists(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

// IIO reports pressure in kilopascals, either ready (in_pressure_input) or as raw counts with a
// scale and an optional offset.
class IioBackend : public RecordedTrendBackend {
public:
    explicit IioBackend(const std::string& root) {
        DIR* dir = opendir(root.c_str());
        if (!dir) {
            problem = "cannot open the IIO device directory " + root;
            return;
        }
        std::vector<std::string> names;
        while (dirent* e = readdir(dir))
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        closedir(dir);
        std::sort(names.begin(), names.end());
        for (const auto& name : names) {
            std::string dev = root + "/" + name + "/";
            for (const char* channel : {"in_pressure", "in_pressure0"}) {
                std::string base = dev + channel;
                if (exists(base + "_input")) {
                    input_ = base + "_input";
                } else if (exists(base + "_raw") &&
                           (exists(base + "_scale") || exists(dev + "in_pressure_scale"))) {
                    raw_ = base + "_raw";
                    scale_ = exists(base + "_scale") ? base + "_scale" : dev + "in_pressure_scale";
                    offset_ = base + "_offset";
                } else {
                    continue;
                }
                temp_ = dev + "in_temp_input";
                device_ = dev;
                return;
            }
        }
        problem = "no IIO pressure device under " + root;
    }
    ReadResult read(double t, Reading* out) override {
        if (!problem.empty()) return ReadResult::kFailed;
        double kpa = 0.0;
        if (!input_.empty()) {
            if (!readNumber(input_, &kpa)) return ReadResult::kFailed;
        } else {
            double raw = 0.0, scale = 0.0, offset = 0.0;
            if (!readNumber(raw_, &raw) || !readNumber(scale_, &scale)) return ReadResult::kFailed;
            if (exists(offset_) && !readNumber(offset_, &offset)) return ReadResult::kFailed;
            kpa = (raw + offset) * scale;
        }
        out->hpa = kpa * 10.0;
        double milli = 0.0;
        out->celsius = readNumber(temp_, &milli) ? milli / 1000.0 : 0.0;
        history_.add(t, out->hpa);
        return ReadResult::kOk;
    }

private:
    std::string device_, input_, raw_, scale_, offset_, temp_;
};

}  // namespace

CsvTable readTrace(const std::string& path) {
    return readCsv(path, 2, "seconds,hPa",
                   [](const std::vector<double>& row, const std::vector<double>* previous) {
                       return previous && row[0] < (*previous)[0] ? std::string("time goes back")
                                                                  : std::string();
                   });
}

namespace {

// "seconds,hPa" rows; the replay starts at the first row when the back end is first read.
class TraceBackend : public RecordedTrendBackend {
public:
    TraceBackend(const std::string& path, bool loop) : loop_(loop) {
        if (path.empty()) {
            problem = "no trace file configured (sensor_trace)";
            return;
        }
        CsvTable table = readTrace(path);
        if (!table.error.empty()) {
            problem = table.error;
            return;
        }
        for (const auto& row : table.rows) rows_.emplace_back(row[0], row[1]);
    }
    ReadResult read(double t, Reading* out) override {
        if (!problem.empty()) return ReadResult::kFailed;
        if (start_ < 0) start_ = t;
        double elapsed = t - start_;
        double span = rows_.back().first - rows_.front().first;
        if (elapsed < 0) elapsed = 0;
        if (elapsed > span) {
            if (!loop_) {
                // The last row is delivered once even when no reading fell on its time.
                if (lastDelivered_) return ReadResult::kEnded;
                elapsed = span;
            } else {
                // One row's worth of pause at the end, so that a loop does not repeat the last
                // row's time as the first one's.
                double period = span + (rows_.size() > 1 ? span / (rows_.size() - 1) : 1.0);
                elapsed = std::fmod(elapsed, period);
            }
        }
        double at = rows_.front().first + elapsed;
        auto it = std::upper_bound(
            rows_.begin(), rows_.end(), at,
            [](double v, const std::pair<double, double>& r) { return v < r.first; });
        if (it == rows_.end()) lastDelivered_ = true;
        out->hpa = (it == rows_.begin() ? *it : *(it - 1)).second;
        out->celsius = 0.0;
        history_.add(t, out->hpa);
        return ReadResult::kOk;
    }

private:
    bool loop_;
    bool lastDelivered_ = false;
    double start_ = -1.0;
    std::vector<std::pair<double, double>> rows_;
};

std::string g_key;
std::unique_ptr<Backend> g_backend;
std::string g_name;
std::string g_problemCopy;

std::string configOr(const char* key, const char* fallback) {
    auto v = config(key);
    return v ? *v : fallback;
}

unsigned seedOf(const std::string& text) {
    char* end = nullptr;
    unsigned long v = strtoul(text.c_str(), &end, 10);
    return end != text.c_str() ? static_cast<unsigned>(v) : 1u;
}

// Rebuilt whenever the host configuration behind it changes, so that a test or the tool can
// switch back ends between two events.
Backend& backend() {
    std::string name = configOr("sensor_backend", "sim");
    std::string seed = configOr("sensor_seed", "1");
    std::string trace = configOr("sensor_trace", "");
    std::string loop = configOr("sensor_trace_loop", "1");
    std::string root = configOr("sensor_iio_root", kDefaultIioRoot);
    std::string key = name + '\n' + seed + '\n' + trace + '\n' + loop + '\n' + root;
    if (!g_backend || key != g_key) {
        if (name == "iio")
            g_backend = std::make_unique<IioBackend>(root);
        else if (name == "trace")
            g_backend = std::make_unique<TraceBackend>(trace, loop != "0");
        else if (name == "sim")
            g_backend = std::make_unique<SimBackend>(seedOf(seed));
        else {
            g_backend = std::make_unique<SimBackend>(seedOf(seed));
            g_backend->problem = "unknown sensor back end '" + name + "' (sim, iio or trace)";
        }
        g_name = name;
        g_key = key;
    }
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

double pressureTrend(double t) {
    Backend& b = backend();
    return b.problem.empty() ? b.trend(t) : 0.0;
}

std::string backendProblem() { return backend().problem; }

std::string backendName() {
    backend();
    return g_name;
}

bool canBackfill() {
    Backend& b = backend();
    return b.problem.empty() && dynamic_cast<SimBackend*>(&b) != nullptr;
}

}  // namespace sensor
}  // namespace orvex_host

using namespace orvex_host;

namespace {

int setOrClear(const char* key, const char* value) {
    std::optional<std::string> v;
    if (value) v = value;
    return setConfig(key, v) ? 0 : -EIO;
}

}  // namespace

extern "C" int orvex_host_sensor_set_backend(const char* name) {
    if (name && strcmp(name, "sim") != 0 && strcmp(name, "iio") != 0 && strcmp(name, "trace") != 0)
        return -EINVAL;
    return setOrClear("sensor_backend", name);
}

extern "C" const char* orvex_host_sensor_backend(void) {
    static std::string copy;
    copy = sensor::backendName();
    return copy.c_str();
}

extern "C" const char* orvex_host_sensor_backend_problem(void) {
    sensor::g_problemCopy = sensor::backendProblem();
    return sensor::g_problemCopy.empty() ? nullptr : sensor::g_problemCopy.c_str();
}

extern "C" int orvex_host_sensor_set_seed(unsigned int seed) {
    return setOrClear("sensor_seed", std::to_string(seed).c_str());
}

extern "C" int orvex_host_sensor_set_trace(const char* path, int loop) {
    if (int rc = setOrClear("sensor_trace", path); rc != 0) return rc;
    return setOrClear("sensor_trace_loop", loop ? "1" : "0");
}

extern "C" int orvex_host_sensor_set_iio_root(const char* path) {
    return setOrClear("sensor_iio_root", path);
}

extern "C" void orvex_host_sensor_set_clock(double t) { sensor::g_clock = t > 0.0 ? t : 0.0; }

extern "C" double orvex_host_sensor_now(void) { return sensor::now(); }

extern "C" double orvex_host_sensor_sim_altitude(double t) {
    auto seed = config("sensor_seed");
    return sensor::SimBackend(seed ? sensor::seedOf(*seed) : 1u).altitude(t);
}

extern "C" double orvex_host_sensor_sim_pressure(double t) {
    auto seed = config("sensor_seed");
    return sensor::SimBackend(seed ? sensor::seedOf(*seed) : 1u).truePressure(t);
}
