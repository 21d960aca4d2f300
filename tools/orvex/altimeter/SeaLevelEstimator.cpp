// The sea-level-pressure estimate and the altitude, each held or followed by the motion.
#include "SeaLevelEstimator.h"

#include <algorithm>
#include <cmath>

#include "Atmosphere.h"
#include "MotionDetector.h"

namespace orvex_altimeter {

namespace {
// The pressure is smoothed over half a minute for the weather: a sensor's 0.03 hPa of noise then
// moves the estimate by under 0.01 hPa, and the weather's fastest falls lag by less than that.
constexpr double kPressureTau = 30.0;
// The GNSS estimate is smoothed over 5 minutes (5 m of noise a fix at 1 Hz leaves 0.03 hPa) and
// trusted once it has averaged 2 minutes of fixes.
constexpr double kGnssTau = 300.0;
constexpr double kGnssSettleSeconds = 120.0;
constexpr double kFixLostSeconds = 30.0;
// A move is recognised within the detector's window; the estimate goes back to its start.
constexpr double kRevise = MotionDetector::kWindowSeconds;
}  // namespace

double SeaLevelEstimator::smoothing(double dt, double tau, double* lastDt,
                                    double* lastAlpha) const {
    // Readings come at a steady interval, so the exponential is rarely computed.
    if (dt != *lastDt) {
        *lastDt = dt;
        *lastAlpha = 1.0 - std::exp(-dt / tau);
    }
    return *lastAlpha;
}

void SeaLevelEstimator::hold(double altitude) {
    altitude_ = altitude;
    heldFactor_ = std::pow(1.0 - altitude / 44330.0, 5.255);
}

double SeaLevelEstimator::update(double t, double hPa, double gnssAltitude, Motion motion,
                                 bool motionChanged) {
    if (!started_) {
        started_ = true;
        pressure_ = hPa;
        hold(altitudeFor(hPa, slp_));
    } else {
        double dt = t - lastT_;
        pressure_ += smoothing(dt, kPressureTau, &pDt_, &pAlpha_) * (hPa - pressure_);
    }
    lastT_ = t;

    if (std::isfinite(gnssAltitude)) {
        double sample = slpFor(gnssAltitude, hPa);
        if (gnssCount_ == 0 || t - lastFix_ > kFixLostSeconds) {
            gnssCount_ = 0;
            gnssSince_ = t;
            anchored_ = false;
        }
        ++gnssCount_;
        // The plain mean until the smoothing's own weight takes over.
        double alpha = std::max(smoothing(t - lastFix_, kGnssTau, &gDt_, &gAlpha_),
                                1.0 / static_cast<double>(gnssCount_));
        gnssSlp_ += alpha * (sample - gnssSlp_);
        lastFix_ = t;
    } else if (gnssCount_ > 0 && t - lastFix_ > kFixLostSeconds) {
        gnssCount_ = 0;
        anchored_ = false;
    }
    bool settled = gnssCount_ > 0 && t - gnssSince_ >= kGnssSettleSeconds;

    double revisedFrom = NAN;
    if (motionChanged && motion == Motion::Moving) {
        // Back to the estimate from before the move began.
        const Past* then = nullptr;
        for (const auto& p : past_) {
            if (p.t > t - kRevise) break;
            then = &p;
        }
        if (!then && !past_.empty()) then = &past_.front();
        if (then) {
            slp_ = then->slp;
            revisedFrom = then->t;
            anchored_ = std::isfinite(then->gnssSlp) && settled;
            anchorSlp_ = slp_;
            anchorGnssSlp_ = then->gnssSlp;
        }
    } else if (motionChanged) {
        hold(altitudeFor(pressure_, slp_));
    }

    if (motion == Motion::Resting) {
        slp_ = pressure_ / heldFactor_;
    } else {
        if (settled && !anchored_) {
            anchored_ = true;
            anchorSlp_ = slp_;
            anchorGnssSlp_ = gnssSlp_;
        }
        if (settled) slp_ = anchorSlp_ + (gnssSlp_ - anchorGnssSlp_);
        altitude_ = altitudeFor(hPa, slp_);
    }

    past_.push_back({t, slp_, settled ? gnssSlp_ : NAN});
    while (past_.size() > 1 && past_[1].t <= t - kRevise) past_.pop_front();
    return revisedFrom;
}

double SeaLevelEstimator::calibrate(double slpHpa) {
    double change = slpHpa - slp_;
    slp_ = slpHpa;
    anchorSlp_ += change;
    for (auto& p : past_) p.slp += change;
    if (started_) hold(altitudeFor(pressure_, slp_));
    return change;
}

}  // namespace orvex_altimeter
