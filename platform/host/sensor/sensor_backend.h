// The pressure back ends behind the host's sensor service and what they share. One back end per
// file: sensor_sim.cpp, sensor_iio.cpp, sensor_trace.cpp; sensor_backend.cpp chooses among them.
#ifndef ORVEX_HOST_SENSOR_BACKEND_H
#define ORVEX_HOST_SENSOR_BACKEND_H

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "core/csv_reader.h"
#include "sensor/sensor_internal.h"

namespace orvex_host {
namespace sensor {

constexpr double kTrendWindow = 3.0 * 3600.0;

class Backend {
public:
    virtual ~Backend() = default;
    virtual ReadResult read(double t, Reading* out) = 0;
    virtual double trend(double t) = 0;
    // Whether the back end can say what the pressure was before it was first read.
    virtual bool canBackfill() const { return false; }
    std::string problem;  // empty when the back end can deliver
    bool ended = false;   // it delivered all it had (a trace that does not loop)
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

std::unique_ptr<Backend> makeSimBackend(unsigned seed);
std::unique_ptr<Backend> makeIioBackend(const std::string& root);
std::unique_ptr<Backend> makeTraceBackend(const std::string& path, bool loop);

// The rows of a trace file ("seconds,hPa", times that do not go back), or why it cannot be used.
CsvTable readTrace(const std::string& path);

// The sim back end's configured seed (1 when there is none or it is not one).
unsigned configuredSeed();

}  // namespace sensor
}  // namespace orvex_host

#endif
