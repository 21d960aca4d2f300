// The iio back end: a Linux Industrial I/O barometer. IIO reports pressure in kilopascals, either
// ready (in_pressure_input) or as raw counts with a scale and an optional offset.
#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <vector>

#include "sensor/sensor_backend.h"

namespace orvex_host {
namespace sensor {
namespace {

// A sysfs value is a number on one line; anything longer is not one.
constexpr size_t kValueCap = 64;

std::string cannotRead(const std::string& path) {
    return path + ": cannot read (" + strerror(errno) + ")";
}

// The number in a sysfs file, or why there is none. Only regular files are read, and opened so
// that a FIFO or a device put in a device file's place can neither block nor flood the reader.
std::string readValue(const std::string& path, double* value) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return cannotRead(path);
    if (!S_ISREG(st.st_mode)) return path + ": not a regular file";
    int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return cannotRead(path);
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {  // swapped since the look
        close(fd);
        return path + ": not a regular file";
    }
    char buf[kValueCap + 1];
    size_t got = 0;
    while (got < sizeof buf) {
        ssize_t n = read(fd, buf + got, sizeof buf - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            std::string why = cannotRead(path);
            close(fd);
            return why;
        }
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    close(fd);
    if (got > kValueCap) return path + ": more than " + std::to_string(kValueCap) + " bytes";
    std::string text(buf, got);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    if (text.empty()) return path + ": empty";
    char* end = nullptr;
    errno = 0;
    double v = g_ascii_strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(v))
        return path + ": '" + text + "' is not a number";
    *value = v;
    return "";
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

protected:
    ReadResult read(double, Reading* out) override {
        if (!problem.empty()) return ReadResult::kFailed;
        double kpa = 0.0;
        if (!input_.empty()) {
            failure = readValue(input_, &kpa);
        } else {
            double raw = 0.0, scale = 0.0, offset = 0.0;
            failure = readValue(raw_, &raw);
            if (failure.empty()) failure = readValue(scale_, &scale);
            if (failure.empty() && exists(offset_)) failure = readValue(offset_, &offset);
            kpa = (raw + offset) * scale;
            if (failure.empty() && !std::isfinite(kpa))
                failure = raw_ + " with its offset and scale overflows";
        }
        if (!failure.empty()) return ReadResult::kFailed;
        out->hpa = kpa * 10.0;
        double milli = 0.0;
        out->celsius = readValue(temp_, &milli).empty() ? milli / 1000.0 : 0.0;
        return ReadResult::kOk;
    }

private:
    std::string input_, raw_, scale_, offset_, temp_;
};

}  // namespace

std::unique_ptr<Backend> makeIioBackend(const Settings& settings) {
    return std::make_unique<IioBackend>(settings.iioRoot);
}

}  // namespace sensor
}  // namespace orvex_host
