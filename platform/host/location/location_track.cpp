// Back end "track": a track file replayed as the host's position, followed on the points' own
// times from the moment a manager starts.
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>

#include "core/host_internal.h"
#include "location/location_source.h"
#include "location/location_track_reader.h"
#include "orvex_host/location_control.h"

namespace orvex_host {
namespace location {

namespace {

// How long one main-loop iteration may spend reading a track.
constexpr gint64 kSliceUs = 20000;

// One version of a file: positions are asked for far more often than tracks change.
struct Version {
    dev_t dev = 0;
    ino_t ino = 0;
    time_t mtime = 0;
    long mtimeNs = 0;
    off_t size = -1;
    bool operator==(const Version& o) const {
        return dev == o.dev && ino == o.ino && mtime == o.mtime && mtimeNs == o.mtimeNs &&
               size == o.size;
    }
};

// The track file as last read, or being read.
struct TrackFile {
    std::string path;
    Version version;
    std::unique_ptr<TrackReader> reader;  // while it is being read
    std::deque<TrackPoint> points;
    std::string error;
    guint slices = 0;  // the main-loop source reading on
} g_file;

bool g_started = false;  // a track source is started and waits for its file

void finishRead() {
    g_file.points = std::move(g_file.reader->points);
    g_file.error = std::move(g_file.reader->error);
    g_file.reader.reset();
}

gboolean readSlice(gpointer) {
    if (!g_file.reader->step(kSliceUs)) return G_SOURCE_CONTINUE;
    g_file.slices = 0;
    finishRead();
    if (g_started) sourceUp(true);
    return G_SOURCE_REMOVE;
}

void forget() {
    if (g_file.slices) g_source_remove(g_file.slices);
    g_file = TrackFile{};
}

// The file's state now, read anew when it is another file or another version of it. wait: read
// to the end now; otherwise one slice now and the rest on the main loop.
const TrackFile& trackFile(const std::string& path, bool wait) {
    struct stat st;
    std::string problem = trackFileProblem(path, &st);
    Version v;
    if (problem.empty())
        v = Version{st.st_dev, st.st_ino, st.st_mtim.tv_sec, st.st_mtim.tv_nsec, st.st_size};
    bool fresh = path != g_file.path || !(v == g_file.version) || !problem.empty();
    if (fresh) {
        forget();
        g_file.path = path;
        g_file.version = v;
        g_file.error = problem;
        if (problem.empty()) g_file.reader = std::make_unique<TrackReader>(path);
    }
    // A small file is read at once; the rest of a large one on the main loop.
    if (g_file.reader && (fresh || wait) && g_file.reader->step(wait ? 0 : kSliceUs)) {
        if (g_file.slices) g_source_remove(g_file.slices);
        g_file.slices = 0;
        finishRead();
    } else if (g_file.reader && !g_file.slices) {
        g_file.slices = g_idle_add(readSlice, nullptr);
    }
    return g_file;
}

std::optional<std::string> trackPath() { return orvex_host::config("location_track"); }

class TrackSource : public Source {
public:
    ~TrackSource() override { stop(); }

    void start() override {
        started_ = g_started = true;
        if (auto path = trackPath()) trackFile(*path, false);
    }
    void stop() override {
        if (started_) g_started = false;
        started_ = false;
    }

    // Up once the file is read, whether or not it holds a track; the position then says.
    bool up() override {
        auto path = trackPath();
        return !path || !trackFile(*path, false).reader;
    }

    std::optional<Fix> position(double sinceStart) override {
        auto path = trackPath();
        if (!path) {
            problem_ = "location back end 'track' without a track file";
            return std::nullopt;
        }
        const TrackFile& t = trackFile(*path, false);
        problem_ = t.reader ? *path + ": still being read" : t.error;
        if (t.points.empty()) return std::nullopt;
        // The last point at or before the moment; the first before the track begins.
        auto after = std::upper_bound(t.points.begin(), t.points.end(), sinceStart,
                                      [](double s, const TrackPoint& p) { return s < p.seconds; });
        return (after == t.points.begin() ? after : after - 1)->fix;
    }

    std::string problem() override {
        auto path = trackPath();
        if (!path) return "no track file set";
        position(0);
        return problem_;
    }

    const char* const* settings() const override {
        static const char* const keys[] = {"location_track", nullptr};
        return keys;
    }
    // The environment's track is checked without reading it, which may take a while; the
    // position says what is wrong with its content.
    std::string checkSetting(const std::string&, const std::string& value) const override {
        struct stat st;
        return trackFileProblem(value, &st);
    }
    const char* required() const override { return "location_track"; }

private:
    bool started_ = false;
    std::string problem_;
};

[[maybe_unused]] const bool g_reset = orvex_host::onReset(&forget);

}  // namespace

std::unique_ptr<Source> makeTrackSource() { return std::make_unique<TrackSource>(); }

}  // namespace location
}  // namespace orvex_host

using namespace orvex_host::location;

extern "C" const char* orvex_host_location_track_problem(const char* path) {
    static thread_local std::string slot;
    return orvex_host::lendProblem(slot,
                                   path ? trackFile(path, true).error : "no track file given");
}

extern "C" int orvex_host_location_set_track(const char* path) {
    if (path) {
        if (orvex_host_location_track_problem(path)) return -EINVAL;
    }
    const char* name = path ? nameOf(makeTrackSource) : backends()[0].name;
    if (int rc = orvex_host::saveConfig("location_track", path); rc != 0) return rc;
    return orvex_host::saveConfig("location_backend", name);
}
