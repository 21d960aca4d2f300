// Calibration of the sea-level pressure: from the weather agent, a weather service or a known
// altitude.
#include <glib.h>
#include <orvex_host/control.h>
#include <orvex_host/plausible.h>
#include <platform/app_preference.h>
#include <platform/key_storage.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <string>
#include <vector>

#include "AgentBackend.h"
#include "HistoryText.h"
#include "OrvexAltitudeMgr.h"
#include "OrvexLocationMgr.h"
#include "OrvexStorageMgr.h"
#include "ServiceState.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runCalibrate(const Options& options, const Args& args);

const Command kCalibrate{
    "calibrate", "calibrate the sea-level pressure",
    "agent [--timeout SECONDS]\n"
    "       orvex calibrate service [LATITUDE LONGITUDE] [--timeout SECONDS]\n"
    "       orvex calibrate manual ALTITUDE_M PRESSURE_HPA\n\n"
    "agent:   ask the platform's weather agent for the sea-level pressure (default time-out 10 "
    "s)\n"
    "service: ask The Weather Company (with its key stored) or AccuWeather for the position, "
    "or\n"
    "         for the location service's position when none is given (default time-out 15 s)\n"
    "manual:  derive it from a pressure measured at a known altitude\n"
    "Either way the new value is stored with the time of calibration and a history entry. "
    "Only\n"
    "a plausible sea-level pressure (850 to 1100 hPa) counts as a calibration.",
    runCalibrate};
[[maybe_unused]] const bool registered = addCommand(kCalibrate);

int printCalibration(const Options& options, OrvexStorageMgr* store, const char* source) {
    double slp = store->getDataSLP();
    long long when = storedCalibrationTime(store);
    if (options.json) {
        JsonLine()
            .add("source", source)
            .add("slp_hpa", slp)
            .add("calibrated_at", when)
            .add("history_entries", static_cast<int>(storedHistory(store).size()))
            .print();
    } else {
        printRows({{"source", source},
                   {"sea-level pressure", formatDouble(slp, 2) + " hPa"},
                   {"calibrated at", calibrationTimeText(when)},
                   {"history entries", std::to_string(storedHistory(store).size())}});
    }
    return 0;
}

// A calibration as the application stores it: the value, its time and a history entry, whole or
// not at all. The library reports only the first write; the store tells whether the other two
// went through, and what was written is put back when one did not. Empty when it is stored.
std::string storeCalibration(OrvexStorageMgr* store, double slp, long long when) {
    const double slpBefore = store->getDataSLP();
    char* text = nullptr;
    const int timeRead = preference_get_string("ORVEX_DATA_CALIBRATE_TIME", &text);
    const std::string timeBefore = text ? text : "";
    free(text);
    text = store->getDataSLPHistory();
    const std::string historyBefore = text ? text : "";
    free(text);
    if (int rc = store->saveDataSLP(slp); rc != 0)
        return "the sea-level pressure was not stored: " + storeProblem(rc);
    store->saveDataCalTime(when);
    store->addDataSLPHistory(when, slp);
    text = store->getDataSLPHistory();
    const bool inHistory = text && strstr(text, std::to_string(when).c_str());
    free(text);
    if (!orvex_host_store_problem() && storedCalibrationTime(store) == when && inHistory) return "";
    const std::string why = storeProblem();
    store->saveDataSLP(slpBefore);
    if (timeRead == PREFERENCE_ERROR_NONE)
        preference_set_string("ORVEX_DATA_CALIBRATE_TIME", timeBefore.c_str());
    store->saveDataSLPHistory(historyBefore);
    return "the calibration was not stored whole (" + why + "); the earlier one stays";
}

int calibrateFromAgent(const Options& options, const Args& args, guint timeoutMs) {
    if (args.size() != 1) return usageError(kCalibrate, "expected: agent [--timeout SECONDS]");
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    const AgentCalibration result = orvex_tool::calibrateFromAgent(store, timeoutMs);
    if (result.end == AgentCalibration::End::Interrupted) return interruptedExit();
    if (result.end == AgentCalibration::End::Failed) return fail(result.message);
    noteCalibrationSource("agent");
    return printCalibration(options, store, "weather agent");
}

class ServiceListener : public OrvexAltitudeMgrEvent {
public:
    void OnWeatherDataCompleted(std::tr1::shared_ptr<WeatherData> d) override {
        data = d;
        answered = true;
    }
    void OnWeatherDataFailed() override { answered = true; }
    std::tr1::shared_ptr<WeatherData> data;
    bool answered = false;
};

struct PositionWaiter : IOrvexLocationListener {
    void onLocationStateChanged(int state) override { up = up || state == 1; }
    void onLocationEnableResult(int state) override { refused = refused || state == 0; }
    bool up = false;
    bool refused = false;
};

// The location service's position, waiting at most five seconds for the service to come up.
WaitEnd positionFromLocationService(guint timeoutMs, double* lat, double* lon) {
    OrvexLocationMgr* mgr = OrvexLocationMgr::getInstance();
    if (!mgr) return WaitEnd::TimedOut;
    PositionWaiter waiter;
    int rc = mgr->isLocationEnabled() ? mgr->createLocationMgr(&waiter)
                                      : mgr->onLocationsetting(&waiter);
    WaitEnd end = WaitEnd::TimedOut;
    double alt = 0;
    if (rc == 0) {
        end = waitFor([&] { return waiter.up || waiter.refused; }, std::min(timeoutMs, 5000u));
        if (end != WaitEnd::Interrupted)
            end = mgr->getCurrentPosition(lat, lon, &alt) == 0 ? WaitEnd::Done : WaitEnd::TimedOut;
    }
    OrvexLocationMgr::deleteInstance();
    return end;
}

// A key store that refuses to hand out keys would make the request go out without one.
int checkKeyStore() {
    for (const char* alias : {"twc_api_key", "orvex_accueweather_api_key"}) {
        char* key = nullptr;
        int rc = key_storage_get(alias, &key);
        free(key);
        if (rc == KEY_STORAGE_ERROR_PERMISSION_DENIED)
            return fail(
                "the key store refuses to hand out API keys (is keys.db readable by others?)");
        if (rc < 0 && rc != KEY_STORAGE_ERROR_NO_SUCH_ALIAS)
            return fail("the key store cannot read '" + std::string(alias) + "' (error " +
                        std::to_string(rc) + ")");
    }
    return 0;
}

int calibrateFromService(const Options& options, const Args& args, guint timeoutMs) {
    double lat = 0, lon = 0;
    const size_t positional = args.size() - 1;
    double coords[2];
    for (size_t i = 0; i < positional; ++i)
        if (positional > 2 || !parseDouble(args[i + 1], &coords[i]))
            return usageError(kCalibrate, "expected: service [LATITUDE LONGITUDE] [--timeout S]");
    if (positional == 1) return usageError(kCalibrate, "give both latitude and longitude");
    if (positional == 2) {
        lat = coords[0];
        lon = coords[1];
        if (lat < -90 || lat > 90 || lon < -180 || lon > 180)
            return fail("latitude is -90 to 90 and longitude -180 to 180");
    }
    if (int rc = checkKeyStore(); rc != 0) return rc;
    if (positional == 0) {
        WaitEnd end = positionFromLocationService(timeoutMs, &lat, &lon);
        if (end == WaitEnd::Interrupted) return interruptedExit();
        if (end == WaitEnd::TimedOut)
            return fail("the location service has no position; give LATITUDE LONGITUDE");
    }

    OrvexAltitudeMgr* mgr = OrvexAltitudeMgr::getInstance();
    if (!mgr) return fail("out of memory");
    ServiceListener listener;
    mgr->SetEventListener(&listener);
    mgr->Request(lat, lon, static_cast<double>(timeoutMs));
    // The manager ends a timed-out request silently; this wakes the tool a little later.
    guint wakeMs = timeoutMs > G_MAXUINT - 200 ? G_MAXUINT : timeoutMs + 200;
    WaitEnd end = waitFor([&] { return listener.answered; }, wakeMs);
    OrvexAltitudeMgr::deleteInstance();
    if (end == WaitEnd::Interrupted) return interruptedExit();
    if (end == WaitEnd::TimedOut)
        return fail("the weather service did not answer within " + secondsText(timeoutMs) + " s");
    if (!listener.data)
        return fail("the weather service could not be reached or gave no usable answer");
    const WeatherData& d = *listener.data;
    if (d.pressure <= 0) return fail("the weather service's answer holds no sea-level pressure");
    if (!orvex_host_plausible_slp(d.pressure))
        return fail(implausibleSlp("the weather service's sea-level pressure", d.pressure) +
                    "; nothing stored");

    long long observed = static_cast<long long>(d.updateTime / 1000.0);
    if (std::string failed = storeCalibration(OrvexStorageMgr::getInstance(), d.pressure, observed);
        !failed.empty())
        return fail(failed);
    noteCalibrationSource("service");
    const char* provider = d.provider == 1 ? "The Weather Company" : "AccuWeather";
    if (options.json) {
        JsonLine()
            .add("source", "weather service")
            .add("provider", provider)
            .add("latitude", d.latitude)
            .add("longitude", d.longitude)
            .add("slp_hpa", d.pressure)
            .add("observed_at", observed)
            .print();
    } else {
        printRows({{"provider", provider},
                   {"position", formatDouble(d.latitude, 4) + ", " + formatDouble(d.longitude, 4)},
                   {"sea-level pressure", formatDouble(d.pressure, 2) + " hPa (stored)"},
                   {"observed at", calibrationTimeText(observed)}});
    }
    return 0;
}

int runCalibrate(const Options& options, const Args& given) {
    Args args = given;
    gchar* timeout = nullptr;
    GOptionEntry entries[] = {{"timeout", 0, 0, G_OPTION_ARG_STRING, &timeout, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    int rc = 0;
    const bool parsed = parseOptions(kCalibrate, args, entries, &rc);
    const bool timed = timeout != nullptr;
    const std::string timeoutText = timed ? timeout : "";
    g_free(timeout);
    if (!parsed) return rc;
    if (args.empty()) return usageError(kCalibrate, "expected agent, service or manual");
    guint timeoutMs = args[0] == "service" ? 15000 : 10000;
    if (timed && args[0] == "manual")
        return usageError(kCalibrate, "expected: manual ALTITUDE_M PRESSURE_HPA");
    if (timed && !parseTimeout(timeoutText, &timeoutMs))
        return usageError(kCalibrate, "the time-out must be a positive number of seconds");
    if (!initialiseStore()) return fail(storeProblem());
    if (args[0] == "agent") return calibrateFromAgent(options, args, timeoutMs);
    if (args[0] == "service") return calibrateFromService(options, args, timeoutMs);
    if (args[0] == "manual") {
        double altitude = 0, pressure = 0;
        if (args.size() != 3 || !parseDouble(args[1], &altitude) ||
            !parseDouble(args[2], &pressure))
            return usageError(kCalibrate, "expected: manual ALTITUDE_M PRESSURE_HPA");
        if (pressure <= 0) return fail("the pressure must be above 0 hPa");
        if (altitude >= 44330.0) return fail("the altitude must be below 44330 m");
        OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
        double slp = store->getManualSLP(altitude, pressure);
        if (!orvex_host_plausible_slp(slp))
            return fail(implausibleSlp("the sea-level pressure", slp) + "; nothing stored");
        if (std::string failed =
                storeCalibration(store, slp, static_cast<long long>(time(nullptr)));
            !failed.empty())
            return fail(failed);
        noteCalibrationSource("manual");
        return printCalibration(options, store, "known altitude");
    }
    return usageError(kCalibrate, "unknown source '" + args[0] + "'");
}

}  // namespace
}  // namespace orvex_tool
