// Choosing the host's position source: a fixed point, a replayed track or a gpsd daemon.
#include "LocationBackend.h"

#include <glib.h>
#include <orvex_host/location_control.h>

#include <cerrno>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace orvex_tool {

const char* const kLocationBackendUsage =
    "       orvex location backend [fixed | track | gpsd [--host HOST] [--port PORT]]\n"
    "  fixed   the position set with 'location set' (the default)\n"
    "  track   replay of the file given to 'location track' (GPX 1.0/1.1 or CSV)\n"
    "  gpsd    the fixes of a gpsd daemon (default localhost:2947); the service is up while it\n"
    "          has a fix\n"
    "The environment variable ORVEX_HOST_LOCATION_BACKEND wins over the stored choice.";

namespace {

std::string gpsdAddress() {
    char* address = orvex_host_location_gpsd_address();
    std::string text = address ? address : "";
    g_free(address);
    return text;
}

}  // namespace

int runLocationBackend(const Options& options, const Args& args) {
    if (!args.empty()) {
        const std::string& name = args[0];
        int rc = 0;
        if ((name == "fixed" || name == "track") && args.size() == 1) {
            rc = orvex_host_location_set_backend(name.c_str());
            if (rc == -ENOENT)
                return fail("no track to replay: choose one with 'orvex location track FILE'");
        } else if (name == "gpsd") {
            std::string host;
            int port = 0;
            for (size_t i = 1; i < args.size(); ++i) {
                if (args[i] == "--host" && i + 1 < args.size() && !args[i + 1].empty()) {
                    host = args[++i];
                } else if (args[i] == "--port" && i + 1 < args.size()) {
                    if (!parseInt(args[i + 1], &port) || port < 1 || port > 65535)
                        return fail("'" + args[i + 1] + "' is not a port (1 to 65535)");
                    ++i;
                } else {
                    return fail("expected: location backend gpsd [--host HOST] [--port PORT]");
                }
            }
            rc = orvex_host_location_set_gpsd(host.empty() ? nullptr : host.c_str(), port);
            if (rc == 0) rc = orvex_host_location_set_backend("gpsd");
        } else {
            return fail("expected: location backend fixed, track or gpsd [--host H] [--port P]");
        }
        if (rc != 0) return fail("cannot store the choice (error " + std::to_string(rc) + ")");
    }
    std::string backend = orvex_host_location_backend();
    std::string source = backend == "gpsd" ? gpsdAddress() : "";
    if (options.json) {
        JsonLine()
            .add("backend", backend)
            .add("gpsd", source.empty() ? nullptr : source.c_str())
            .print();
    } else {
        std::vector<std::pair<std::string, std::string>> rows{{"backend", backend}};
        if (!source.empty()) rows.emplace_back("gpsd", source);
        printRows(rows);
    }
    return 0;
}

int runLocationTrack(const Options&, const Args& args) {
    if (args.size() != 1) return fail("expected: location track FILE | track none");
    if (args[0] == "none")
        return orvex_host_location_set_track(nullptr) == 0 ? 0 : fail("cannot store the choice");
    if (const char* problem = orvex_host_location_track_problem(args[0].c_str()))
        return fail(problem);
    int rc = orvex_host_location_set_track(args[0].c_str());
    return rc == 0 ? 0 : fail("cannot store the choice (error " + std::to_string(rc) + ")");
}

}  // namespace orvex_tool
