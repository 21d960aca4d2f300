// What the altimeter tells from pressure readings (and GNSS altitudes where there is a fix):
// climbing or weather, the sea-level-pressure estimate and its tendency, the storm alert, ascent
// and descent, vertical speed. Fed with readings only; the same object serves a live sensor, the
// service and a recorded trace.
#ifndef ORVEX_ALTIMETER_ALTIMETER_H
#define ORVEX_ALTIMETER_ALTIMETER_H

#include <cmath>

#include "AscentCounter.h"
#include "Atmosphere.h"
#include "LinearTrend.h"
#include "MotionDetector.h"
#include "PressureTendency.h"
#include "SeaLevelEstimator.h"
#include "StormAlert.h"

namespace orvex_altimeter {

// What one reading changed.
struct AltimeterUpdate {
    bool motionChanged = false;  // see Altimeter::motion()
    StormAlert::Change alert = StormAlert::Change::None;
    bool tendencyChanged = false;  // a new tendency (once a minute)
};

class Altimeter {
public:
    // slpHpa: where the estimate starts (the stored calibration, or one from a known altitude).
    explicit Altimeter(double slpHpa = kStandardSlpHpa,
                       double alertThresholdHpa = StormAlert::kDefaultThresholdHpa);

    // t in seconds (not going back; a reading that does is ignored), hPa, and the GNSS altitude
    // in metres above mean sea level or NaN without a fix.
    AltimeterUpdate feed(double t, double hPa, double gnssAltitude = NAN);

    // A calibration: the estimate and the altitude move, the tendency and the totals do not.
    void calibrate(double slpHpa);

    Motion motion() const { return motion_.motion(); }
    double altitude() const { return slp_.altitude(); }
    double seaLevelPressure() const { return slp_.slp(); }
    // hPa over 3 hours, NaN in the first hour.
    double tendency() const { return tendency_.change(); }
    TendencyWord tendencyWord() const { return tendency_.word(alert_.threshold()); }
    // Metres a minute over the last minute; 0 at rest, NaN until half a minute of readings.
    double verticalSpeed() const;

    StormAlert& alert() { return alert_; }
    const StormAlert& alert() const { return alert_; }
    AscentCounter& totals() { return totals_; }
    const AscentCounter& totals() const { return totals_; }
    long readings() const { return readings_; }

private:
    MotionDetector motion_;
    SeaLevelEstimator slp_;
    PressureTendency tendency_;
    StormAlert alert_;
    AscentCounter totals_;
    LinearTrend climb_{60.0};
    long readings_ = 0;
    double lastT_ = -INFINITY;
};

}  // namespace orvex_altimeter

#endif
