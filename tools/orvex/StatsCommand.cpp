// orvex stats: ascent, descent and the altitudes reached since the last reset.
#include <ctime>
#include <iostream>

#include "AltimeterStore.h"
#include "OrvexStorageMgr.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runStats(const Options& options, const Args& args);

const Command kStats{
    "stats", "ascent, descent, lowest and highest altitude since the last reset",
    "[--reset]\n\n"
    "Counted by whatever reads the sensor through the altimeter ('orvex live', the service),\n"
    "across runs. --reset starts the count again from now.",
    runStats};

[[maybe_unused]] const bool registered = addCommand(kStats);

std::string localTime(double t) {
    if (std::isnan(t)) return "-";
    return formatTime(static_cast<long long>(t), "%Y-%m-%d %H:%M:%S");
}

int runStats(const Options& options, const Args& args) {
    gboolean reset = FALSE;
    GOptionEntry entries[] = {{"reset", 0, 0, G_OPTION_ARG_NONE, &reset, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    Args rest = args;
    int rc = 0;
    if (!parseOptions(kStats, rest, entries, &rc)) return rc;
    if (!rest.empty()) return usageError(kStats, "unexpected argument '" + rest[0] + "'");
    if (!initialiseStore()) return fail(storeProblem());
    if (reset) {
        if (int err = resetTotals(static_cast<double>(g_get_real_time()) / G_USEC_PER_SEC))
            return fail("the store refused the reset (error " + std::to_string(err) + ")");
    }
    AltimeterTotals t = storedTotals();
    if (options.json) {
        JsonLine()
            .add("since", t.since)
            .add("updated", t.updated)
            .add("ascent_m", t.ascent)
            .add("descent_m", t.descent)
            .add("min_altitude_m", t.lowest)
            .add("max_altitude_m", t.highest)
            .print();
        return 0;
    }
    int unit = OrvexStorageMgr::getInstance()->getSettingDistance();
    auto distance = [unit](double metres) {
        return std::isnan(metres)
                   ? std::string("-")
                   : formatDouble(metresTo(unit, metres), 1) + " " + distanceUnitSymbol(unit);
    };
    printRows({{"since", localTime(t.since)},
               {"last counted", localTime(t.updated)},
               {"ascent", distance(t.ascent)},
               {"descent", distance(t.descent)},
               {"lowest", distance(t.lowest)},
               {"highest", distance(t.highest)}});
    return 0;
}

}  // namespace
}  // namespace orvex_tool
