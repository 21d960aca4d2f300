// Back end "fixed": a configured position, where the host stands until told otherwise.
#include <glib.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>

#include "core/host_internal.h"
#include "location/location_source.h"
#include "orvex_host/location_control.h"
#include "orvex_host/plausible.h"

namespace orvex_host {
namespace location {

namespace {

// An alpine town: a plausible place for an altimeter to stand.
constexpr double kDefaultLatitude = 47.2692, kDefaultLongitude = 11.4041, kDefaultAltitude = 574;

std::string rangeProblem(double latitude, double longitude, double altitude) {
    if (!(latitude >= -90 && latitude <= 90 && longitude >= -180 && longitude <= 180))
        return "latitude is -90 to 90 and longitude -180 to 180";
    return orvex_host_plausible_altitude(altitude) ? "" : implausibleAltitude(altitude);
}

// "LATITUDE,LONGITUDE,ALTITUDE_M", as stored, or why the text is not one.
std::string parsePosition(const std::string& text, Fix* out) {
    g_auto(GStrv) parts = g_strsplit(text.c_str(), ",", -1);
    if (g_strv_length(parts) != 3 || !parseNumber(parts[0], &out->latitude) ||
        !parseNumber(parts[1], &out->longitude) || !parseNumber(parts[2], &out->altitude))
        return "'" + text + "' is not LATITUDE,LONGITUDE,ALTITUDE_M";
    return rangeProblem(out->latitude, out->longitude, out->altitude);
}

// The number as text that reads back as the same double.
std::string exact(double value) {
    char buf[G_ASCII_DTOSTR_BUF_SIZE];
    return g_ascii_dtostr(buf, sizeof buf, value);
}

class FixedSource : public Source {
public:
    bool up() override { return true; }

    std::optional<Fix> position(double) override {
        Fix fix;
        fix.latitude = kDefaultLatitude;
        fix.longitude = kDefaultLongitude;
        fix.altitude = kDefaultAltitude;
        auto text = orvex_host::config("location_position");
        problem_ = text ? parsePosition(*text, &fix) : "";
        if (!problem_.empty()) return std::nullopt;
        return fix;
    }

    std::string problem() override { return problem_; }

    const char* const* settings() const override {
        static const char* const keys[] = {"location_position", nullptr};
        return keys;
    }
    std::string checkSetting(const std::string&, const std::string& value) const override {
        Fix fix;
        return parsePosition(value, &fix);
    }

private:
    std::string problem_;
};

}  // namespace

std::unique_ptr<Source> makeFixedSource() { return std::make_unique<FixedSource>(); }

}  // namespace location
}  // namespace orvex_host

extern "C" int orvex_host_location_set_position(double latitude, double longitude,
                                                double altitude) {
    using namespace orvex_host::location;
    if (!rangeProblem(latitude, longitude, altitude).empty()) return -EINVAL;
    std::string text = exact(latitude) + "," + exact(longitude) + "," + exact(altitude);
    return orvex_host::saveConfig("location_position", text);
}
