// The sea-level-pressure estimate and the altitude, kept apart by the motion: moving, the estimate
// holds and the altitude follows the pressure; resting, the altitude holds and the estimate
// follows the pressure (the weather).
#ifndef ORVEX_ALTIMETER_SEA_LEVEL_ESTIMATOR_H
#define ORVEX_ALTIMETER_SEA_LEVEL_ESTIMATOR_H

#include <deque>

#include "Motion.h"

namespace orvex_altimeter {

class SeaLevelEstimator {
public:
    explicit SeaLevelEstimator(double slpHpa) : slp_(slpHpa) {}

    // motionChanged: the motion became `motion` with this reading. Returns the time from which
    // the estimates given so far are revised (a move is recognised only once it has gone on for a
    // while, and what it did to the estimate before that is taken back), or NaN.
    double update(double t, double hPa, double gnssAltitude, Motion motion, bool motionChanged);

    // A calibration: the estimate becomes slpHpa and the altitude follows. Returns the change.
    double calibrate(double slpHpa);

    double slp() const { return slp_; }
    double altitude() const { return altitude_; }

private:
    void hold(double altitude);
    double smoothing(double dt, double tau, double* lastDt, double* lastAlpha) const;

    double slp_;
    double altitude_ = 0.0;
    double heldFactor_ = 1.0;  // pressure over sea-level pressure at the held altitude
    bool started_ = false;
    double lastT_ = 0.0;
    double pressure_ = 0.0;  // smoothed
    double pDt_ = -1.0, pAlpha_ = 1.0;

    // Sea-level pressure that puts each fix's altitude at its pressure, smoothed. Its changes,
    // never its value, move the estimate: a GNSS altitude is often tens of metres off, but it
    // stays off by about as much for as long as a walk.
    double gnssSlp_ = 0.0;
    double gnssSince_ = 0.0, lastFix_ = 0.0;
    long gnssCount_ = 0;
    double gDt_ = -1.0, gAlpha_ = 1.0;
    bool anchored_ = false;
    double anchorSlp_ = 0.0, anchorGnssSlp_ = 0.0;

    struct Past {
        double t, slp, gnssSlp;  // gnssSlp NaN while no settled fix
    };
    std::deque<Past> past_;
};

}  // namespace orvex_altimeter

#endif
