// The storm alert: the sea-level-pressure estimate fell by the threshold within three hours.
#ifndef ORVEX_ALTIMETER_STORM_ALERT_H
#define ORVEX_ALTIMETER_STORM_ALERT_H

namespace orvex_altimeter {

class StormAlert {
public:
    static constexpr double kDefaultThresholdHpa = 3.0;
    static constexpr double kMinThresholdHpa = 1.0;
    static constexpr double kMaxThresholdHpa = 10.0;

    enum class Change { None, Raised, Cleared };

    explicit StormAlert(double thresholdHpa = kDefaultThresholdHpa) : threshold_(thresholdHpa) {}

    // One alert per fall: it is raised when the 3-hour tendency reaches minus the threshold and
    // re-armed only once the tendency has come back to half of that. The estimate's wobble of a
    // few hundredths of a hPa, or a fall that pauses for an hour, therefore never makes one storm
    // two alerts, while a new fall after the pressure steadied is a new one. A NaN tendency
    // changes nothing.
    Change update(double t, double tendencyHpa);

    double threshold() const { return threshold_; }
    void setThreshold(double thresholdHpa) { threshold_ = thresholdHpa; }
    // When off, nothing is raised; an alert already raised is cleared.
    Change setEnabled(bool enabled);
    bool enabled() const { return enabled_; }

    bool active() const { return active_; }
    double raisedAt() const { return raisedAt_; }
    double raisedTendency() const { return raisedTendency_; }

private:
    double threshold_;
    bool enabled_ = true;
    bool active_ = false;
    double raisedAt_ = 0.0, raisedTendency_ = 0.0;
};

}  // namespace orvex_altimeter

#endif
