// The altimeter of a running command: fed reading by reading, saving its totals now and then.
#include "AltimeterSession.h"

#include "AlertTeller.h"
#include "AltimeterStore.h"
#include "OrvexStorageMgr.h"

namespace orvex_tool {

using orvex_altimeter::AltimeterUpdate;
using orvex_altimeter::StormAlert;

namespace {
// Totals and state reach the store once a minute: often enough for `stats` and `status`, rarely
// enough to cost nothing.
constexpr double kSaveSeconds = 60.0;

double storedSlp() {
    double slp = OrvexStorageMgr::getInstance()->getDataSLP();
    return slp > 0.0 ? slp : orvex_altimeter::kStandardSlpHpa;
}
}  // namespace

AltimeterSession::AltimeterSession(bool keeps)
    : altimeter_(storedSlp(), storedAlertThreshold()), keeps_(keeps) {
    readSettings();
}

AltimeterSession::~AltimeterSession() {
    if (!std::isnan(now_)) save();
}

// The settings may change while the application runs; they are read again at each save.
void AltimeterSession::readSettings() {
    StormAlert& alert = altimeter_.alert();
    alert.setThreshold(storedAlertThreshold());
    bool on = OrvexStorageMgr::getInstance()->getSettingAlert() != 0;
    if (alert.setEnabled(on) == StormAlert::Change::Cleared)
        tellStormAlertOver(now_, altimeter_.tendency());
    hook_ = storedAlertHook();
}

AltimeterUpdate AltimeterSession::feed(double now, double hPa, double gnssAltitude) {
    AltimeterUpdate update = altimeter_.feed(now, hPa, gnssAltitude);
    now_ = now;
    double altitude = altimeter_.altitude();
    if (std::isnan(lowest_) || altitude < lowest_) lowest_ = altitude;
    if (std::isnan(highest_) || altitude > highest_) highest_ = altitude;
    if (!keeps_) return update;
    if (update.alert == StormAlert::Change::Raised) {
        const StormAlert& alert = altimeter_.alert();
        hookProblem_ = tellStormAlert({alert.raisedAt(), alert.raisedTendency(), hPa,
                                       altimeter_.seaLevelPressure(), alert.threshold()},
                                      hook_);
    } else if (update.alert == StormAlert::Change::Cleared) {
        tellStormAlertOver(now, altimeter_.tendency());
    }
    if (std::isnan(lastSave_)) lastSave_ = now;
    if (update.alert != StormAlert::Change::None || now - lastSave_ >= kSaveSeconds) save();
    return update;
}

void AltimeterSession::calibrated(double slpHpa) { altimeter_.calibrate(slpHpa); }

void AltimeterSession::save() {
    if (std::isnan(now_) || !keeps_) return;
    lastSave_ = now_;
    const auto& totals = altimeter_.totals();
    addToTotals(now_, totals.ascent() - savedAscent_, totals.descent() - savedDescent_, lowest_,
                highest_);
    savedAscent_ = totals.ascent();
    savedDescent_ = totals.descent();
    lowest_ = highest_ = NAN;

    AltimeterState state;
    state.time = now_;
    state.mode = orvex_altimeter::motionName(altimeter_.motion());
    state.tendencyHpa = altimeter_.tendency();
    state.tendency = orvex_altimeter::tendencyName(altimeter_.tendencyWord());
    state.alertActive = altimeter_.alert().active();
    if (state.alertActive) {
        state.alertTime = altimeter_.alert().raisedAt();
        state.alertTendencyHpa = altimeter_.alert().raisedTendency();
    }
    saveState(state);
    readSettings();
}

}  // namespace orvex_tool
