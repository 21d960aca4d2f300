// Commands on the settings store and the altitude arithmetic.
#include <cmath>
#include <iostream>
#include <map>

#include "AlertTeller.h"
#include "AltimeterStore.h"
#include "OrvexStorageMgr.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runInit(const Options& options, const Args& args);
int runSettings(const Options& options, const Args& args);
int runConvert(const Options& options, const Args& args);

const Command kInit{"init", "initialise the store as the application does at start", "", runInit};
const Command kSettings{
    "settings", "show the settings, or change one",
    "[set NAME VALUE]\n\n"
    "Names and values:\n"
    "  distance      0 metres, 1 feet\n"
    "  pressure      0 hPa, 1 inHg, 2 mmHg\n"
    "  manual        manual sea-level pressure mode, 0 off, 1 on\n"
    "  alert         storm alert, 0 off, 1 on\n"
    "  auto-refresh  automatic calibration refresh, 0 off, 1 on\n"
    "  alert-threshold  the fall in 3 hours that raises the storm alert,\n"
    "                1 to 10 hPa (default 3)\n"
    "  alert-hook    a command started with each storm alert, the figures in\n"
    "                its environment (ORVEX_ALERT_TIME, ORVEX_ALERT_TENDENCY_HPA,\n"
    "                ORVEX_ALERT_PRESSURE_HPA, ORVEX_ALERT_SLP_HPA,\n"
    "                ORVEX_ALERT_THRESHOLD_HPA); \"\" for none",
    runSettings};
const Command kConvert{
    "convert", "convert pressure to altitude and back",
    "altitude PRESSURE_HPA [--slp HPA]\n"
    "       orvex convert pressure ALTITUDE_M\n"
    "       orvex convert slp ALTITUDE_M PRESSURE_HPA\n\n"
    "altitude: the altitude of a pressure against the stored (or the given) sea-level pressure\n"
    "pressure: the pressure at an altitude for the stored sea-level pressure\n"
    "slp:      the sea-level pressure that puts a pressure at a known altitude (not stored)",
    runConvert};

[[maybe_unused]] const bool registered =
    addCommand(kInit) && addCommand(kSettings) && addCommand(kConvert);

struct SettingRow {
    const char* name;
    int value;
    std::string meaning;
};

std::vector<SettingRow> settingRows(OrvexStorageMgr* s) {
    int distance = s->getSettingDistance();
    int pressure = s->getSettingPressure();
    int manual = s->getSettingManualMode();
    int autoRefresh = s->getAutoRefresh();
    return {
        {"distance", distance, distanceUnitName(distance)},
        {"pressure", pressure,
         std::string(pressureUnitSymbol(pressure)) + " (" + pressureUnitName(pressure) + ")"},
        {"manual", manual, manual ? "on" : "off"},
        {"alert", s->getSettingAlert(), s->getSettingAlert() ? "on" : "off"},
        {"auto-refresh", autoRefresh, autoRefresh ? "on" : "off"},
    };
}

int showSettings(const Options& options, OrvexStorageMgr* s) {
    std::vector<SettingRow> rows = settingRows(s);
    double slp = s->getDataSLP();
    if (options.json) {
        JsonLine json;
        for (const auto& r : rows) json.add(r.name, r.value);
        const std::string hook = storedAlertHook();
        json.add("alert-threshold", storedAlertThreshold())
            .add("alert-hook", hook.empty() ? nullptr : hook.c_str())
            .add("distance_unit", distanceUnitSymbol(rows[0].value))
            .add("pressure_unit", pressureUnitSymbol(rows[1].value))
            .add("slp_hpa", slp)
            .print();
        return 0;
    }
    std::vector<std::pair<std::string, std::string>> out;
    for (const auto& r : rows)
        out.emplace_back(r.name,
                         std::to_string(r.value) + (r.meaning.empty() ? "" : "  " + r.meaning));
    const std::string hook = storedAlertHook();
    out.emplace_back("alert-threshold", formatDouble(storedAlertThreshold(), 1) + " hPa");
    out.emplace_back("alert-hook", hook.empty() ? "none" : printable(hook));
    out.emplace_back("sea-level pressure", formatDouble(slp, 2) + " hPa");
    printRows(out);
    return 0;
}

// The storm alert's own settings, kept by the application beside the library's.
int setAltimeterSetting(const std::string& name, const std::string& value) {
    int rc;
    if (name == "alert-threshold") {
        double hPa = 0;
        if (!parseDouble(value, &hPa) || hPa < 1.0 || hPa > 10.0)
            return fail("alert-threshold is 1 to 10 hPa");
        rc = saveAlertThreshold(hPa);
    } else {
        if (!value.empty()) {
            std::string problem = hookProblem(value);
            if (!problem.empty())
                return fail("alert-hook is not a command line: " + printable(problem));
        }
        rc = saveAlertHook(value);
    }
    return rc ? fail("the store refused the value (error " + std::to_string(rc) + ")") : 0;
}

int runInit(const Options& options, const Args& args) {
    if (!args.empty()) return usageError(kInit, "takes no arguments");
    if (!initialiseStore()) return fail("cannot create the settings store");
    return showSettings(options, OrvexStorageMgr::getInstance());
}

int runSettings(const Options& options, const Args& args) {
    if (!initialiseStore()) return fail("cannot create the settings store");
    OrvexStorageMgr* s = OrvexStorageMgr::getInstance();
    if (args.empty()) return showSettings(options, s);
    if (args[0] != "set" || args.size() != 3)
        return usageError(kSettings, "expected: set NAME VALUE");
    const std::string& name = args[1];
    if (name == "alert-threshold" || name == "alert-hook") {
        int rc = setAltimeterSetting(name, args[2]);
        return rc ? rc : showSettings(options, s);
    }
    int value = 0;
    if (!parseInt(args[2], &value)) return fail("'" + args[2] + "' is not a whole number");
    int rc;
    if (name == "distance") {
        if (value < 0 || value > 1) return fail("distance is 0 (metres) or 1 (feet)");
        rc = s->saveSettingDistance(value);
    } else if (name == "pressure") {
        if (value < 0 || value > 2) return fail("pressure is 0 (hPa), 1 (inHg) or 2 (mmHg)");
        rc = s->saveSettingPressure(value);
    } else if (name == "manual") {
        rc = s->saveSettingManualMode(value);
    } else if (name == "alert") {
        if (value < 0 || value > 1) return fail("alert is 0 (off) or 1 (on)");
        rc = s->saveSettingAlert(value);
    } else if (name == "auto-refresh") {
        rc = s->saveAutoRefresh(value);
    } else {
        return fail("unknown setting '" + name + "'");
    }
    if (rc != 0) return fail("the store refused the value (error " + std::to_string(rc) + ")");
    return showSettings(options, s);
}

int runConvert(const Options& options, const Args& args) {
    if (args.empty()) return usageError(kConvert, "expected altitude, pressure or slp");
    if (!initialiseStore()) return fail("cannot create the settings store");
    OrvexStorageMgr* s = OrvexStorageMgr::getInstance();
    int dUnit = s->getSettingDistance();
    int pUnit = s->getSettingPressure();
    const std::string& what = args[0];
    // key and value in the order printed
    std::vector<std::pair<const char*, double>> values;
    std::vector<std::pair<std::string, std::string>> rows;

    if (what == "altitude") {
        double pressure = 0;
        bool haveSlp = args.size() == 4 && args[2] == "--slp";
        if ((args.size() != 2 && !haveSlp) || !parseDouble(args[1], &pressure))
            return usageError(kConvert, "expected: altitude PRESSURE_HPA [--slp HPA]");
        double slp = 0;
        if (haveSlp && (!parseDouble(args[3], &slp) || slp <= 0))
            return fail("the sea-level pressure '" + args[3] + "' is not a positive number of hPa");
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
        if (args.size() != 2 || !parseDouble(args[1], &altitude))
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
        if (args.size() != 3 || !parseDouble(args[1], &altitude) ||
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
