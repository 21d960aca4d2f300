// When a GNSS receiver's height is good enough to calibrate the barometer against it.
//
// A receiver's height is only worth a calibration on a settled 3D fix taken while standing still:
// at least kMinFixes consecutive 3D fixes spanning kMinSpanSeconds, each with its vertical error
// within kMaxVerticalErrorM and its climb under kMaxClimbMs where the receiver reports them, and
// the barometric altitude steady within kMaxBaroRangeM over the same window. The height must be
// above mean sea level: altMSL, else altHAE - geoidSep; an ellipsoid height alone is 30-50 m off
// in much of the world and is never taken.
//
// Fed with fixes and barometric readings in the order they arrive; the readings belong to the
// window by arrival, so the receiver's clock and the barometer's need not agree.
#ifndef ORVEX_TOOL_CALIBRATION_POLICY_H
#define ORVEX_TOOL_CALIBRATION_POLICY_H

#include <cmath>
#include <cstddef>
#include <deque>

namespace orvex_tool {

struct GnssFix {
    double time = NAN;  // seconds, on the receiver's clock
    bool threeD = false;
    double latitude = NAN, longitude = NAN;
    double altMsl = NAN;         // height above mean sea level (m)
    double altHae = NAN;         // height above the ellipsoid (m)
    double geoidSep = NAN;       // the geoid's height above the ellipsoid (m)
    double verticalError = NAN;  // m; NAN where not reported
    double climb = NAN;          // m/s, positive up; NAN where not reported
};

class CalibrationPolicy {
public:
    static constexpr size_t kMinFixes = 10;
    static constexpr double kMinSpanSeconds = 30.0;
    static constexpr double kMaxVerticalErrorM = 10.0;
    static constexpr double kMaxClimbMs = 0.1;
    static constexpr double kMaxBaroRangeM = 1.0;
    static constexpr size_t kMinReadings = 3;

    enum class Verdict {
        Settled,
        // The fix just given broke the run of good fixes:
        NotThreeD,
        NotFinite,
        NoMslHeight,
        VerticalError,
        Climbing,
        // The run is good so far but not a settled window yet:
        TooFewFixes,
        TooShort,
        TooFewReadings,
        BaroUnsteady,
    };

    struct Window {
        double altitudeM;  // mean height above mean sea level
        double pressureHpa;
        size_t fixes, readings;
        double spanSeconds;
        double baroRangeM;
    };

    // A fix whose time is not after the previous one's is the same fix seen again: nothing
    // changes and the verdict stays.
    Verdict addFix(const GnssFix& fix);
    // baroAltitudeM: the reading's altitude against any one sea-level pressure.
    void addReading(double pressureHpa, double baroAltitudeM);

    Verdict verdict() const { return verdict_; }
    // Valid while verdict() is Settled.
    const Window& window() const { return window_; }
    void reset();

    // The height above mean sea level of a fix, NAN without one.
    static double mslHeight(const GnssFix& fix);
    static const char* describe(Verdict verdict);

private:
    struct Kept {
        double time;
        double height;
        size_t firstReading;  // readings that came before it
    };
    struct Reading {
        size_t index;
        double pressure, altitude;
    };

    Verdict fixFault(const GnssFix& fix) const;
    Verdict evaluate();

    std::deque<Kept> fixes_;
    std::deque<Reading> readings_;
    size_t readingCount_ = 0;
    double lastTime_ = NAN;
    Verdict verdict_ = Verdict::TooFewFixes;
    Window window_{};
};

}  // namespace orvex_tool

#endif
