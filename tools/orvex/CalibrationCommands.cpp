// Calibration of the sea-level pressure (weather agent, known altitude), its history, and the
// host's simulated weather agent.
#include <glib.h>
#include <orvex_host/app_control_control.h>
#include <orvex_host/control.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <regex>
#include <string>
#include <vector>

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
    "agent:   ask the platform's weather agent for the sea-level pressure (default time-out 10 s)\n"
    "service: ask The Weather Company (with its key stored) or AccuWeather for the position, or\n"
    "         for the location service's position when none is given (default time-out 15 s)\n"
    "manual:  derive it from a pressure measured at a known altitude\n"
    "Either way the new value is stored with the time of calibration and a history entry.",
    runCalibrate};
const Command kHistory{"history", "show the calibration history and the last calibration", "",
                       runHistory};
const Command kAgent{
    "agent", "show or configure the simulated weather agent",
    "[set [--pressure TEXT] [--age SECONDS] [--missing KEY] [--empty KEY] [--silent] | reset]\n\n"
    "  --pressure TEXT  send TEXT as \"pressure\" (9999: no sea-level pressure here)\n"
    "  --age SECONDS    make the observation that old (over 3600 counts as stale)\n"
    "  --missing KEY    leave \"refreshedTime\" or \"pressure\" out of the answer\n"
    "  --empty KEY      send that entry empty\n"
    "  --silent         take requests but never answer\n"
    "reset goes back to a prompt agent that reports the simulated weather.",
    runAgent};

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
        std::cout << Json()
                         .add("source", source)
                         .add("slp_hpa", slp)
                         .add("calibrated_at", when)
                         .add("history_entries", static_cast<int>(historyEntries(store).size()))
                         .str()
                  << "\n";
    } else {
        printRows({{"source", source},
                   {"sea-level pressure", formatDouble(slp, 2) + " hPa"},
                   {"calibrated at", formatTime(when)},
                   {"history entries", std::to_string(historyEntries(store).size())}});
    }
    return 0;
}

class AgentListener : public IOrvexWeatherListener {
public:
    void onWeatherInfoResult(int r) override {
        result = r;
        if (loop) g_main_loop_quit(loop);
    }
    int result = -1;
    GMainLoop* loop = nullptr;
};

gboolean timedOut(gpointer data) {
    g_main_loop_quit(static_cast<GMainLoop*>(data));
    return G_SOURCE_REMOVE;
}

int calibrateFromAgent(const Options& options, const Args& args) {
    double timeout = 10;
    if (args.size() == 3 && args[1] == "--timeout") {
        if (!parseDouble(args[2], &timeout) || timeout <= 0)
            return fail("the time-out must be a positive number of seconds");
    } else if (args.size() != 1) {
        return usageError(kCalibrate, "expected: agent [--timeout SECONDS]");
    }
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    AgentListener listener;
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    listener.loop = loop;
    int rc;
    {
        OrvexWeather weather(&listener);
        if (!weather.requestWeatherInfo()) {
            g_main_loop_unref(loop);
            return fail("the weather agent could not be asked (see -v for the platform's error)");
        }
        guint timer = g_timeout_add(static_cast<guint>(timeout * 1000), timedOut, loop);
        bool completed = true;
        try {
            completed = runMainLoop(loop);
        } catch (const std::exception& e) {
            g_source_remove(timer);
            g_main_loop_unref(loop);
            return fail(std::string("the weather agent's answer is not readable (") + e.what() +
                        ")");
        }
        if (!completed) {
            if (listener.result < 0) g_source_remove(timer);
            rc = interruptedExit();
        } else if (listener.result < 0) {
            char seconds[32];
            snprintf(seconds, sizeof seconds, "%g", timeout);
            rc = fail(std::string("the weather agent did not answer within ") + seconds + " s");
        } else {
            g_source_remove(timer);
            rc = listener.result == 0 ? printCalibration(options, store, "weather agent")
                                      : fail(resultMeaning(listener.result));
        }
    }
    g_main_loop_unref(loop);
    return rc;
}

class ServiceListener : public OrvexAltitudeMgrEvent {
public:
    void OnWeatherDataCompleted(std::tr1::shared_ptr<WeatherData> d) override {
        data = d;
        finish();
    }
    void OnWeatherDataFailed() override { finish(); }
    void finish() {
        answered = true;
        if (loop) g_main_loop_quit(loop);
    }
    std::tr1::shared_ptr<WeatherData> data;
    bool answered = false;
    GMainLoop* loop = nullptr;
};

struct PositionWaiter : IOrvexLocationListener {
    void onLocationStateChanged(int state) override {
        if (state == 1 && loop) g_main_loop_quit(loop);
    }
    void onLocationEnableResult(int state) override {
        if (state == 0 && loop) g_main_loop_quit(loop);
    }
    static gboolean expire(gpointer data) {
        auto* self = static_cast<PositionWaiter*>(data);
        self->expired = true;
        g_main_loop_quit(self->loop);
        return G_SOURCE_REMOVE;
    }
    GMainLoop* loop = nullptr;
    bool expired = false;
};

// The location service's position, waiting on the main loop for the service to come up.
bool positionFromLocationService(double* lat, double* lon) {
    OrvexLocationMgr* mgr = OrvexLocationMgr::getInstance();
    if (!mgr) return false;
    PositionWaiter waiter;
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    waiter.loop = loop;
    int rc = mgr->isLocationEnabled() ? mgr->createLocationMgr(&waiter)
                                      : mgr->onLocationsetting(&waiter);
    double alt = 0;
    bool ok = false;
    if (rc == 0) {
        guint timer = g_timeout_add(5000, &PositionWaiter::expire, &waiter);
        runMainLoop(loop);
        if (!waiter.expired) g_source_remove(timer);
        ok = mgr->getCurrentPosition(lat, lon, &alt) == 0;
    }
    g_main_loop_unref(loop);
    OrvexLocationMgr::deleteInstance();
    return ok;
}

int calibrateFromService(const Options& options, const Args& args) {
    double timeout = 15, lat = 0, lon = 0;
    size_t positional = 0;
    double coords[2];
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--timeout" && i + 1 < args.size()) {
            if (!parseDouble(args[++i], &timeout) || timeout <= 0)
                return fail("the time-out must be a positive number of seconds");
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
    } else if (!positionFromLocationService(&lat, &lon)) {
        return fail("the location service has no position; give LATITUDE LONGITUDE");
    }

    OrvexAltitudeMgr* mgr = OrvexAltitudeMgr::getInstance();
    if (!mgr) return fail("out of memory");
    ServiceListener listener;
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    listener.loop = loop;
    mgr->SetEventListener(&listener);
    mgr->Request(lat, lon, timeout * 1000.0);
    // The manager ends a timed-out request silently; this wakes the tool a little later.
    guint timer = g_timeout_add(static_cast<guint>(timeout * 1000) + 200, timedOut, loop);
    bool completed = runMainLoop(loop);
    if (listener.answered || !completed) g_source_remove(timer);
    g_main_loop_unref(loop);
    OrvexAltitudeMgr::deleteInstance();
    if (!completed) return interruptedExit();

    char seconds[32];
    snprintf(seconds, sizeof seconds, "%g", timeout);
    if (!listener.answered)
        return fail(std::string("the weather service did not answer within ") + seconds + " s");
    if (!listener.data)
        return fail("the weather service could not be reached or gave no usable answer");
    const WeatherData& d = *listener.data;
    if (d.pressure <= 0) return fail("the weather service's answer holds no sea-level pressure");

    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    long long observed = static_cast<long long>(d.updateTime / 1000.0);
    store->saveDataSLP(d.pressure);
    store->saveDataCalTime(observed);
    store->addDataSLPHistory(observed, d.pressure);
    const char* provider = d.provider == 1 ? "The Weather Company" : "AccuWeather";
    if (options.json) {
        std::cout << Json()
                         .add("source", "weather service")
                         .add("provider", provider)
                         .add("latitude", d.latitude)
                         .add("longitude", d.longitude)
                         .add("slp_hpa", d.pressure)
                         .add("observed_at", observed)
                         .str()
                  << "\n";
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
    if (!initialiseStore()) return fail("cannot create the settings store");
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
        long long now = static_cast<long long>(time(nullptr));
        store->saveDataSLP(slp);
        store->saveDataCalTime(now);
        store->addDataSLPHistory(now, slp);
        return printCalibration(options, store, "known altitude");
    }
    return usageError(kCalibrate, "unknown source '" + args[0] + "'");
}

int runHistory(const Options& options, const Args& args) {
    if (!args.empty()) return usageError(kHistory, "takes no arguments");
    if (!initialiseStore()) return fail("cannot create the settings store");
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    std::vector<Entry> entries = historyEntries(store);
    long long last = calibrationTime(store);
    if (options.json) {
        std::string list = "[";
        for (size_t i = 0; i < entries.size(); ++i) {
            if (i) list += ", ";
            list += Json().add("time", entries[i].time).add("slp_hpa", entries[i].slp).str();
        }
        std::cout << Json()
                         .add("slp_hpa", store->getDataSLP())
                         .add("calibrated_at", last)
                         .addRaw("history", list + "]")
                         .str()
                  << "\n";
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

int runAgent(const Options& options, const Args& args) {
    if (!args.empty() && args[0] == "reset") {
        if (args.size() != 1) return usageError(kAgent, "reset takes no arguments");
        if (orvex_host_agent_reset() != 0) return fail("cannot store the agent's settings");
    } else if (!args.empty() && args[0] == "set") {
        for (size_t i = 1; i < args.size(); ++i) {
            const std::string& a = args[i];
            bool hasValue = i + 1 < args.size();
            int rc = 0;
            if (a == "--silent") {
                rc = orvex_host_agent_set_silent(1);
            } else if (a == "--pressure" && hasValue) {
                rc = orvex_host_agent_set_pressure(args[++i].c_str());
            } else if (a == "--age" && hasValue) {
                long long age = 0;
                if (!parseLongLong(args[++i], &age)) return fail("the age must be whole seconds");
                rc = orvex_host_agent_set_age(age);
            } else if ((a == "--missing" || a == "--empty") && hasValue) {
                const std::string& key = args[++i];
                if (key != "refreshedTime" && key != "pressure")
                    return fail("the entry is refreshedTime or pressure");
                rc = a == "--missing" ? orvex_host_agent_set_missing(key.c_str())
                                      : orvex_host_agent_set_empty(key.c_str());
            } else {
                return usageError(kAgent, "unknown or incomplete option '" + a + "'");
            }
            if (rc != 0) return fail("cannot store the agent's settings");
        }
    } else if (!args.empty()) {
        return usageError(kAgent, "expected set or reset");
    }
    double slp = orvex_host_weather_slp(static_cast<double>(time(nullptr)));
    if (options.json) {
        std::cout << Json().add("weather_slp_hpa", slp).str() << "\n";
    } else {
        printRows({{"simulated weather", formatDouble(slp, 2) + " hPa sea-level pressure now"}});
    }
    return 0;
}

}  // namespace
}  // namespace orvex_tool
