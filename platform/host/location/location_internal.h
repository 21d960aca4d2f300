// Pieces of the host location service shared by its back ends: replayed tracks and gpsd.
#ifndef ORVEX_HOST_LOCATION_INTERNAL_H
#define ORVEX_HOST_LOCATION_INTERNAL_H

#include <optional>
#include <string>
#include <vector>

namespace orvex_host {
namespace location {

struct Fix {
    double latitude, longitude, altitude;
};

struct TrackPoint {
    double seconds;  // since the track's first point
    Fix fix;
};

// Reads a track: GPX 1.0/1.1 track points, or CSV "seconds,latitude,longitude,altitude" rows.
// On failure the points are empty and *error is one line naming the file (and line when known).
std::vector<TrackPoint> readTrack(const std::string& path, std::string* error);

// Error line from the host's location service into the platform log.
void logError(const std::string& message);
void logInfo(const std::string& message);

// The gpsd client. Connects to host:port on the default main context, keeps the newest fix and
// calls onFix with each new fix and when the fix is lost (nullopt); `changed` tells whether
// there was a fix before. Reconnects with back-off when gpsd is gone.
using FixCallback = void (*)(const std::optional<Fix>& fix, bool changed);
void gpsdStart(const std::string& host, int port, FixCallback onFix);
void gpsdStop();
std::optional<Fix> gpsdFix();
// Why there is no fix: gpsd unreachable, or no fix reported yet. Empty with a fix.
std::string gpsdProblem();

}  // namespace location
}  // namespace orvex_host

#endif
