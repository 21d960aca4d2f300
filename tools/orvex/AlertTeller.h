// Tells a storm alert: in the log, and to the hook command the user configured.
#ifndef ORVEX_TOOL_ALERT_TELLER_H
#define ORVEX_TOOL_ALERT_TELLER_H

#include <string>

namespace orvex_tool {

struct StormAlertFacts {
    double time;         // seconds since the epoch
    double tendencyHpa;  // over 3 hours
    double pressureHpa;  // the reading that raised it
    double slpHpa;       // the sea-level-pressure estimate
    double thresholdHpa;
};

// Logs a warning and, when hookCommandLine is not empty, starts it without waiting for it, with the
// figures in its environment: ORVEX_ALERT_TIME, ORVEX_ALERT_TENDENCY_HPA,
// ORVEX_ALERT_PRESSURE_HPA, ORVEX_ALERT_SLP_HPA and ORVEX_ALERT_THRESHOLD_HPA. The command line is
// split into words as a shell would, but no shell runs it. Its output goes to stderr, its input
// is /dev/null. Returns an empty string, or why the hook did not start (also logged).
std::string tellStormAlert(const StormAlertFacts& facts, const std::string& hookCommandLine);
// Logs that the alert is over.
void tellStormAlertOver(double time, double tendencyHpa);

// Empty when commandLine splits into words, else why not.
std::string hookProblem(const std::string& commandLine);

}  // namespace orvex_tool

#endif
