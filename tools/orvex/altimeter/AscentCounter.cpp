// Ascent and descent with a turn counted only past the hysteresis, lowest and highest altitude.
#include "AscentCounter.h"

#include <cmath>

namespace orvex_altimeter {

void AscentCounter::add(double altitude) {
    if (std::isnan(lowest_) || altitude < lowest_) lowest_ = altitude;
    if (std::isnan(highest_) || altitude > highest_) highest_ = altitude;
    if (!started_) {
        started_ = true;
        extreme_ = altitude;
        return;
    }
    double move = altitude - extreme_;
    // Onward in the same direction counts at once; a turn only past the hysteresis.
    bool up = way_ == Way::Up ? move > 0.0 : move >= kTurnMetres;
    bool down = way_ == Way::Down ? move < 0.0 : move <= -kTurnMetres;
    if (up) {
        ascent_ += move;
        way_ = Way::Up;
    } else if (down) {
        descent_ -= move;
        way_ = Way::Down;
    } else {
        return;
    }
    extreme_ = altitude;
}

void AscentCounter::rebase(double altitude) {
    extreme_ = altitude;
    way_ = Way::Unknown;
}
void AscentCounter::restore(double ascent, double descent, double lowest, double highest) {
    ascent_ = ascent;
    descent_ = descent;
    lowest_ = lowest;
    highest_ = highest;
}

void AscentCounter::reset() { *this = AscentCounter(); }

}  // namespace orvex_altimeter
