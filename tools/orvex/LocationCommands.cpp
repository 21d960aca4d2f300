// The position from the location service, and the usage-survey log.
#include <glib.h>
#include <orvex_host/location_control.h>
#include <orvex_host/usage_log_control.h>

#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>

#include "LocationBackend.h"
#include "OrvexLocationMgr.h"
#include "OrvexLogging.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runLocation(const Options& options, const Args& args);
int runUsage(const Options& options, const Args& args);

// The usage text is put together at start, with the lines of 'location backend'.
const std::string kLocationUsage =
    std::string(
        "[--timeout SECONDS]\n"
        "       orvex location set LATITUDE LONGITUDE [ALTITUDE_M]\n"
        "       orvex location track FILE | track none\n") +
    kLocationBackendUsage +
    "\n\n"
    "Enables location if it is off, starts the location manager and prints the position once the\n"
    "service is up. 'set' configures the host's position, 'track' replays a track instead: a GPX\n"
    "file of track points with elevation and time, or a CSV file of\n"
    "\"seconds,latitude,longitude,altitude\" rows.";
const Command kLocation{"location", "read the position from the location service",
                        kLocationUsage.c_str(), runLocation};
const Command kUsage{
    "usage", "list the usage events logged, or log one",
    "[send TYPE [--extra TEXT] [--value N]]\n\n"
    "TYPE is 0 to 11 (feature codes OX01 to OX12); value goes with types 0 and 1, the text with\n"
    "3, 6 and 8.",
    runUsage};

[[maybe_unused]] const bool registered = addCommand(kLocation) && addCommand(kUsage);

class WaitingListener : public IOrvexLocationListener {
public:
    void onLocationStateChanged(int state) override {
        if (state == 1) done(true);
    }
    void onLocationEnableResult(int state) override {
        if (state == 0) done(false);
    }
    void done(bool ok) {
        finished = true;
        available = ok;
    }
    bool finished = false;
    bool available = false;
};

int readPosition(const Options& options, guint timeoutMs) {
    OrvexLocationMgr* mgr = OrvexLocationMgr::getInstance();
    if (!mgr) return fail("out of memory");
    WaitingListener listener;
    int rc = mgr->isLocationEnabled() ? mgr->createLocationMgr(&listener)
                                      : mgr->onLocationsetting(&listener);
    if (rc != 0) {
        OrvexLocationMgr::deleteInstance();
        return fail(rc == -1073741822
                        ? "this device has no suitable location method"
                        : "the location service refused (error " + std::to_string(rc) + ")");
    }
    WaitEnd end = waitFor([&] { return listener.finished; }, timeoutMs);
    double lat = 0, lon = 0, alt = 0;
    int result = 0;
    if (end == WaitEnd::Interrupted) {
        result = interruptedExit();
    } else if (end == WaitEnd::TimedOut) {
        // The back end may know why: gpsd unreachable, no fix yet, a track it cannot read.
        const char* why = orvex_host_location_problem();
        result = fail(std::string("the location service did not come up in time") +
                      (why ? std::string(" (") + why + ")" : ""));
    } else if (!listener.available) {
        result = fail("location stays off: enabling it was refused");
    } else if (mgr->getCurrentPosition(&lat, &lon, &alt) != 0) {
        result = fail("the location service has no position");
    } else if (options.json) {
        JsonLine().add("latitude", lat).add("longitude", lon).add("altitude_m", alt).print();
    } else {
        printRows({{"latitude", formatDouble(lat, 6) + "°"},
                   {"longitude", formatDouble(lon, 6) + "°"},
                   {"altitude", formatDouble(alt, 1) + " m"}});
    }
    OrvexLocationMgr::deleteInstance();
    return result;
}

int runLocation(const Options& options, const Args& args) {
    if (!args.empty() && args[0] == "set") {
        double lat = 0, lon = 0, alt = 0;
        if ((args.size() != 3 && args.size() != 4) || !parseDouble(args[1], &lat) ||
            !parseDouble(args[2], &lon) || (args.size() == 4 && !parseDouble(args[3], &alt)))
            return usageError(kLocation, "expected: set LATITUDE LONGITUDE [ALTITUDE_M]");
        if (orvex_host_location_set_position(lat, lon, alt) != 0)
            return fail("latitude is -90 to 90 and longitude -180 to 180");
        orvex_host_location_set_track(nullptr);
        return 0;
    }
    if (!args.empty() && (args[0] == "track" || args[0] == "backend")) {
        Args rest(args.begin() + 1, args.end());
        return args[0] == "track" ? runLocationTrack(options, rest)
                                  : runLocationBackend(options, rest);
    }
    guint timeoutMs = 5000;
    if (args.size() == 2 && args[0] == "--timeout") {
        if (!parseTimeout(args[1], &timeoutMs))
            return usageError(kLocation, "the time-out must be a positive number of seconds");
    } else if (!args.empty()) {
        return usageError(kLocation, "unknown argument '" + args[0] + "'");
    }
    return readPosition(options, timeoutMs);
}

int runUsage(const Options& options, const Args& args) {
    if (!args.empty() && args[0] == "send") {
        int type = 0, value = 0;
        gchar* extra = nullptr;
        GOptionEntry entries[] = {{"extra", 0, 0, G_OPTION_ARG_STRING, &extra, nullptr, nullptr},
                                  {"value", 0, 0, G_OPTION_ARG_INT, &value, nullptr, nullptr},
                                  {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
        Args rest(args.begin() + 1, args.end());
        int rc = 0;
        bool parsed = parseOptions(kUsage, rest, entries, &rc);
        std::string text = extra ? extra : "";
        g_free(extra);
        if (!parsed) return rc;
        if (rest.size() != 1 || !parseInt(rest[0], &type))
            return usageError(kUsage, "expected: send TYPE [--extra TEXT] [--value N]");
        if (type < 0 || type > 11) return fail("the type is 0 to 11");
        OrvexLogging* log = OrvexLogging::getInstance();
        if (!log) return fail("out of memory");
        log->sendMarvenoLog(static_cast<OrvexLoggingType>(type), text.c_str(), value);
        OrvexLogging::deleteInstance();
    } else if (!args.empty()) {
        return usageError(kUsage, "expected send or nothing");
    }
    int n = orvex_host_usage_log_count();
    JsonLine json(JsonLine::Array);
    for (int i = 0; i < n; ++i) {
        long long when = 0;
        char* uri = orvex_host_usage_log_uri(i, &when);
        char* fields = orvex_host_usage_log_fields(i);
        std::string f = fields ? fields : "";
        if (options.json) {
            json.beginObject().add("time", when).add("uri", uri ? uri : "");
            size_t start = 0;
            while (start < f.size()) {
                size_t end = f.find('\n', start);
                std::string line = f.substr(start, end - start);
                size_t eq = line.find('=');
                if (eq != std::string::npos) json.add(line.substr(0, eq), line.substr(eq + 1));
                start = end == std::string::npos ? f.size() : end + 1;
            }
            json.endObject();
        } else {
            for (auto& c : f)
                if (c == '\n') c = ' ';
            std::cout << formatTime(when, "%Y-%m-%d %H:%M:%S") << "  " << (uri ? uri : "") << "  "
                      << f << "\n";
        }
        free(uri);
        free(fields);
    }
    if (options.json)
        json.print();
    else if (n == 0)
        std::cout << "no usage events logged\n";
    return 0;
}

}  // namespace
}  // namespace orvex_tool
