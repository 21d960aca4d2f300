// The standard atmosphere in the form the library converts with, for the altimeter's own classes,
// which must not need the settings store to turn a pressure into an altitude.
#ifndef ORVEX_ALTIMETER_ATMOSPHERE_H
#define ORVEX_ALTIMETER_ATMOSPHERE_H

#include <cmath>

namespace orvex_altimeter {

constexpr double kStandardSlpHpa = 1013.25;

inline double altitudeFor(double hPa, double slpHpa) {
    return (1.0 - std::pow(hPa / slpHpa, 0.19029495718363465)) * 44330.0;
}

// The sea-level pressure that puts hPa at altitude.
inline double slpFor(double altitude, double hPa) {
    return hPa / std::pow(1.0 - altitude / 44330.0, 5.255);
}

}  // namespace orvex_altimeter

#endif
