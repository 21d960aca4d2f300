// The storm alert: raised once per fall past the threshold, re-armed on recovery.
#include "StormAlert.h"

#include <cmath>

namespace orvex_altimeter {

StormAlert::Change StormAlert::update(double t, double tendencyHpa) {
    if (std::isnan(tendencyHpa)) return Change::None;
    if (active_) {
        if (tendencyHpa < -threshold_ / 2.0) return Change::None;
        active_ = false;
        return Change::Cleared;
    }
    if (!enabled_ || tendencyHpa > -threshold_) return Change::None;
    active_ = true;
    raisedAt_ = t;
    raisedTendency_ = tendencyHpa;
    return Change::Raised;
}

StormAlert::Change StormAlert::setEnabled(bool enabled) {
    enabled_ = enabled;
    if (enabled || !active_) return Change::None;
    active_ = false;
    return Change::Cleared;
}

}  // namespace orvex_altimeter
