// Whether a run of GNSS fixes and barometer readings is settled enough to calibrate against.
#include "CalibrationPolicy.h"

#include <algorithm>

namespace orvex_tool {

double CalibrationPolicy::mslHeight(const GnssFix& fix) {
    if (std::isfinite(fix.altMsl)) return fix.altMsl;
    if (std::isfinite(fix.altHae) && std::isfinite(fix.geoidSep)) return fix.altHae - fix.geoidSep;
    return NAN;
}

CalibrationPolicy::Verdict CalibrationPolicy::fixFault(const GnssFix& fix) const {
    if (!fix.threeD) return Verdict::NotThreeD;
    if (!std::isfinite(fix.time) || !std::isfinite(fix.latitude) || !std::isfinite(fix.longitude))
        return Verdict::NotFinite;
    if (!std::isfinite(mslHeight(fix))) {
        // An ellipsoid height without its separation cannot be turned into one above sea level.
        return std::isfinite(fix.altHae) ? Verdict::NoMslHeight : Verdict::NotFinite;
    }
    // What the receiver does not report (NAN) does not count against the fix; an infinite value
    // does.
    if (!std::isnan(fix.verticalError) &&
        !(std::isfinite(fix.verticalError) && fix.verticalError <= kMaxVerticalErrorM))
        return Verdict::VerticalError;
    if (!std::isnan(fix.climb) && !(std::fabs(fix.climb) < kMaxClimbMs)) return Verdict::Climbing;
    return Verdict::Settled;
}

CalibrationPolicy::Verdict CalibrationPolicy::addFix(const GnssFix& fix) {
    if (std::isfinite(fix.time) && std::isfinite(lastTime_) && fix.time <= lastTime_)
        return verdict_;
    lastTime_ = fix.time;
    Verdict fault = fixFault(fix);
    if (fault != Verdict::Settled) {
        fixes_.clear();
        readings_.clear();
        return verdict_ = fault;
    }
    fixes_.push_back(Kept{fix.time, mslHeight(fix), readingCount_});
    return verdict_ = evaluate();
}

void CalibrationPolicy::addReading(double pressureHpa, double baroAltitudeM) {
    if (!std::isfinite(pressureHpa) || !std::isfinite(baroAltitudeM)) return;
    readings_.push_back(Reading{readingCount_++, pressureHpa, baroAltitudeM});
    // A reading can settle a window that had too few of them, or unsettle one.
    if (!fixes_.empty()) verdict_ = evaluate();
}

CalibrationPolicy::Verdict CalibrationPolicy::evaluate() {
    const size_t n = fixes_.size();
    const double newest = fixes_.back().time;
    // The shortest run of the newest fixes that has enough of them and spans long enough.
    size_t spanStart = n;
    for (size_t i = n; i-- > 0;) {
        if (newest - fixes_[i].time >= kMinSpanSeconds) {
            spanStart = i;
            break;
        }
    }
    if (n < kMinFixes) return spanStart < n ? Verdict::TooFewFixes : Verdict::TooShort;
    if (spanStart == n) return Verdict::TooShort;
    const size_t start = std::min(spanStart, n - kMinFixes);
    // Later windows start no earlier, so what lies before this one is never needed again.
    fixes_.erase(fixes_.begin(), fixes_.begin() + static_cast<std::ptrdiff_t>(start));
    const size_t firstReading = fixes_.front().firstReading;
    while (!readings_.empty() && readings_.front().index < firstReading) readings_.pop_front();
    if (readings_.size() < kMinReadings) return Verdict::TooFewReadings;

    double pressureSum = 0, heightSum = 0;
    double lo = readings_.front().altitude, hi = lo;
    for (const auto& r : readings_) {
        pressureSum += r.pressure;
        lo = std::min(lo, r.altitude);
        hi = std::max(hi, r.altitude);
    }
    for (const auto& f : fixes_) heightSum += f.height;
    window_ = Window{heightSum / static_cast<double>(fixes_.size()),
                     pressureSum / static_cast<double>(readings_.size()),
                     fixes_.size(),
                     readings_.size(),
                     newest - fixes_.front().time,
                     hi - lo};
    return hi - lo <= kMaxBaroRangeM ? Verdict::Settled : Verdict::BaroUnsteady;
}

void CalibrationPolicy::reset() {
    fixes_.clear();
    readings_.clear();
    lastTime_ = NAN;
    verdict_ = Verdict::TooFewFixes;
}

const char* CalibrationPolicy::describe(Verdict verdict) {
    switch (verdict) {
        case Verdict::Settled:
            return "settled";
        case Verdict::NotThreeD:
            return "no 3D fix";
        case Verdict::NotFinite:
            return "a fix without a finite position or time";
        case Verdict::NoMslHeight:
            return "an ellipsoid height without the geoid separation";
        case Verdict::VerticalError:
            return "vertical error over 10 m";
        case Verdict::Climbing:
            return "climbing or descending";
        case Verdict::TooFewFixes:
            return "fewer than 10 good fixes in a row";
        case Verdict::TooShort:
            return "good fixes for less than 30 s";
        case Verdict::TooFewReadings:
            return "too few barometer readings";
        case Verdict::BaroUnsteady:
            return "barometric altitude not steady within 1 m";
    }
    return "unknown";
}

}  // namespace orvex_tool
