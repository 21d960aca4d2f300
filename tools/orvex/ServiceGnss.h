// The location service's fixes as the service's GNSS calibration takes them.
#ifndef ORVEX_TOOL_SERVICE_GNSS_H
#define ORVEX_TOOL_SERVICE_GNSS_H

#include <platform/location_manager.h>

#include <string>

#include "CalibrationPolicy.h"

namespace orvex_tool {

class GnssSource {
public:
    GnssSource() = default;
    ~GnssSource() { stop(); }
    GnssSource(const GnssSource&) = delete;
    GnssSource& operator=(const GnssSource&) = delete;

    // Whether the location back end measures the position (a receiver, a recorded track) rather
    // than repeating a configured one, which would calibrate every barometer to its height.
    static bool measured();

    bool start(std::string* why);
    // The fix now; false, with why, while there is none.
    bool read(GnssFix* fix, std::string* why);
    void stop();

private:
    location_manager_h manager_ = nullptr;
};

}  // namespace orvex_tool

#endif
