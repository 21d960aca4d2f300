// A recorded trace run through the altimeter: what it climbed, the storm alerts it raised and when
// it switched between moving and resting.
#ifndef ORVEX_ALTIMETER_TRACE_ANALYSIS_H
#define ORVEX_ALTIMETER_TRACE_ANALYSIS_H

#include <string>
#include <vector>

#include "Motion.h"

namespace orvex_altimeter {

struct TraceAlert {
    double time;
    double tendencyHpa;  // over 3 hours
    double slpHpa;       // the estimate then
};

struct TraceModeSwitch {
    double time;
    Motion to;
};

struct TraceSummary {
    long rows = 0;
    double ascent = 0.0, descent = 0.0;
    double lowest = 0.0, highest = 0.0;
    double firstTime = 0.0, lastTime = 0.0;
    double startSlpHpa = 0.0;
    std::vector<TraceAlert> alerts;
    std::vector<TraceModeSwitch> switches;
    std::string error;  // one line; the rest is then empty
};

class TraceAnalysis {
public:
    // The estimate starts from the first row's GNSS altitude when it has one, else from the
    // standard sea-level pressure, so that altitudes are pressure altitudes.
    static TraceSummary run(const std::string& path, double alertThresholdHpa);
};

}  // namespace orvex_altimeter

#endif
