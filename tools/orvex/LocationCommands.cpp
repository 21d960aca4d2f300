// The position from the location service, and the usage-survey log.
#include <glib.h>
#include <orvex_host/location_control.h>
#include <orvex_host/usage_log_control.h>

#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>

#include "OrvexLocationMgr.h"
#include "OrvexLogging.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runLocation(const Options& options, const Args& args);
int runUsage(const Options& options, const Args& args);

const Command kLocation{
    "location", "read the position from the location service",
    "[--timeout SECONDS]\n"
    "       orvex location set LATITUDE LONGITUDE [ALTITUDE_M]\n"
    "       orvex location track FILE | track none\n\n"
    "Enables location if it is off, starts the location manager and prints the position once the\n"
    "service is up. 'set' configures the host's position, 'track' replays a CSV file of\n"
    "\"seconds,latitude,longitude,altitude\" rows instead.",
    runLocation};
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
        if (loop) g_main_loop_quit(loop);
    }
    GMainLoop* loop = nullptr;
    bool finished = false;
    bool available = false;
};

gboolean quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
}

int readPosition(const Options& options, double timeout) {
    OrvexLocationMgr* mgr = OrvexLocationMgr::getInstance();
    if (!mgr) return fail("out of memory");
    WaitingListener listener;
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    listener.loop = loop;
    int rc = mgr->isLocationEnabled() ? mgr->createLocationMgr(&listener)
                                      : mgr->onLocationsetting(&listener);
    if (rc != 0) {
        g_main_loop_unref(loop);
        OrvexLocationMgr::deleteInstance();
        return fail(rc == -1073741822
                        ? "this device has no suitable location method"
                        : "the location service refused (error " + std::to_string(rc) + ")");
    }
    guint timer = g_timeout_add(static_cast<guint>(timeout * 1000), quit, loop);
    bool completed = runMainLoop(loop);
    if (listener.finished || !completed) g_source_remove(timer);
    g_main_loop_unref(loop);
    if (!completed) {
        OrvexLocationMgr::deleteInstance();
        return interruptedExit();
    }

    double lat = 0, lon = 0, alt = 0;
    int result;
    if (!listener.finished) {
        result = fail("the location service did not come up in time");
    } else if (!listener.available) {
        result = fail("location stays off: enabling it was refused");
    } else if (mgr->getCurrentPosition(&lat, &lon, &alt) != 0) {
        result = fail("the location service has no position");
    } else {
        if (options.json)
            std::cout
                << Json().add("latitude", lat).add("longitude", lon).add("altitude_m", alt).str()
                << "\n";
        else
            printRows({{"latitude", formatDouble(lat, 6) + "°"},
                       {"longitude", formatDouble(lon, 6) + "°"},
                       {"altitude", formatDouble(alt, 1) + " m"}});
        result = 0;
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
    if (!args.empty() && args[0] == "track") {
        if (args.size() != 2) return usageError(kLocation, "expected: track FILE | track none");
        if (orvex_host_location_set_track(args[1] == "none" ? nullptr : args[1].c_str()) != 0)
            return fail("'" + args[1] + "' holds no \"seconds,latitude,longitude,altitude\" rows");
        return 0;
    }
    double timeout = 5;
    if (args.size() == 2 && args[0] == "--timeout") {
        if (!parseDouble(args[1], &timeout) || timeout <= 0)
            return fail("the time-out must be a positive number of seconds");
    } else if (!args.empty()) {
        return usageError(kLocation, "unknown argument '" + args[0] + "'");
    }
    return readPosition(options, timeout);
}

int runUsage(const Options& options, const Args& args) {
    if (!args.empty() && args[0] == "send") {
        int type = 0, value = 0;
        std::string extra;
        if (args.size() < 2 || !parseInt(args[1], &type))
            return usageError(kUsage, "expected: send TYPE [--extra TEXT] [--value N]");
        for (size_t i = 2; i < args.size(); ++i) {
            if (args[i] == "--extra" && i + 1 < args.size())
                extra = args[++i];
            else if (args[i] == "--value" && i + 1 < args.size() && parseInt(args[i + 1], &value))
                ++i;
            else
                return usageError(kUsage, "unknown or incomplete option '" + args[i] + "'");
        }
        if (type < 0 || type > 11) return fail("the type is 0 to 11");
        OrvexLogging* log = OrvexLogging::getInstance();
        if (!log) return fail("out of memory");
        log->sendMarvenoLog(static_cast<OrvexLoggingType>(type), extra.c_str(), value);
        OrvexLogging::deleteInstance();
    } else if (!args.empty()) {
        return usageError(kUsage, "expected send or nothing");
    }
    int n = orvex_host_usage_log_count();
    std::string list = "[";
    for (int i = 0; i < n; ++i) {
        long long when = 0;
        char* uri = orvex_host_usage_log_uri(i, &when);
        char* fields = orvex_host_usage_log_fields(i);
        std::string f = fields ? fields : "";
        if (options.json) {
            Json entry;
            entry.add("time", when).add("uri", uri ? uri : "");
            size_t start = 0;
            while (start < f.size()) {
                size_t end = f.find('\n', start);
                std::string line = f.substr(start, end - start);
                size_t eq = line.find('=');
                if (eq != std::string::npos) entry.add(line.substr(0, eq), line.substr(eq + 1));
                start = end == std::string::npos ? f.size() : end + 1;
            }
            list += (i ? ", " : "") + entry.str();
        } else {
            for (auto& c : f)
                if (c == '\n') c = ' ';
            time_t t = static_cast<time_t>(when);
            char stamp[32];
            strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", localtime(&t));
            std::cout << stamp << "  " << (uri ? uri : "") << "  " << f << "\n";
        }
        free(uri);
        free(fields);
    }
    if (options.json)
        std::cout << list << "]\n";
    else if (n == 0)
        std::cout << "no usage events logged\n";
    return 0;
}

}  // namespace
}  // namespace orvex_tool
