// The position from the location service, and the usage-survey log.
#include <glib.h>
#include <orvex_host/location_control.h>
#include <orvex_host/usage_log_control.h>

#include <cmath>
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

// The usage text is put together at start, with the host's back ends.
const std::string kLocationUsage =
    "[--timeout SECONDS]\n"
    "       orvex location set LATITUDE LONGITUDE [ALTITUDE_M]\n"
    "       orvex location track FILE | track none\n" +
    locationBackendUsage() +
    "\n\n"
    "Enables location if it is off, starts the location manager and prints the position once the\n"
    "service is up; an altitude the source does not know (a 2D fix) is \"unknown\". 'set'\n"
    "configures the host's position, 'track' replays a track instead: a GPX file of track points\n"
    "with time (and elevation), or a CSV file of \"seconds,latitude,longitude,altitude\" rows.";
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

// Why the back end has no position, as the back end says (gpsd unreachable, no fix yet, a track
// it cannot read): " (why)", or nothing.
std::string problem() {
    const char* why = orvex_host_location_problem();
    return why ? " (" + printable(why) + ")" : "";
}

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
        result = fail("the location service did not come up in time" + problem());
    } else if (!listener.available) {
        result = fail("location stays off: enabling it was refused");
    } else if (mgr->getCurrentPosition(&lat, &lon, &alt) != 0) {
        result = fail("the location service has no position" + problem());
    } else if (options.json) {
        // A position without altitude has none: null, which JsonLine gives a number it cannot show.
        JsonLine().add("latitude", lat).add("longitude", lon).add("altitude_m", alt).print();
    } else {
        printRows({{"latitude", formatDouble(lat, 6) + "°"},
                   {"longitude", formatDouble(lon, 6) + "°"},
                   {"altitude", std::isnan(alt) ? "unknown" : formatDouble(alt, 1) + " m"}});
    }
    OrvexLocationMgr::deleteInstance();
    return result;
}

int runLocation(const Options& options, const Args& args) {
    // A variable that would be refused as an option is refused here too, before anything is done.
    if (const char* problem = orvex_host_location_config_problem()) return fail(printable(problem));
    std::string sub = args.empty() ? "" : args[0];
    Args rest(args.begin() + (sub == "set" || sub == "track" || sub == "backend"), args.end());
    if (sub == "track") return runLocationTrack(options, rest);
    if (sub == "backend") return runLocationBackend(kLocation, options, rest);
    if (sub == "set") {
        // Coordinates west and south are negative: no options here to take them for.
        double lat = 0, lon = 0, alt = 0;
        if ((rest.size() != 2 && rest.size() != 3) || !parseDouble(rest[0], &lat) ||
            !parseDouble(rest[1], &lon) || (rest.size() == 3 && !parseDouble(rest[2], &alt)))
            return usageError(kLocation, "expected: set LATITUDE LONGITUDE [ALTITUDE_M]");
        if (orvex_host_location_set_position(lat, lon, alt) != 0)
            return fail(locationSettingProblem(
                "location_position",
                rest[0] + "," + rest[1] + "," + (rest.size() == 3 ? rest[2] : "0")));
        orvex_host_location_set_track(nullptr);
        return 0;
    }
    gchar* timeout = nullptr;
    GOptionEntry entries[] = {{"timeout", 0, 0, G_OPTION_ARG_STRING, &timeout, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    int rc = 0;
    bool parsed = parseOptions(kLocation, rest, entries, &rc);
    std::string timeoutText = timeout ? timeout : "5";
    g_free(timeout);
    if (!parsed) return rc;
    if (!rest.empty()) return usageError(kLocation, "unknown argument '" + rest[0] + "'");
    guint timeoutMs = 0;
    if (!parseTimeout(timeoutText, &timeoutMs))
        return usageError(kLocation, "the time-out must be a positive number of seconds");
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
