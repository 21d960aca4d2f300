// The iio back end: a Linux Industrial I/O barometer. IIO reports pressure in kilopascals, either
// ready (in_pressure_input) or as raw counts with a scale and an optional offset.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "sensor/sensor_backend.h"

namespace orvex_host {
namespace sensor {
namespace {

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
    std::string input_, raw_, scale_, offset_, temp_;
};

}  // namespace

std::unique_ptr<Backend> makeIioBackend(const std::string& root) {
    return std::make_unique<IioBackend>(root);
}

}  // namespace sensor
}  // namespace orvex_host
