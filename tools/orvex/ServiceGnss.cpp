// The location service's position, accuracy and velocity as one GNSS fix.
#include "ServiceGnss.h"

#include <glib.h>
#include <orvex_host/location_control.h>

#include <cstring>

namespace orvex_tool {

bool GnssSource::measured() {
    const char* backend = orvex_host_location_backend();
    return backend && strcmp(backend, "fixed") != 0;
}

bool GnssSource::start(std::string* why) {
    if (manager_) return true;
    bool enabled = false;
    if (!location_manager_is_supported_method(LOCATIONS_METHOD_HYBRID) ||
        location_manager_is_enabled_method(LOCATIONS_METHOD_HYBRID, &enabled) != 0 || !enabled) {
        *why = "location is switched off";
        return false;
    }
    int rc = location_manager_create(LOCATIONS_METHOD_HYBRID, &manager_);
    if (rc == 0) rc = location_manager_start(manager_);
    if (rc != 0) {
        stop();
        *why = "the location service does not start (error " + std::to_string(rc) + ")";
        return false;
    }
    return true;
}

bool GnssSource::read(GnssFix* fix, std::string* why) {
    double altitude = NAN, latitude = NAN, longitude = NAN;
    time_t when = 0;
    int rc = manager_
                 ? location_manager_get_position(manager_, &altitude, &latitude, &longitude, &when)
                 : LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE;
    if (rc != 0) {
        const char* problem = orvex_host_location_problem();
        *why = problem ? problem : "no position yet";
        return false;
    }
    *fix = GnssFix{};
    fix->time = static_cast<double>(when);
    // Without a 3D fix the service gives no altitude.
    fix->threeD = std::isfinite(altitude);
    fix->latitude = latitude;
    fix->longitude = longitude;
    fix->altMsl = altitude;
    // Figures the receiver does not report stay NAN and do not count against the fix.
    location_accuracy_level_e level = LOCATIONS_ACCURACY_NONE;
    double horizontal = NAN, vertical = NAN, climb = NAN, direction = NAN, speed = NAN;
    if (location_manager_get_accuracy(manager_, &level, &horizontal, &vertical) == 0)
        fix->verticalError = vertical;
    if (location_manager_get_velocity(manager_, &climb, &direction, &speed) == 0)
        fix->climb = climb;
    return true;
}

void GnssSource::stop() {
    if (!manager_) return;
    location_manager_stop(manager_);
    location_manager_destroy(manager_);
    manager_ = nullptr;
}

}  // namespace orvex_tool
