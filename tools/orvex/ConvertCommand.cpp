// The altitude arithmetic: a pressure's altitude, an altitude's pressure, a known altitude's
// sea-level pressure.
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OrvexStorageMgr.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runConvert(const Options& options, const Args& args);

const Command kConvert{
    "convert", "convert pressure to altitude and back",
    "altitude PRESSURE_HPA [--slp HPA]\n"
    "       orvex convert pressure ALTITUDE_M\n"
    "       orvex convert slp ALTITUDE_M PRESSURE_HPA\n\n"
    "altitude: the altitude of a pressure against the stored (or the given) sea-level pressure\n"
    "pressure: the pressure at an altitude for the stored sea-level pressure\n"
    "slp:      the sea-level pressure that puts a pressure at a known altitude (not stored)",
    runConvert};
[[maybe_unused]] const bool registered = addCommand(kConvert);

int runConvert(const Options& options, const Args& givenArgs) {
    Args args = givenArgs;
    gchar* slpText = nullptr;
    GOptionEntry entries[] = {
        {"slp", 0, 0, G_OPTION_ARG_STRING, &slpText, nullptr, nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    int rc = 0;
    bool parsed = parseOptions(kConvert, args, entries, &rc);
    const std::optional<std::string> slpOption =
        slpText ? std::optional<std::string>(slpText) : std::nullopt;
    g_free(slpText);
    if (!parsed) return rc;
    if (args.empty()) return usageError(kConvert, "expected altitude, pressure or slp");
    if (!initialiseStore()) return fail(storeProblem());
    OrvexStorageMgr* s = OrvexStorageMgr::getInstance();
    int dUnit = s->getSettingDistance();
    int pUnit = s->getSettingPressure();
    const std::string& what = args[0];
    // key and value in the order printed
    std::vector<std::pair<const char*, double>> values;
    std::vector<std::pair<std::string, std::string>> rows;

    if (what == "altitude") {
        double pressure = 0;
        const bool haveSlp = slpOption.has_value();
        if (args.size() != 2 || !parseDouble(args[1], &pressure))
            return usageError(kConvert, "expected: altitude PRESSURE_HPA [--slp HPA]");
        double slp = 0;
        if (haveSlp && (!parseDouble(*slpOption, &slp) || slp <= 0))
            return fail("the sea-level pressure '" + *slpOption +
                        "' is not a positive number of hPa");
        if (pressure <= 0) return fail("the pressure must be above 0 hPa");
        double altitude = haveSlp ? s->getAltivalue(pressure, slp) : s->getAltivalue(pressure);
        double reference = haveSlp ? slp : s->getDataSLP();
        if (reference <= 0) reference = s->getDefaultSLP();
        values = {{"pressure_hpa", pressure}, {"slp_hpa", reference}, {"altitude_m", altitude}};
        rows = {{"pressure", formatDouble(pressure, 2) + " hPa"},
                {"sea-level pressure", formatDouble(reference, 2) + " hPa"},
                {"altitude",
                 formatDouble(metresTo(dUnit, altitude), 1) + " " + distanceUnitSymbol(dUnit)}};
    } else if (what == "pressure") {
        double altitude = 0;
        if (args.size() != 2 || slpOption || !parseDouble(args[1], &altitude))
            return usageError(kConvert, "expected: pressure ALTITUDE_M");
        double pressure = s->getBarovalue(altitude);
        values = {
            {"altitude_m", altitude}, {"slp_hpa", s->getDataSLP()}, {"pressure_hpa", pressure}};
        rows = {{"altitude", formatDouble(altitude, 1) + " m"},
                {"sea-level pressure", formatDouble(s->getDataSLP(), 2) + " hPa"},
                {"pressure", formatDouble(hpaTo(pUnit, pressure), pUnit == 0 ? 1 : 2) + " " +
                                 pressureUnitSymbol(pUnit)}};
    } else if (what == "slp") {
        double altitude = 0, pressure = 0;
        if (args.size() != 3 || slpOption || !parseDouble(args[1], &altitude) ||
            !parseDouble(args[2], &pressure))
            return usageError(kConvert, "expected: slp ALTITUDE_M PRESSURE_HPA");
        double slp = s->getManualSLP(altitude, pressure);
        values = {{"altitude_m", altitude}, {"pressure_hpa", pressure}, {"slp_hpa", slp}};
        rows = {{"altitude", formatDouble(altitude, 1) + " m"},
                {"pressure", formatDouble(pressure, 2) + " hPa"},
                {"sea-level pressure", formatDouble(slp, 2) + " hPa"}};
    } else {
        return usageError(kConvert, "unknown conversion '" + what + "'");
    }
    // Past the formula's reach (44330 m, a pressure far beyond the reference) there is no answer.
    for (const auto& v : values)
        if (!std::isfinite(v.second)) return fail("the result is not a finite number");
    if (options.json) {
        JsonLine json;
        for (const auto& v : values) json.add(v.first, v.second);
        json.print();
    } else {
        printRows(rows);
    }
    return 0;
}

}  // namespace
}  // namespace orvex_tool
