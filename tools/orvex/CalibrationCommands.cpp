// Calibration of the sea-level pressure (weather agent, known altitude), its history, and the
// host's simulated weather agent.
#include <glib.h>
#include <orvex_host/app_control_control.h>
#include <orvex_host/control.h>
#include <orvex_host/plausible.h>
#include <platform/app_preference.h>
#include <platform/key_storage.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <regex>
#include <string>
#include <vector>

#include "AgentBackend.h"
#include "IOrvexWeatherListener.h"
#include "OrvexAltitudeMgr.h"
#include "OrvexLocationMgr.h"
#include "OrvexStorageMgr.h"
#include "OrvexWeather.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runCalibrate(const Options& options, const Args& args);
int runHistory(const Options& options, const Args& args);
int runAgent(const Options& options, const Args& args);

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
const Command kHistory{"history", "show the calibration history and the last calibration", "",
                       runHistory};
// The usage text is put together at start, with the lines of 'agent backend'.
const std::string kAgentUsage =
    std::string(
        "[set [--pressure TEXT] [--age SECONDS] [--missing KEY] [--empty KEY] [--silent] | "
        "reset]\n") +
    kAgentBackendUsage +
    "\n\n"
    "  --pressure TEXT  send TEXT as \"pressure\" (9999: no sea-level pressure here)\n"
    "  --age SECONDS    make the observation that old (over 3600 counts as stale)\n"
    "  --missing KEY    leave \"refreshedTime\" or \"pressure\" out of the answer\n"
    "  --empty KEY      send that entry empty\n"
    "  --silent         take requests but never answer\n"
    "set and reset configure the simulated agent; reset goes back to a prompt agent that "
    "reports\n"
    "the simulated weather.";
const Command kAgent{"agent", "show or configure the weather agent", kAgentUsage.c_str(), runAgent};

[[maybe_unused]] const bool registered =
    addCommand(kCalibrate) && addCommand(kHistory) && addCommand(kAgent);

const char* resultMeaning(int result) {
    switch (result) {
        case 0:
            return "stored";
        case 1:
            return "the agent's weather is older than an hour; nothing stored";
        case 2:
            return "the agent's answer lacks time or pressure; nothing stored";
        case 3:
            return "the agent has no sea-level pressure for this location; nothing stored";
        default:
            return "unknown result";
    }
}

std::string formatTime(long long t) {
    if (t == 0) return "never";
    time_t tt = static_cast<time_t>(t);
    struct tm tm;
    localtime_r(&tt, &tm);
    char buf[64];
    strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
    return buf;
}

struct Entry {
    long long time;
    double slp;
};

std::vector<Entry> historyEntries(OrvexStorageMgr* store) {
    char* raw = store->getDataSLPHistory();
    std::string text = raw ? raw : "";
    free(raw);
    std::vector<Entry> entries;
    static const std::regex entry("T:(-?[0-9]+);P\\+(-?[0-9]+\\.[0-9]{6})");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), entry);
         it != std::sregex_iterator(); ++it)
        entries.push_back(Entry{std::stoll((*it)[1]), std::stod((*it)[2])});
    return entries;
}

// The stored calibration time; a text that is not a number reads as none.
long long calibrationTime(OrvexStorageMgr* store) {
    try {
        return store->getDataCalTime();
    } catch (const std::exception&) {
        return 0;
    }
}

int printCalibration(const Options& options, OrvexStorageMgr* store, const char* source) {
    double slp = store->getDataSLP();
    long long when = calibrationTime(store);
    if (options.json) {
        JsonLine()
            .add("source", source)
            .add("slp_hpa", slp)
            .add("calibrated_at", when)
            .add("history_entries", static_cast<int>(historyEntries(store).size()))
            .print();
    } else {
        printRows({{"source", source},
                   {"sea-level pressure", formatDouble(slp, 2) + " hPa"},
                   {"calibrated at", formatTime(when)},
                   {"history entries", std::to_string(historyEntries(store).size())}});
    }
    return 0;
}

// The extremes ever observed at sea level are about 870 and 1084 hPa: a value outside this band
// is a fault somewhere, and stored it would put every altitude kilometres off.
bool plausibleSlp(double hpa) { return orvex_host_plausible_slp(hpa); }

std::string implausible(const std::string& what, double hpa) {
    char text[160];
    snprintf(text, sizeof text, "%s %g hPa is implausible (a sea-level pressure is %g to %g hPa)",
             what.c_str(), hpa, ORVEX_HOST_SLP_MIN_HPA, ORVEX_HOST_SLP_MAX_HPA);
    return text;
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
    if (!orvex_host_store_problem() && calibrationTime(store) == when && inHistory) return "";
    const std::string why = storeProblem();
    store->saveDataSLP(slpBefore);
    if (timeRead == PREFERENCE_ERROR_NONE)
        preference_set_string("ORVEX_DATA_CALIBRATE_TIME", timeBefore.c_str());
    store->saveDataSLPHistory(historyBefore);
    return "the calibration was not stored whole (" + why + "); the earlier one stays";
}

class AgentListener : public IOrvexWeatherListener {
public:
    void onWeatherInfoResult(int r) override { result = r; }
    int result = -1;
};

int calibrateFromAgent(const Options& options, const Args& args) {
    guint timeoutMs = 10000;
    if (args.size() == 3 && args[1] == "--timeout") {
        if (!parseTimeout(args[2], &timeoutMs))
            return usageError(kCalibrate, "the time-out must be a positive number of seconds");
    } else if (args.size() != 1) {
        return usageError(kCalibrate, "expected: agent [--timeout SECONDS]");
    }
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    AgentListener listener;
    OrvexWeather weather(&listener);
    AgentFailureWatch watch;
    if (!weather.requestWeatherInfo())
        return fail("the weather agent could not be asked (see -v for the platform's error)");
    WaitEnd end;
    try {
        end = waitFor([&] { return listener.result >= 0 || !watch.reason().empty(); }, timeoutMs);
    } catch (const std::exception& e) {
        return fail(std::string("the weather agent's answer is not readable (") + e.what() + ")");
    }
    if (end == WaitEnd::Interrupted) return interruptedExit();
    if (listener.result < 0 && !watch.reason().empty())
        return fail("the weather agent could not answer: " + watch.reason());
    if (end == WaitEnd::TimedOut)
        return fail("the weather agent did not answer within " + secondsText(timeoutMs) + " s");
    if (listener.result != 0) return fail(resultMeaning(listener.result));
    // The library keeps whatever the agent said; the application must not call it a
    // calibration.
    if (!plausibleSlp(store->getDataSLP()))
        return fail(implausible("the weather agent's sea-level pressure", store->getDataSLP()));
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

int calibrateFromService(const Options& options, const Args& args) {
    guint timeoutMs = 15000;
    double lat = 0, lon = 0;
    size_t positional = 0;
    double coords[2];
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--timeout" && i + 1 < args.size()) {
            if (!parseTimeout(args[++i], &timeoutMs))
                return usageError(kCalibrate, "the time-out must be a positive number of seconds");
        } else if (positional < 2 && parseDouble(args[i], &coords[positional])) {
            ++positional;
        } else {
            return usageError(kCalibrate, "expected: service [LATITUDE LONGITUDE] [--timeout S]");
        }
    }
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
    if (!plausibleSlp(d.pressure))
        return fail(implausible("the weather service's sea-level pressure", d.pressure) +
                    "; nothing stored");

    long long observed = static_cast<long long>(d.updateTime / 1000.0);
    if (std::string failed = storeCalibration(OrvexStorageMgr::getInstance(), d.pressure, observed);
        !failed.empty())
        return fail(failed);
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
                   {"observed at", formatTime(observed)}});
    }
    return 0;
}

int runCalibrate(const Options& options, const Args& args) {
    if (args.empty()) return usageError(kCalibrate, "expected agent, service or manual");
    if (!initialiseStore()) return fail(storeProblem());
    if (args[0] == "agent") return calibrateFromAgent(options, args);
    if (args[0] == "service") return calibrateFromService(options, args);
    if (args[0] == "manual") {
        double altitude = 0, pressure = 0;
        if (args.size() != 3 || !parseDouble(args[1], &altitude) ||
            !parseDouble(args[2], &pressure))
            return usageError(kCalibrate, "expected: manual ALTITUDE_M PRESSURE_HPA");
        if (pressure <= 0) return fail("the pressure must be above 0 hPa");
        if (altitude >= 44330.0) return fail("the altitude must be below 44330 m");
        OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
        double slp = store->getManualSLP(altitude, pressure);
        if (!plausibleSlp(slp))
            return fail(implausible("the sea-level pressure", slp) + "; nothing stored");
        if (std::string failed =
                storeCalibration(store, slp, static_cast<long long>(time(nullptr)));
            !failed.empty())
            return fail(failed);
        return printCalibration(options, store, "known altitude");
    }
    return usageError(kCalibrate, "unknown source '" + args[0] + "'");
}

int runHistory(const Options& options, const Args& args) {
    if (!args.empty()) return usageError(kHistory, "takes no arguments");
    if (!initialiseStore()) return fail(storeProblem());
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    std::vector<Entry> entries = historyEntries(store);
    long long last = calibrationTime(store);
    if (options.json) {
        JsonLine json;
        json.add("slp_hpa", store->getDataSLP()).add("calibrated_at", last).beginArray("history");
        for (const auto& e : entries)
            json.beginObject().add("time", e.time).add("slp_hpa", e.slp).endObject();
        json.endArray().print();
        return 0;
    }
    printRows({{"sea-level pressure", formatDouble(store->getDataSLP(), 2) + " hPa"},
               {"last calibration", formatTime(last)}});
    if (entries.empty()) {
        std::cout << "no calibration recorded yet\n";
        return 0;
    }
    std::cout << "\n  time                  sea-level pressure\n";
    for (const auto& e : entries)
        std::cout << "  " << formatTime(e.time) << "   " << formatDouble(e.slp, 2) << " hPa\n";
    return 0;
}

// No age given: an age of 0 is a value of its own.
constexpr gint64 kNoAge = G_MININT64;

int runAgent(const Options& options, const Args& args) {
    if (!args.empty() && args[0] == "backend")
        return runAgentBackend(options, Args(args.begin() + 1, args.end()));
    if (!args.empty() && args[0] == "reset") {
        if (args.size() != 1) return usageError(kAgent, "reset takes no arguments");
        if (orvex_host_agent_reset() != 0) return fail("cannot store the agent's settings");
    } else if (!args.empty() && args[0] == "set") {
        gboolean silent = FALSE;
        gchar *pressure = nullptr, *missing = nullptr, *empty = nullptr;
        gint64 age = kNoAge;
        GOptionEntry entries[] = {
            {"silent", 0, 0, G_OPTION_ARG_NONE, &silent, nullptr, nullptr},
            {"pressure", 0, 0, G_OPTION_ARG_STRING, &pressure, nullptr, nullptr},
            {"age", 0, 0, G_OPTION_ARG_INT64, &age, nullptr, nullptr},
            {"missing", 0, 0, G_OPTION_ARG_STRING, &missing, nullptr, nullptr},
            {"empty", 0, 0, G_OPTION_ARG_STRING, &empty, nullptr, nullptr},
            {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
        Args rest(args.begin() + 1, args.end());
        int rc = 0;
        if (parseOptions(kAgent, rest, entries, &rc) && !rest.empty())
            rc = usageError(kAgent, "unexpected argument '" + rest[0] + "'");
        if (rc == 0) {
            for (const char* key : {missing, empty})
                if (key && std::string(key) != "refreshedTime" && std::string(key) != "pressure")
                    rc = fail("the entry is refreshedTime or pressure");
            if (rc == 0 && ((silent && orvex_host_agent_set_silent(1) != 0) ||
                            (pressure && orvex_host_agent_set_pressure(pressure) != 0) ||
                            (age != kNoAge && orvex_host_agent_set_age(age) != 0) ||
                            (missing && orvex_host_agent_set_missing(missing) != 0) ||
                            (empty && orvex_host_agent_set_empty(empty) != 0)))
                rc = fail("cannot store the agent's settings");
        }
        g_free(pressure);
        g_free(missing);
        g_free(empty);
        if (rc != 0) return rc;
    } else if (!args.empty()) {
        return usageError(kAgent, "expected set, reset or backend");
    }
    double slp = orvex_host_weather_slp(static_cast<double>(time(nullptr)));
    if (options.json) {
        JsonLine().add("weather_slp_hpa", slp).print();
    } else {
        printRows({{"simulated weather", formatDouble(slp, 2) + " hPa sea-level pressure now"}});
    }
    return 0;
}

}  // namespace
}  // namespace orvex_tool
