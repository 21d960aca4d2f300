// Moving or resting, from the barometric altitude's slope or a GNSS fix's.
#include "MotionDetector.h"

#include <cmath>

namespace orvex_altimeter {

namespace {
// A fix older than this is gone. The barometer's trend is worth a look after a minute; a GNSS
// altitude's metres of noise need the whole window (5 m a fix at 1 Hz leaves 0.4 m/min of noise
// in the slope over 3 minutes, a quarter of the rate that means moving).
constexpr double kFixLostSeconds = 30.0;
constexpr double kBaroSpanSeconds = 60.0;
constexpr double kGnssSpanSeconds = 0.9 * MotionDetector::kWindowSeconds;
constexpr size_t kMinGnssSamples = 5;
}  // namespace

bool MotionDetector::update(double t, double pressureAltitude, double gnssAltitude) {
    baro_.add(t, pressureAltitude);
    if (std::isfinite(gnssAltitude)) {
        if (gnss_.size() > 0 && t - gnss_.latestTime() > kFixLostSeconds) gnss_.clear();
        gnss_.add(t, gnssAltitude);
    }
    gnssDecides_ = gnss_.size() >= kMinGnssSamples && gnss_.span() >= kGnssSpanSeconds &&
                   t - gnss_.latestTime() <= kFixLostSeconds;
    if (gnssDecides_)
        rate_ = gnss_.slope();
    else
        rate_ = baro_.span() >= kBaroSpanSeconds ? baro_.slope() : NAN;

    bool evidence = std::fabs(rate_) * kWindowSeconds >= kMovingMetres;
    if (evidence) lastEvidence_ = t;
    Motion next = motion_;
    if (evidence)
        next = Motion::Moving;
    else if (motion_ == Motion::Moving && t - lastEvidence_ >= kRestAfterSeconds)
        next = Motion::Resting;
    bool changed = next != motion_;
    motion_ = next;
    return changed;
}

}  // namespace orvex_altimeter
