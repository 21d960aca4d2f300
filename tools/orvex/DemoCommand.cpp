// The demonstration: the application's day in under a minute, on the host's simulated sensor and
// weather agent.
#include <orvex_host/control.h>
#include <orvex_host/sensor_control.h>

#include <iostream>
#include <string>

#include "OrvexStorageMgr.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runDemo(const Options& options, const Args& args);

const Command kDemo{
    "demo", "a short tour: live altitude, calibration from the weather agent, history, chart",
    "[--seconds N]\n\n"
    "Initialises the store, shows live altitude for N seconds (default 4), calibrates from the\n"
    "weather agent, shows how the altitude follows the new reference, then the calibration\n"
    "history and the recorded six hours. Runs on the host's simulated sensor and weather agent\n"
    "unless another sensor back end was chosen; needs no network and no keys.",
    runDemo};

[[maybe_unused]] const bool registered = addCommand(kDemo);

int runCommand(const char* name, const Options& options, const Args& args) {
    for (const auto& c : commands())
        if (name == std::string(c.name)) return c.run(options, args);
    return fail(std::string("no command ") + name);
}

void heading(const Options& options, const std::string& text) {
    if (!options.json) std::cout << "\n== " << text << "\n";
}

void trueAltitude(const Options& options) {
    if (options.json || std::string(orvex_host_sensor_backend()) != "sim") return;
    double t = orvex_host_sensor_now();
    std::cout << "(the simulated walker is at "
              << formatDouble(orvex_host_sensor_sim_altitude(t), 1)
              << " m; the weather's true sea-level pressure is "
              << formatDouble(orvex_host_weather_slp(t), 2) << " hPa)\n";
}

int runDemo(const Options& options, const Args& args) {
    Args rest = args;
    gint n = 4;
    GOptionEntry entries[] = {
        {"seconds", 0, 0, G_OPTION_ARG_INT, &n, "seconds of live altitude", "N"}, {}};
    int rc = 0;
    if (!parseOptions(kDemo, rest, entries, &rc)) return rc;
    if (!rest.empty()) return usageError(kDemo, "unknown argument '" + rest[0] + "'");
    if (n <= 0 || n > 60) return fail("--seconds takes a whole number from 1 to 60");
    const std::string seconds = std::to_string(n);

    heading(options, "Settings (initialised as the application does at start)");
    if (int rc = runCommand("init", options, {}); rc != 0) return rc;

    heading(options, "Live altitude against the stored sea-level pressure");
    trueAltitude(options);
    if (int rc = runCommand("live", options, {"--seconds", seconds}); rc != 0) return rc;

    heading(options, "Calibration from the weather agent");
    if (int rc = runCommand("calibrate", options, {"agent", "--timeout", "10"}); rc != 0) return rc;

    heading(options, "Live altitude after the calibration");
    trueAltitude(options);
    if (int rc = runCommand("live", options, {"--seconds", seconds}); rc != 0) return rc;

    heading(options, "Calibration history");
    if (int rc = runCommand("history", options, {}); rc != 0) return rc;

    heading(options, "Recorded pressure, last six hours");
    return runCommand("recorded", options, {});
}

}  // namespace
}  // namespace orvex_tool
