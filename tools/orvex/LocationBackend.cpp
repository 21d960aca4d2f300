// Choosing the host's position source, among the back ends the host lists.
#include "LocationBackend.h"

#include <glib.h>
#include <orvex_host/location_control.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvex_tool {
namespace {

std::string adopt(char* text) {
    std::string out = text ? text : "";
    g_free(text);
    return out;
}

}  // namespace

std::string locationBackendUsage() {
    std::string usage = "       orvex location backend [NAME [--host HOST] [--port PORT]]\n";
    size_t width = 0;
    for (int i = 0; orvex_host_location_backend_name(i); ++i)
        width = std::max(width, strlen(orvex_host_location_backend_name(i)));
    for (int i = 0; orvex_host_location_backend_name(i); ++i) {
        std::string name = orvex_host_location_backend_name(i);
        usage += "  " + name + std::string(width + 3 - name.size(), ' ') +
                 orvex_host_location_backend_summary(i) + "\n";
    }
    return usage +
           "--host and --port say where gpsd listens. The environment variable\n"
           "ORVEX_HOST_LOCATION_BACKEND wins over the stored choice.";
}

std::string locationSettingProblem(const char* key, const std::string& value) {
    const char* problem = orvex_host_location_setting_problem(key, value.c_str());
    return problem ? printable(problem) : "";
}

// The gpsd back end's address, the one setting a back end takes from this command.
constexpr char kGpsd[] = "gpsd";

int runLocationBackend(const Command& command, const Options& options, Args args) {
    gchar* host = nullptr;
    gchar* port = nullptr;
    GOptionEntry entries[] = {{"host", 0, 0, G_OPTION_ARG_STRING, &host, nullptr, nullptr},
                              {"port", 0, 0, G_OPTION_ARG_STRING, &port, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    int rc = 0;
    bool parsed = parseOptions(command, args, entries, &rc);
    const std::optional<std::string> hostText =
        host ? std::optional<std::string>(host) : std::nullopt;
    const std::optional<std::string> portText =
        port ? std::optional<std::string>(port) : std::nullopt;
    g_free(host);
    g_free(port);
    if (!parsed) return rc;
    if (args.size() > 1) return usageError(command, "expected: backend [NAME]");
    if (!args.empty()) {
        const std::string& name = args[0];
        std::string problem = locationSettingProblem("location_backend", name);
        if (!problem.empty()) return fail(problem);
        if ((hostText || portText) && name != kGpsd)
            return usageError(command, "--host and --port go with the gpsd back end");
        for (const auto& [key, text] : {std::pair("location_gpsd_host", hostText),
                                        std::pair("location_gpsd_port", portText)}) {
            problem = text ? locationSettingProblem(key, *text) : "";
            if (!problem.empty()) return fail(problem);
        }
        // Choosing gpsd without an address goes back to the default one.
        if (name == kGpsd)
            rc = orvex_host_location_set_gpsd(hostText ? hostText->c_str() : nullptr,
                                              portText ? atoi(portText->c_str()) : 0);
        if (rc == 0) rc = orvex_host_location_set_backend(name.c_str());
        if (rc == -ENOENT)
            return fail("no track to replay: choose one with 'orvex location track FILE'");
        if (rc != 0) return fail("cannot store the choice (error " + std::to_string(rc) + ")");
    }
    std::string backend = orvex_host_location_backend();
    std::string source = backend == kGpsd ? adopt(orvex_host_location_gpsd_address()) : "";
    if (options.json) {
        JsonLine()
            .add("backend", backend)
            .add("gpsd", source.empty() ? nullptr : source.c_str())
            .print();
    } else {
        std::vector<std::pair<std::string, std::string>> rows{{"backend", backend}};
        if (!source.empty()) rows.emplace_back(kGpsd, printable(source));
        printRows(rows);
    }
    return 0;
}

int runLocationTrack(const Options&, const Args& args) {
    if (args.size() != 1) return fail("expected: location track FILE | track none");
    if (args[0] == "none")
        return orvex_host_location_set_track(nullptr) == 0 ? 0 : fail("cannot store the choice");
    if (const char* problem = orvex_host_location_track_problem(args[0].c_str()))
        return fail(printable(problem));
    int rc = orvex_host_location_set_track(args[0].c_str());
    return rc == 0 ? 0 : fail("cannot store the choice (error " + std::to_string(rc) + ")");
}

}  // namespace orvex_tool
