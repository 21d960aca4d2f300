// Reading a track file (GPX 1.0/1.1 track points, or CSV rows) in steps, so that a large one never
// holds the main loop up for long.
#ifndef ORVEX_HOST_LOCATION_TRACK_READER_H
#define ORVEX_HOST_LOCATION_TRACK_READER_H

#include <glib.h>
#include <sys/stat.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "location/location_source.h"

namespace orvex_host {
namespace location {

struct TrackPoint {
    double seconds;  // since the track's first point
    Fix fix;
};

// Why the file at path cannot be a track before anything of it is read (missing, not a regular
// file, too large), one line naming it; empty when it may be one. *st is then its status.
std::string trackFileProblem(const std::string& path, struct stat* st);

class TrackReader {
public:
    explicit TrackReader(std::string path);
    ~TrackReader();
    TrackReader(const TrackReader&) = delete;
    TrackReader& operator=(const TrackReader&) = delete;

    // Reads on for about budgetUs microseconds (0: to the end); true once the file is read.
    bool step(gint64 budgetUs);
    bool done() const { return done_; }
    // Once done: the points, or none and one line naming the file (and the line in it). A deque:
    // a long track grows without being copied on the main loop.
    std::deque<TrackPoint> points;
    std::string error;

    struct Parser;

private:
    bool open();
    bool feed(const char* data, size_t length);
    bool finish();
    bool fail(const std::string& message);

    std::string path_;
    int fd_ = -1;
    size_t read_ = 0;
    std::string pending_;  // leading blanks, before the format is known
    bool done_ = false;
    std::unique_ptr<Parser> parser_;
};

}  // namespace location
}  // namespace orvex_host

#endif
