// What the altimeter keeps between runs, in the application's own preference keys.
#include "AltimeterStore.h"

#include <glib.h>
#include <platform/app_preference.h>

#include <cstdlib>
#include <sstream>
#include <vector>

#include "StormAlert.h"

namespace orvex_tool {

namespace {

const char* const kThresholdKey = "ORVEX_APP_ALERT_THRESHOLD";
const char* const kHookKey = "ORVEX_APP_ALERT_HOOK";
const char* const kTotalsKey = "ORVEX_APP_TOTALS";
const char* const kStateKey = "ORVEX_APP_ALTIMETER_STATE";

std::string readString(const char* key) {
    char* value = nullptr;
    if (preference_get_string(key, &value) != PREFERENCE_ERROR_NONE || !value) return "";
    std::string text = value;
    free(value);
    return text;
}

// Records are numbers and words separated by blanks, numbers in the C locale; "-" is NaN.
std::string field(double value) {
    if (std::isnan(value)) return "-";
    char buffer[G_ASCII_DTOSTR_BUF_SIZE];
    return g_ascii_dtostr(buffer, sizeof buffer, value);
}

std::vector<std::string> fields(const std::string& record) {
    std::istringstream in(record);
    std::vector<std::string> out;
    for (std::string f; in >> f;) out.push_back(f);
    return out;
}

double number(const std::string& text) {
    char* end = nullptr;
    double v = g_ascii_strtod(text.c_str(), &end);
    return text.empty() || *end != '\0' ? NAN : v;
}

}  // namespace

double storedAlertThreshold() {
    double value = 0.0;
    if (preference_get_double(kThresholdKey, &value) != PREFERENCE_ERROR_NONE ||
        !(value >= orvex_altimeter::StormAlert::kMinThresholdHpa &&
          value <= orvex_altimeter::StormAlert::kMaxThresholdHpa))
        return orvex_altimeter::StormAlert::kDefaultThresholdHpa;
    return value;
}

int saveAlertThreshold(double hPa) { return preference_set_double(kThresholdKey, hPa); }

std::string storedAlertHook() { return readString(kHookKey); }

int saveAlertHook(const std::string& commandLine) {
    if (commandLine.empty()) {
        int rc = preference_remove(kHookKey);
        return rc == PREFERENCE_ERROR_NO_KEY ? 0 : rc;
    }
    return preference_set_string(kHookKey, commandLine.c_str());
}

AltimeterTotals storedTotals() {
    AltimeterTotals totals;
    std::vector<std::string> f = fields(readString(kTotalsKey));
    if (f.size() != 6) return totals;
    totals.since = number(f[0]);
    totals.updated = number(f[1]);
    totals.ascent = number(f[2]);
    totals.descent = number(f[3]);
    totals.lowest = number(f[4]);
    totals.highest = number(f[5]);
    if (std::isnan(totals.ascent) || std::isnan(totals.descent)) return AltimeterTotals();
    return totals;
}

namespace {
int saveTotals(const AltimeterTotals& t) {
    std::string record = field(t.since) + " " + field(t.updated) + " " + field(t.ascent) + " " +
                         field(t.descent) + " " + field(t.lowest) + " " + field(t.highest);
    return preference_set_string(kTotalsKey, record.c_str());
}
}  // namespace

int resetTotals(double now) {
    AltimeterTotals totals;
    totals.since = now;
    return saveTotals(totals);
}

int addToTotals(double now, double ascent, double descent, double lowest, double highest) {
    AltimeterTotals totals = storedTotals();
    if (std::isnan(totals.since)) totals.since = now;
    totals.updated = now;
    totals.ascent += ascent;
    totals.descent += descent;
    if (std::isnan(totals.lowest) || lowest < totals.lowest) totals.lowest = lowest;
    if (std::isnan(totals.highest) || highest > totals.highest) totals.highest = highest;
    return saveTotals(totals);
}

AltimeterState storedState() {
    AltimeterState state;
    std::vector<std::string> f = fields(readString(kStateKey));
    // The word has a blank in it ("falling fast"), so it comes last.
    if (f.size() < 7) return state;
    state.time = number(f[0]);
    state.mode = f[1];
    state.tendencyHpa = number(f[2]);
    state.alertActive = f[3] == "1";
    state.alertTime = number(f[4]);
    state.alertTendencyHpa = number(f[5]);
    state.tendency = f[6];
    for (size_t i = 7; i < f.size(); ++i) state.tendency += " " + f[i];
    return state;
}

int saveState(const AltimeterState& s) {
    std::string record = field(s.time) + " " + s.mode + " " + field(s.tendencyHpa) + " " +
                         (s.alertActive ? "1" : "0") + " " + field(s.alertTime) + " " +
                         field(s.alertTendencyHpa) + " " + s.tendency;
    return preference_set_string(kStateKey, record.c_str());
}

}  // namespace orvex_tool
