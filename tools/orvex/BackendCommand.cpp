// `orvex backend`: where the pressure sensor reads from, shown or chosen among the host's back
// ends.
#include <glib.h>
#include <orvex_host/control.h>
#include <orvex_host/sensor_control.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "SensorListener.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runBackend(const Options& options, const Args& args);

// The back ends come from the host's list, so that a new one shows here without a change.
std::string usage() {
    std::string text =
        "[NAME [FILE] [--seed N] [--root DIR] [--no-loop] | default]\n\nBack ends:\n";
    for (int i = 0; const char* name = orvex_host_sensor_backend_name(i); ++i)
        text += "  " + std::string(name) +
                std::string(std::max<size_t>(1, 8 - std::min<size_t>(8, strlen(name))), ' ') +
                orvex_host_sensor_backend_summary(i) + "\n";
    return text +
           "Settings, kept for the back end that reads them:\n"
           "  FILE         the CSV file a trace replays; one that cannot be replayed is refused\n"
           "               and the earlier choice stays\n"
           "  --no-loop    the trace ends after its last row instead of starting again\n"
           "  --seed N     the simulated walk, a whole number from 0 (1 when not given)\n"
           "  --root DIR   where the IIO devices are (default /sys/bus/iio/devices)\n"
           "The environment variable ORVEX_HOST_SENSOR_BACKEND wins over the stored choice.";
}

const std::string kUsage = usage();
const Command kBackend{"backend", "show or choose where the pressure sensor reads from",
                       kUsage.c_str(), runBackend};

[[maybe_unused]] const bool registered = addCommand(kBackend);

// Stores the choice and its settings; 0 or the host's error code.
int choose(const std::string& name, int seed, const char* root, const Args& rest, bool loop) {
    int rc = orvex_host_sensor_set_backend(name.c_str());
    if (rc == 0) rc = orvex_host_sensor_set_seed(static_cast<unsigned>(seed));
    if (rc == 0) rc = orvex_host_sensor_set_iio_root(root);
    if (rc == 0 && rest.size() == 2) rc = orvex_host_sensor_set_trace(rest[1].c_str(), loop);
    return rc;
}

int show(const Options& options) {
    const char* problem = orvex_host_sensor_backend_problem();
    const char* name = orvex_host_sensor_backend();
    if (options.json)
        JsonLine().add("backend", name).add("problem", problem).print();
    else
        printRows(
            {{"backend", printable(name)}, {"state", problem ? printable(problem) : "ready"}});
    return problem ? 1 : 0;
}

int runBackend(const Options& options, const Args& args) {
    gchar *seedText = nullptr, *root = nullptr;
    gboolean noLoop = FALSE;
    GOptionEntry entries[] = {{"seed", 0, 0, G_OPTION_ARG_STRING, &seedText, nullptr, nullptr},
                              {"root", 0, 0, G_OPTION_ARG_FILENAME, &root, nullptr, nullptr},
                              {"no-loop", 0, 0, G_OPTION_ARG_NONE, &noLoop, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    Args rest = args;
    int rc = 0;
    bool parsed = parseOptions(kBackend, rest, entries, &rc);
    g_autofree gchar* seedOwned = seedText;
    g_autofree gchar* rootOwned = root;
    if (!parsed) return rc;
    const bool settings = seedText || root || noLoop;
    if (rest.empty() && !settings) return show(options);
    if (rest.empty() || (rest[0] == "default" && (rest.size() > 1 || settings)))
        return usageError(kBackend, "expected a back end's name, then its settings, or default");
    if (rest[0] == "default") {
        rc = orvex_host_sensor_set_backend(nullptr);
    } else {
        if (const char* refusal = orvex_host_sensor_backend_refusal(rest[0].c_str()))
            return usageError(kBackend, printable(refusal));
        if (rest.size() > 2) return usageError(kBackend, "unknown argument '" + rest[2] + "'");
        if (noLoop && rest.size() < 2) return usageError(kBackend, "--no-loop goes with a FILE");
        int seed = 1;
        if (seedText && (!parseInt(seedText, &seed) || seed < 0))
            return fail("'" + printable(seedText) + "' is not a seed (a whole number from 0)");
        // A file that cannot be replayed is refused, and the previous choice stays.
        if (rest.size() == 2)
            if (const char* problem = orvex_host_sensor_trace_problem(rest[1].c_str()))
                return fail(printable(problem));
        rc = choose(rest[0], seed, root, rest, !noLoop);
    }
    if (rc != 0) {
        const char* dirProblem = orvex_host_data_dir_problem();
        return fail(dirProblem ? dirProblem
                               : "cannot store the choice (error " + std::to_string(rc) + ")");
    }
    return show(options);
}

}  // namespace
}  // namespace orvex_tool
