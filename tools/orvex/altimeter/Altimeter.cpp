// What the altimeter tells from each reading: motion, estimate, tendency, alert and ascent.
#include "Altimeter.h"

namespace orvex_altimeter {

Altimeter::Altimeter(double slpHpa, double alertThresholdHpa)
    : slp_(slpHpa), alert_(alertThresholdHpa) {}

AltimeterUpdate Altimeter::feed(double t, double hPa, double gnssAltitude) {
    AltimeterUpdate update;
    if (!(t >= lastT_) || !std::isfinite(hPa) || hPa <= 0.0) return update;
    lastT_ = t;
    ++readings_;
    const double pressureAltitude = altitudeFor(hPa, kStandardSlpHpa);
    update.motionChanged = motion_.update(t, pressureAltitude, gnssAltitude);
    double revisedFrom = slp_.update(t, hPa, gnssAltitude, motion_.motion(), update.motionChanged);
    if (!std::isnan(revisedFrom)) tendency_.revise(revisedFrom, slp_.slp());
    if (tendency_.add(t, slp_.slp())) {
        update.tendencyChanged = true;
        update.alert = alert_.update(t, tendency_.change());
    }
    totals_.add(slp_.altitude());
    climb_.add(t, pressureAltitude);
    return update;
}

void Altimeter::calibrate(double slpHpa) {
    tendency_.shift(slp_.calibrate(slpHpa));
    totals_.rebase(slp_.altitude());
}

double Altimeter::verticalSpeed() const {
    // At rest the altitude holds, and so the speed is nil: what moves the pressure is weather.
    // Moving, the estimate holds (or follows the weather slowly), so the pressure altitude climbs
    // as the altitude does, without the step that recognising a move puts into the altitude.
    if (motion() == Motion::Resting) return 0.0;
    if (climb_.span() < 30.0) return NAN;
    return climb_.slope() * 60.0;
}

}  // namespace orvex_altimeter
