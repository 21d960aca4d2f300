// Decides, reading by reading, whether pressure changes are altitude (moving) or weather (resting).
#ifndef ORVEX_ALTIMETER_MOTION_DETECTOR_H
#define ORVEX_ALTIMETER_MOTION_DETECTOR_H

#include "LinearTrend.h"
#include "Motion.h"

namespace orvex_altimeter {

// Weather changes the pressure by a few hPa in three hours: even the 10 hPa of the strongest alert
// threshold is 0.5 m/min of apparent altitude at sea level (0.6 m/min at 3000 m). A climb of 5 m
// within 3 minutes (1.7 m/min, three times that) is therefore never weather, while walkers,
// stairs and lifts all climb faster. The device counts as moving from the first such change and
// as resting again when none showed for 10 minutes, so that a pause at a viewpoint stays part of
// the walk (the watches that switch between altimeter and barometer by themselves keep to about
// the same figures). The rate is the least-squares slope over the 3 minutes, which also rides out
// the metres of noise of a GNSS altitude; where a GNSS fix is present its rate decides.
class MotionDetector {
public:
    static constexpr double kWindowSeconds = 180.0;
    static constexpr double kMovingMetres = 5.0;
    static constexpr double kRestAfterSeconds = 600.0;

    // pressureAltitude: altitude at the standard sea-level pressure; gnssAltitude: NaN without a
    // fix. True when the motion changed with this reading.
    bool update(double t, double pressureAltitude, double gnssAltitude);

    Motion motion() const { return motion_; }
    // Whether the last update's rate came from GNSS.
    bool gnssDecides() const { return gnssDecides_; }
    // Metres per second of the source that decided; NaN while it has too little to go on.
    double rate() const { return rate_; }

private:
    LinearTrend baro_{kWindowSeconds};
    LinearTrend gnss_{kWindowSeconds};
    Motion motion_ = Motion::Resting;
    double lastEvidence_ = 0.0;
    double rate_ = 0.0;
    bool gnssDecides_ = false;
};

}  // namespace orvex_altimeter

#endif
