// A recorded trace run through the altimeter, with its totals, alerts and mode switches.
#include "TraceAnalysis.h"

#include <cmath>

#include "Altimeter.h"
#include "TraceReader.h"

namespace orvex_altimeter {

TraceSummary TraceAnalysis::run(const std::string& path, double alertThresholdHpa) {
    TraceSummary summary;
    TraceReader reader(path);
    TraceRow row;
    if (!reader.next(&row)) {
        summary.error = reader.error();
        return summary;
    }
    summary.firstTime = row.seconds;
    summary.startSlpHpa =
        std::isfinite(row.gnssAltitude) ? slpFor(row.gnssAltitude, row.hPa) : kStandardSlpHpa;
    Altimeter altimeter(summary.startSlpHpa, alertThresholdHpa);
    do {
        AltimeterUpdate u = altimeter.feed(row.seconds, row.hPa, row.gnssAltitude);
        if (u.motionChanged) summary.switches.push_back({row.seconds, altimeter.motion()});
        if (u.alert == StormAlert::Change::Raised)
            summary.alerts.push_back(
                {row.seconds, altimeter.alert().raisedTendency(), altimeter.seaLevelPressure()});
        summary.lastTime = row.seconds;
    } while (reader.next(&row));
    if (!reader.error().empty()) {
        TraceSummary failed;
        failed.error = reader.error();
        return failed;
    }
    summary.rows = static_cast<long>(reader.rows());
    summary.ascent = altimeter.totals().ascent();
    summary.descent = altimeter.totals().descent();
    summary.lowest = altimeter.totals().lowest();
    summary.highest = altimeter.totals().highest();
    return summary;
}

}  // namespace orvex_altimeter
