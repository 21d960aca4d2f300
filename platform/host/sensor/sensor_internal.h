// Pieces shared by the host's sensor service and recorder: the sensor clock and the pressure back
// ends.
#ifndef ORVEX_HOST_SENSOR_INTERNAL_H
#define ORVEX_HOST_SENSOR_INTERNAL_H

#include <string>

namespace orvex_host {
namespace sensor {

// Seconds since the epoch: the real clock, or the pinned one.
double now();

enum class ReadResult {
    kOk,
    kFailed,  // the device did not answer: an event that says the sensor is not working
    kEnded,   // a trace without looping has run out: no more events
};

struct Reading {
    double hpa = 0.0;
    double celsius = 0.0;
};

// A reading of the active back end at time t (normally now()).
ReadResult readPressure(double t, Reading* out);
// A reading and the trend of the same moment, with one look at the configuration.
ReadResult readPressureAndTrend(double t, Reading* out, double* trend);
// Change of the weather's pressure over the last three hours (hPa), from the back end's history.
double pressureTrend(double t);
// Empty when the back end can deliver; otherwise why not.
std::string backendProblem();
// Whether the back end delivered all it had (see orvex_host_sensor_ended()).
bool backendEnded();
std::string backendName();
// Only the model can say what the pressure was before we looked.
bool canBackfill();

}  // namespace sensor
}  // namespace orvex_host

#endif
