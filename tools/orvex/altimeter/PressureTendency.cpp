// The three-hour change of the sea-level-pressure estimate and its words.
#include "PressureTendency.h"

#include <cmath>

namespace orvex_altimeter {

const char* tendencyName(TendencyWord word) {
    switch (word) {
        case TendencyWord::Rising:
            return "rising";
        case TendencyWord::Steady:
            return "steady";
        case TendencyWord::Falling:
            return "falling";
        case TendencyWord::FallingFast:
            return "falling fast";
        default:
            return "unknown";
    }
}

bool PressureTendency::add(double t, double slpHpa) {
    if (!samples_.empty() && t - samples_.back().t < kSampleSeconds) return false;
    samples_.push_back({t, slpHpa});
    const double from = t - kPeriodSeconds;
    // One sample at or before the start of the period stays, to interpolate the value there.
    while (samples_.size() > 2 && samples_[1].t <= from) samples_.pop_front();
    const Sample& first = samples_.front();
    if (t - first.t < kFirstSeconds) {
        change_ = NAN;
    } else if (first.t >= from) {
        change_ = slpHpa - first.slp;
    } else {
        const Sample& next = samples_[1];
        double then = first.slp + (next.slp - first.slp) * (from - first.t) / (next.t - first.t);
        change_ = slpHpa - then;
    }
    return true;
}

void PressureTendency::revise(double t, double slpHpa) {
    for (auto it = samples_.rbegin(); it != samples_.rend() && it->t >= t; ++it) it->slp = slpHpa;
}

void PressureTendency::shift(double hPa) {
    for (auto& s : samples_) s.slp += hPa;
}

TendencyWord PressureTendency::word(double fallingFastHpa) const {
    if (std::isnan(change_)) return TendencyWord::Unknown;
    if (change_ <= -fallingFastHpa) return TendencyWord::FallingFast;
    if (change_ <= -kSteadyHpa) return TendencyWord::Falling;
    if (change_ >= kSteadyHpa) return TendencyWord::Rising;
    return TendencyWord::Steady;
}

}  // namespace orvex_altimeter
