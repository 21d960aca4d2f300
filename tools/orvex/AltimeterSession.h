// The altimeter as a running application has it: the estimate starts from the stored calibration,
// the alert follows the alert setting, its threshold and hook, raised alerts are told, and the
// totals and the last state are kept for the other processes. `live` and the service feed it
// each reading.
#ifndef ORVEX_TOOL_ALTIMETER_SESSION_H
#define ORVEX_TOOL_ALTIMETER_SESSION_H

#include <cmath>
#include <string>

#include "Altimeter.h"

namespace orvex_tool {

class AltimeterSession {
public:
    // Reads the stored sea-level pressure and the alert settings; the store must be initialised.
    // A session that does not keep (a `live` beside a running service, which keeps them already)
    // shows what it sees but neither adds to the totals nor tells alerts a second time.
    explicit AltimeterSession(bool keeps = true);
    // Keeps what was counted since the last save.
    ~AltimeterSession();
    AltimeterSession(const AltimeterSession&) = delete;
    AltimeterSession& operator=(const AltimeterSession&) = delete;

    // now: seconds since the epoch; gnssAltitude: metres above mean sea level, NaN without a fix.
    orvex_altimeter::AltimeterUpdate feed(double now, double hPa, double gnssAltitude = NAN);
    // After a calibration stored slpHpa: the altitude follows it, the tendency does not jump.
    void calibrated(double slpHpa);
    // Keeps the totals and the state now (feed does so once a minute).
    void save();

    const orvex_altimeter::Altimeter& altimeter() const { return altimeter_; }
    bool alertEnabled() const { return altimeter_.alert().enabled(); }
    // Why the hook of the last alert did not start, or empty.
    const std::string& hookProblem() const { return hookProblem_; }

private:
    void readSettings();

    orvex_altimeter::Altimeter altimeter_;
    const bool keeps_;
    std::string hook_;
    std::string hookProblem_;
    double now_ = NAN;
    double lastSave_ = NAN;
    double savedAscent_ = 0.0, savedDescent_ = 0.0;
    double lowest_ = NAN, highest_ = NAN;  // since the last save
};

}  // namespace orvex_tool

#endif
