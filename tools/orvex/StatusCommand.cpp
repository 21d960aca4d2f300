// `orvex status`: what the background service is doing, from any other process.
#include <orvex_host/agent_control.h>
#include <orvex_host/location_control.h>
#include <orvex_host/sensor_control.h>

#include <cmath>
#include <ctime>
#include <iostream>

#include "AltimeterStore.h"
#include "OrvexStorageMgr.h"
#include "ServiceState.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runStatus(const Options& options, const Args& args);

const Command kStatus{
    "status", "show whether the service runs and what it did last",
    "\n\n"
    "Whether 'orvex service' runs on this data directory (and its pid), the back ends it uses,\n"
    "its last reading, the last calibration with its source (gnss, agent, service or manual)\n"
    "and when the next one is due. --json prints one object; times are seconds since the epoch.",
    runStatus};

[[maybe_unused]] const bool registered = addCommand(kStatus);

std::string when(double t) {
    if (!std::isfinite(t) || t <= 0) return "-";
    return formatTime(static_cast<long long>(t), "%Y-%m-%d %H:%M:%S");
}

void addTime(JsonLine& json, const char* key, double t) {
    if (std::isfinite(t) && t > 0)
        json.add(key, static_cast<long long>(t));
    else
        json.addNull(key);
}

int runStatus(const Options& options, const Args& args) {
    if (!args.empty()) return usageError(kStatus, "takes no arguments");
    if (!initialiseStore()) return fail("cannot create the settings store");
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    long pid = 0;
    const bool running = ServiceLock::held(&pid);
    ServiceStatus s;
    const bool published = readServiceStatus(&s);
    // Without a service, the back ends it would use.
    if (!running || !published) {
        s.sensorBackend = backendName(orvex_host_sensor_backend());
        s.locationBackend = backendName(orvex_host_location_backend());
        s.agentBackend = backendName(orvex_host_agent_backend());
        s.nextCalibration = NAN;
        s.problem.clear();
    }
    const bool autoRefresh = store->getAutoRefresh() != 0;
    // What the altimeter of the service (or of `live`) published last.
    const AltimeterState altimeter = storedState();
    const int retention = loadServiceSettings().retentionHours;
    // A reading is a float; its last digits are noise of the conversion.
    const double pressure = std::round(s.pressureHpa * 100.0) / 100.0;
    const double altitude =
        std::isfinite(pressure) ? std::round(store->getAltivalue(pressure) * 100.0) / 100.0 : NAN;
    long long calibrated = 0;
    try {
        calibrated = store->getDataCalTime();
    } catch (const std::exception&) {
    }
    const double slp = store->getDataSLP();
    const std::string source = calibrated ? calibrationSource() : "";
    // The service's own account holds only for the calibration it made.
    const bool own = calibrated != 0 && calibrated == s.calibrationTime;
    const std::string detail = own ? s.calibrationDetail : "";

    if (options.json) {
        JsonLine json;
        json.add("running", running);
        if (running && pid > 0)
            json.add("pid", static_cast<long long>(pid));
        else
            json.addNull("pid");
        json.beginObject("backends")
            .add("sensor", s.sensorBackend)
            .add("location", s.locationBackend)
            .add("agent", s.agentBackend)
            .endObject()
            .add("auto_refresh", autoRefresh)
            .add("retention_hours", retention)
            .beginObject("last_reading");
        addTime(json, "time", s.readingTime);
        json.add("pressure_hpa", pressure).add("altitude_m", altitude).endObject();
        json.beginObject("last_calibration");
        addTime(json, "time", static_cast<double>(calibrated));
        json.add("slp_hpa", slp)
            .add("source", source.empty() ? nullptr : source.c_str())
            .add("detail", detail.empty() ? nullptr : detail.c_str())
            .add("altitude_m", own ? s.calibrationAltitude : NAN)
            .add("pressure_hpa", own ? s.calibrationPressure : NAN)
            .endObject();
        addTime(json, "next_calibration", s.nextCalibration);
        json.beginObject("altimeter");
        addTime(json, "time", altimeter.time);
        json.add("mode", altimeter.mode.empty() ? nullptr : altimeter.mode.c_str())
            .add("tendency_hpa", altimeter.tendencyHpa)
            .add("tendency", altimeter.tendency.empty() ? nullptr : altimeter.tendency.c_str())
            .add("alert", altimeter.alertActive);
        addTime(json, "alert_time", altimeter.alertTime);
        json.endObject();
        json.add("problem", s.problem.empty() ? nullptr : s.problem.c_str());
        json.print();
        return 0;
    }
    std::vector<std::pair<std::string, std::string>> rows;
    rows.emplace_back("service", running ? "running (pid " + std::to_string(pid) + ") since " +
                                               when(static_cast<double>(s.started))
                                         : std::string("not running"));
    rows.emplace_back("back ends", "sensor " + s.sensorBackend + ", location " + s.locationBackend +
                                       ", agent " + s.agentBackend);
    rows.emplace_back("recorded", "the last " + std::to_string(retention) + " h are kept");
    if (std::isfinite(s.pressureHpa))
        rows.emplace_back("last reading", when(s.readingTime) + "  " +
                                              formatDouble(s.pressureHpa, 2) + " hPa  " +
                                              formatDouble(altitude, 1) + " m");
    else
        rows.emplace_back("last reading", "none yet");
    rows.emplace_back("last calibration", calibrated ? when(static_cast<double>(calibrated)) +
                                                           "  " + formatDouble(slp, 2) + " hPa" +
                                                           (source.empty() ? "" : " from " + source)
                                                     : std::string("never"));
    if (!detail.empty()) rows.emplace_back("", detail);
    rows.emplace_back("auto-refresh", !autoRefresh ? std::string("off")
                                      : running ? "on, next calibration " + when(s.nextCalibration)
                                                : std::string("on, but no service runs"));
    if (!std::isnan(altimeter.time))
        rows.emplace_back(
            "altimeter",
            when(altimeter.time) + "  " + altimeter.mode + ", " + altimeter.tendency +
                (std::isfinite(altimeter.tendencyHpa)
                     ? " (" + formatDouble(altimeter.tendencyHpa, 1) + " hPa in 3 h)"
                     : std::string()) +
                (altimeter.alertActive ? ", STORM ALERT since " + when(altimeter.alertTime)
                                       : std::string()));
    if (!s.problem.empty()) rows.emplace_back("problem", s.problem);
    printRows(rows);
    return 0;
}

}  // namespace
}  // namespace orvex_tool
