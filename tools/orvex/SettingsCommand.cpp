// The settings: shown with their meaning, or one changed.
#include <string>
#include <utility>
#include <vector>

#include "AlertTeller.h"
#include "AltimeterStore.h"
#include "OrvexStorageMgr.h"
#include "SettingsCommand.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runSettings(const Options& options, const Args& args);

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

[[maybe_unused]] const bool registered = addCommand(kSettings);

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

int runSettings(const Options& options, const Args& args) {
    if (!initialiseStore()) return fail(storeProblem());
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
    if (rc != 0) return fail("the setting was not stored: " + storeProblem(rc));
    return showSettings(options, s);
}

}  // namespace

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

}  // namespace orvex_tool
