// What the background service shares with the tool's other processes: its settings and the
// calibration source in the application's preference store, its lock and its status record in the
// data directory.
#ifndef ORVEX_TOOL_SERVICE_STATE_H
#define ORVEX_TOOL_SERVICE_STATE_H

#include <cmath>
#include <string>

namespace orvex_tool {

struct ServiceSettings {
    int retentionHours = 24;
    int gnssIntervalMinutes = 60;
    int agentIntervalMinutes = 180;
};

// The stored settings, defaults where none (or a value out of range) is stored.
ServiceSettings loadServiceSettings();
// name: "retention-hours" (1 to 168), "gnss-interval" or "agent-interval" (minutes, 1 to 10080).
// Empty on success, else the one-line reason.
std::string saveServiceSetting(const std::string& name, int value);
extern const char* const kServiceSettingsUsage;

// Which source made the calibration now in the store: "gnss", "agent", "service" or "manual".
// Called right after the calibration is stored; the note holds for that calibration time only.
void noteCalibrationSource(const char* source);
// The source of the stored calibration, empty when something else made it.
std::string calibrationSource();

// The service's exclusive hold on the data directory: a lock file (flock) holding its pid.
class ServiceLock {
public:
    ServiceLock() = default;
    ~ServiceLock();
    ServiceLock(const ServiceLock&) = delete;
    ServiceLock& operator=(const ServiceLock&) = delete;

    // False when another process holds it (*holder: its pid, 0 when unknown) or the file cannot
    // be made (*error).
    bool acquire(long* holder, std::string* error);

    // Whether a service holds the lock of this data directory now, and its pid.
    static bool held(long* pid);

private:
    int fd_ = -1;
};

// A back end's name as the host gives it; "unknown" for none (an environment naming none).
std::string backendName(const char* name);

struct ServiceStatus {
    long pid = 0;
    long long started = 0;
    std::string sensorBackend, locationBackend, agentBackend;
    double readingTime = NAN, pressureHpa = NAN;  // the last valid reading
    double nextCalibration = NAN;                 // NAN: none planned
    std::string problem;                          // an outage going on, empty without
    // The service's own account of the calibration it made at calibrationTime.
    long long calibrationTime = 0;
    std::string calibrationDetail;
    double calibrationAltitude = NAN, calibrationPressure = NAN;  // of a GNSS calibration
};

// Replaces the record at once (a reader sees the old or the new one). It is not synced to disk:
// it describes a running process and is worth nothing after a crash.
bool writeServiceStatus(const ServiceStatus& status);
bool readServiceStatus(ServiceStatus* status);

}  // namespace orvex_tool

#endif
