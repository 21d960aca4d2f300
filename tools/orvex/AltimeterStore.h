// What the altimeter keeps between runs, in the application's own preference keys (beside the
// library's): the alert threshold and hook, the totals since the last reset and the last state
// of the estimate and the alert, which another process (`orvex stats`, `orvex status`) reads.
#ifndef ORVEX_TOOL_ALTIMETER_STORE_H
#define ORVEX_TOOL_ALTIMETER_STORE_H

#include <cmath>
#include <string>

namespace orvex_tool {

// hPa; the default when none is stored.
double storedAlertThreshold();
// 0 or the store's error; the value must lie in 1..10 hPa (checked by the caller).
int saveAlertThreshold(double hPa);
// The hook's command line, empty when there is none.
std::string storedAlertHook();
int saveAlertHook(const std::string& commandLine);

struct AltimeterTotals {
    double since = NAN;    // when counting began (the last reset), seconds since the epoch
    double updated = NAN;  // when something was last added
    double ascent = 0.0, descent = 0.0;
    double lowest = NAN, highest = NAN;  // metres; NaN before the first altitude
};
AltimeterTotals storedTotals();
int resetTotals(double now);
// Adds what a process counted since it last added (so that a reset in between is kept).
int addToTotals(double now, double ascent, double descent, double lowest, double highest);

struct AltimeterState {
    double time = NAN;  // of the reading it describes
    std::string mode;   // "moving" or "resting"
    double tendencyHpa = NAN;
    std::string tendency;  // the word, "unknown" before the first hour
    bool alertActive = false;
    double alertTime = NAN, alertTendencyHpa = NAN;
};
// The last state a running altimeter published; time is NaN when none did.
AltimeterState storedState();
int saveState(const AltimeterState& state);

}  // namespace orvex_tool

#endif
