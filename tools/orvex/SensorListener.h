// What the sensor commands hear from the library: live readings, the trend and recorded values.
#ifndef ORVEX_TOOL_SENSOR_LISTENER_H
#define ORVEX_TOOL_SENSOR_LISTENER_H

#include <orvex_host/sensor_control.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OrvexSensor.h"
#include "Tool.h"

namespace orvex_tool {

class SensorListener : public IOrvexSensorListener {
public:
    bool onBarometricPressure(float pressure) override {
        if (onReading) onReading(pressure);
        return true;
    }
    bool onRecordedPressure(long long time, double pressure) override {
        records.emplace_back(time, pressure);
        return true;
    }
    bool onRecorderCBComplete() override {
        complete = true;
        return true;
    }
    bool onBarometricTrendIndicator(float value) override {
        trend = value;
        return true;
    }

    std::function<void(float)> onReading;
    std::vector<std::pair<long long, double>> records;
    bool complete = false;
    std::optional<float> trend;
};

// " (why)" for a text from the host, escaped for the terminal; empty for none.
inline std::string because(const char* why) {
    return why && *why ? " (" + printable(why) + ")" : "";
}

// Why the sensor back end cannot deliver, as " (why)"; empty when it can.
inline std::string backendProblemText() { return because(orvex_host_sensor_backend_problem()); }

}  // namespace orvex_tool

#endif
