// The change of the sea-level-pressure estimate over the last three hours, the barometric
// tendency of weather reports, and its word.
#ifndef ORVEX_ALTIMETER_PRESSURE_TENDENCY_H
#define ORVEX_ALTIMETER_PRESSURE_TENDENCY_H

#include <cmath>
#include <deque>

namespace orvex_altimeter {

enum class TendencyWord { Unknown, Rising, Steady, Falling, FallingFast };

const char* tendencyName(TendencyWord word);  // "rising", "steady", "falling", "falling fast"

class PressureTendency {
public:
    static constexpr double kPeriodSeconds = 3 * 3600.0;
    // The estimate is kept once a minute; an hour of it gives a first tendency.
    static constexpr double kSampleSeconds = 60.0;
    static constexpr double kFirstSeconds = 3600.0;
    // Within 1 hPa in 3 hours the pressure counts as steady: that is about the daily swing of the
    // atmospheric tide and of a sensor's temperature drift.
    static constexpr double kSteadyHpa = 1.0;

    // True when a new sample was kept, and the tendency may have changed.
    bool add(double t, double slpHpa);
    // The samples from t on were estimated wrongly; they become slpHpa.
    void revise(double t, double slpHpa);
    // A calibration moved the estimate: the past moves with it, the tendency does not.
    void shift(double hPa);

    // hPa over the last 3 hours (over the time kept, when that is less); NaN before the first
    // hour.
    double change() const { return change_; }
    // fallingFastHpa: the fall (positive) that counts as fast, the storm alert's threshold.
    TendencyWord word(double fallingFastHpa) const;

private:
    struct Sample {
        double t, slp;
    };
    std::deque<Sample> samples_;
    double change_ = NAN;
};

}  // namespace orvex_altimeter

#endif
