// orvex analyse: the altimeter's logic run over a recorded trace.
#include <cstdio>
#include <iostream>

#include "OrvexStorageMgr.h"
#include "StormAlert.h"
#include "Tool.h"
#include "TraceAnalysis.h"

namespace orvex_tool {
namespace {

using orvex_altimeter::StormAlert;

int runAnalyse(const Options& options, const Args& args);

const Command kAnalyse{
    "analyse", "ascent, storm alerts and moves in a recorded pressure trace",
    "FILE [--alert-threshold HPA]\n\n"
    "FILE holds \"seconds,hPa\" rows, as the trace sensor replays them, optionally with a third\n"
    "column: the GNSS altitude in metres, empty where there was no fix. Prints the ascent and\n"
    "descent, the lowest and highest altitude, the storm alerts (the sea-level pressure fell by\n"
    "HPA, 1 to 10, default 3, within 3 hours) with their times and tendencies, and when the\n"
    "altimeter switched between moving and resting. Altitudes start from the first row's GNSS\n"
    "altitude when it has one, else from the standard sea-level pressure. Times are those of the\n"
    "file, shown as time since its first row. --json prints one object.",
    runAnalyse};

[[maybe_unused]] const bool registered = addCommand(kAnalyse);

std::string elapsed(double seconds) {
    long long s = static_cast<long long>(seconds + 0.5);
    char text[48];
    snprintf(text, sizeof text, "%lld:%02lld:%02lld", s / 3600, s / 60 % 60, s % 60);
    return text;
}

int runAnalyse(const Options& options, const Args& args) {
    gchar* thresholdText = nullptr;
    GOptionEntry entries[] = {
        {"alert-threshold", 0, 0, G_OPTION_ARG_STRING, &thresholdText, nullptr, nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    Args rest = args;
    int rc = 0;
    bool parsed = parseOptions(kAnalyse, rest, entries, &rc);
    std::string given = thresholdText ? thresholdText : "";
    g_free(thresholdText);
    if (!parsed) return rc;
    if (rest.size() != 1) return usageError(kAnalyse, "expected one FILE");
    double threshold = StormAlert::kDefaultThresholdHpa;
    if (!given.empty() &&
        (!parseDouble(given, &threshold) || threshold < StormAlert::kMinThresholdHpa ||
         threshold > StormAlert::kMaxThresholdHpa))
        return fail("the alert threshold is 1 to 10 hPa, not '" + given + "'");

    orvex_altimeter::TraceSummary s = orvex_altimeter::TraceAnalysis::run(rest[0], threshold);
    if (!s.error.empty()) return fail(printable(s.error));

    if (options.json) {
        JsonLine json;
        json.add("rows", static_cast<long long>(s.rows))
            .add("duration_s", s.lastTime - s.firstTime)
            .add("start_slp_hpa", s.startSlpHpa)
            .add("alert_threshold_hpa", threshold)
            .add("ascent_m", s.ascent)
            .add("descent_m", s.descent)
            .add("min_altitude_m", s.lowest)
            .add("max_altitude_m", s.highest)
            .beginArray("alerts");
        for (const auto& a : s.alerts)
            json.beginObject()
                .add("time", a.time)
                .add("tendency_hpa_3h", a.tendencyHpa)
                .add("slp_hpa", a.slpHpa)
                .endObject();
        json.endArray().add("mode_switches", static_cast<long long>(s.switches.size()));
        json.beginArray("switches");
        for (const auto& m : s.switches)
            json.beginObject()
                .add("time", m.time)
                .add("mode", orvex_altimeter::motionName(m.to))
                .endObject();
        json.endArray().print();
        return 0;
    }

    int unit = initialiseStore() ? OrvexStorageMgr::getInstance()->getSettingDistance() : 0;
    auto distance = [unit](double metres) {
        return formatDouble(metresTo(unit, metres), 1) + " " + distanceUnitSymbol(unit);
    };
    printRows({{"rows", std::to_string(s.rows) + " over " + elapsed(s.lastTime - s.firstTime)},
               {"ascent", distance(s.ascent)},
               {"descent", distance(s.descent)},
               {"lowest", distance(s.lowest)},
               {"highest", distance(s.highest)},
               {"storm alerts", std::to_string(s.alerts.size()) + " (threshold " +
                                    formatDouble(threshold, 1) + " hPa in 3 h)"},
               {"mode switches", std::to_string(s.switches.size())}});
    for (const auto& a : s.alerts)
        std::cout << "  " << elapsed(a.time - s.firstTime)
                  << "  storm alert: " << formatDouble(a.tendencyHpa, 2)
                  << " hPa in 3 h, sea-level pressure " << formatDouble(a.slpHpa, 1) << " hPa\n";
    for (const auto& m : s.switches)
        std::cout << "  " << elapsed(m.time - s.firstTime) << "  "
                  << orvex_altimeter::motionName(m.to) << "\n";
    return 0;
}

}  // namespace
}  // namespace orvex_tool
