// The least-squares slope of a value over a sliding window of time.
#ifndef ORVEX_ALTIMETER_LINEAR_TREND_H
#define ORVEX_ALTIMETER_LINEAR_TREND_H

#include <cstddef>
#include <deque>

namespace orvex_altimeter {

class LinearTrend {
public:
    explicit LinearTrend(double windowSeconds) : window_(windowSeconds) {}

    // Times must not go back.
    void add(double t, double value);
    void clear();

    // Units of value per second; NaN until the window holds two samples at different times.
    double slope() const;
    // Seconds between the oldest and the newest sample.
    double span() const { return samples_.empty() ? 0.0 : samples_.back().t - samples_.front().t; }
    size_t size() const { return samples_.size(); }
    double latestTime() const { return samples_.empty() ? 0.0 : samples_.back().t; }

private:
    struct Sample {
        double t, value;
    };
    void rebase();

    double window_;
    std::deque<Sample> samples_;
    // Sums over the window, times taken from base_ so that squares of epoch seconds do not eat
    // the precision.
    double base_ = 0.0;
    double st_ = 0.0, sv_ = 0.0, stt_ = 0.0, stv_ = 0.0;
};

}  // namespace orvex_altimeter

#endif
