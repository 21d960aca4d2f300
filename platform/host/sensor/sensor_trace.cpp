// The trace back end: replay of a CSV file of "seconds,hPa" rows. The replay starts at the first
// row when the back end is first read; each row holds until the next row's time has come.
#include <algorithm>
#include <cmath>
#include <vector>

#include "orvex_host/sensor_control.h"
#include "sensor/sensor_backend.h"

namespace orvex_host {
namespace sensor {
namespace {

class TraceBackend : public RecordedTrendBackend {
public:
    explicit TraceBackend(const Settings& settings) : loop_(settings.loop) {
        const std::string& path = settings.trace;
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
    // The trend sensor's look at the present must neither use up the last row nor end the
    // replay: that is the pressure listener's to see.
    double trend(double t) override {
        peeking_ = true;
        double change = RecordedTrendBackend::trend(t);
        peeking_ = false;
        return change;
    }

protected:
    ReadResult read(double t, Reading* out) override {
        if (!problem.empty()) return ReadResult::kFailed;
        if (start_ < 0) start_ = t;
        double elapsed = std::max(0.0, t - start_);
        double span = rows_.back().first - rows_.front().first;
        if (elapsed > span) {
            if (!loop_) {
                // The last row is delivered once even when no reading fell on its time.
                if (lastDelivered_) {
                    ended = ended || !peeking_;
                    return ReadResult::kEnded;
                }
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
        if (it == rows_.end() && !peeking_) lastDelivered_ = true;
        out->hpa = (it == rows_.begin() ? *it : *(it - 1)).second;
        out->celsius = 0.0;
        return ReadResult::kOk;
    }

private:
    bool loop_;
    bool peeking_ = false;
    bool lastDelivered_ = false;
    double start_ = -1.0;
    std::vector<std::pair<double, double>> rows_;
};

}  // namespace

CsvTable readTrace(const std::string& path) {
    return readCsv(path, 2, "seconds,hPa",
                   [](const std::vector<double>& row, const std::vector<double>* previous) {
                       return previous && row[0] < (*previous)[0] ? std::string("time goes back")
                                                                  : std::string();
                   });
}

std::unique_ptr<Backend> makeTraceBackend(const Settings& settings) {
    return std::make_unique<TraceBackend>(settings);
}

}  // namespace sensor
}  // namespace orvex_host

extern "C" const char* orvex_host_sensor_trace_problem(const char* path) {
    static thread_local std::string problem;
    problem = path ? orvex_host::sensor::readTrace(path).error : "no trace file given";
    return problem.empty() ? nullptr : problem.c_str();
}
