// The least-squares slope over a sliding window of time.
#include "LinearTrend.h"

#include <cmath>

namespace orvex_altimeter {

void LinearTrend::add(double t, double value) {
    if (samples_.empty()) base_ = t;
    samples_.push_back({t, value});
    double x = t - base_;
    st_ += x;
    sv_ += value;
    stt_ += x * x;
    stv_ += x * value;
    while (t - samples_.front().t > window_) {
        double ox = samples_.front().t - base_, ov = samples_.front().value;
        st_ -= ox;
        sv_ -= ov;
        stt_ -= ox * ox;
        stv_ -= ox * ov;
        samples_.pop_front();
    }
    // Sums that were added to and taken from for long drift; a fresh start keeps them exact.
    if (t - base_ > 8.0 * window_) rebase();
}

void LinearTrend::rebase() {
    base_ = samples_.front().t;
    st_ = sv_ = stt_ = stv_ = 0.0;
    for (const auto& s : samples_) {
        double x = s.t - base_;
        st_ += x;
        sv_ += s.value;
        stt_ += x * x;
        stv_ += x * s.value;
    }
}

void LinearTrend::clear() {
    samples_.clear();
    st_ = sv_ = stt_ = stv_ = 0.0;
}

double LinearTrend::slope() const {
    double n = static_cast<double>(samples_.size());
    if (n < 2 || span() <= 0.0) return NAN;
    double spread = stt_ - st_ * st_ / n;
    if (spread <= 0.0) return NAN;
    return (stv_ - st_ * sv_ / n) / spread;
}

}  // namespace orvex_altimeter
