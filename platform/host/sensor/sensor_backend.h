// The pressure back ends behind the host's sensor service and what they share. One back end per
// file (sensor_sim.cpp, sensor_iio.cpp, sensor_trace.cpp); the table in sensor_backend.cpp is the
// only list of them.
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

// The host configuration a back end is made from; each reads what it needs.
struct Settings {
    unsigned seed = 1;    // sensor_seed
    std::string trace;    // sensor_trace
    bool loop = true;     // sensor_trace_loop
    std::string iioRoot;  // sensor_iio_root
};

class Backend {
public:
    virtual ~Backend() = default;
    // The one door of every reading: what the device gave, when it is a pressure a barometer can
    // read; otherwise kFailed, with the reason in failure.
    ReadResult reading(double t, Reading* out);
    virtual double trend(double t) = 0;
    // Whether the back end can say what the pressure was before it was first read.
    virtual bool canBackfill() const { return false; }
    std::string problem;  // empty when the back end can deliver
    std::string failure;  // why the newest reading failed; empty when it did not
    bool ended = false;   // it delivered all it had (a trace that does not loop)

protected:
    // The device's answer; sets failure when it returns kFailed.
    virtual ReadResult read(double t, Reading* out) = 0;
    // A reading that passed the door.
    virtual void accepted(double, const Reading&) {}
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
class RecordedTrendBackend : public Backend {
public:
    double trend(double t) override {
        // The pressure event of the same moment has read the device already.
        Reading r;
        if (!history_.has(t)) reading(t, &r);
        return history_.trend();
    }

protected:
    void accepted(double t, const Reading& r) override { history_.add(t, r.hpa); }
    History history_;
};

// A row of the back ends' table: the name the configuration and the tool use, one line on what it
// reads, and how to make it.
struct Kind {
    const char* name;
    const char* summary;
    std::unique_ptr<Backend> (*make)(const Settings&);
};

std::unique_ptr<Backend> makeSimBackend(const Settings& settings);
std::unique_ptr<Backend> makeIioBackend(const Settings& settings);
std::unique_ptr<Backend> makeTraceBackend(const Settings& settings);

// The rows of a trace file ("seconds,hPa", times that do not go back), or why it cannot be used.
CsvTable readTrace(const std::string& path);

// The sim back end's configured seed (1 when there is none or it is not one).
unsigned configuredSeed();

}  // namespace sensor
}  // namespace orvex_host

#endif
