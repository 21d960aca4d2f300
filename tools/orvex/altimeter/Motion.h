// Whether the altimeter is carried up or down, or lies still while the weather moves the pressure.
#ifndef ORVEX_ALTIMETER_MOTION_H
#define ORVEX_ALTIMETER_MOTION_H

namespace orvex_altimeter {

enum class Motion { Resting, Moving };

inline const char* motionName(Motion m) { return m == Motion::Moving ? "moving" : "resting"; }

}  // namespace orvex_altimeter

#endif
