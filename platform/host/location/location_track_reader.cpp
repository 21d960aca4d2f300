// Track files from a GNSS logger (GPX) or written by hand (CSV), read in bounded steps.
#include "location/location_track_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "core/csv_reader.h"
#include "orvex_host/plausible.h"

namespace orvex_host {
namespace location {
namespace {

// Far beyond a week's logging at one point a second; a larger file is not a track.
constexpr off_t kMaxTrackBytes = 64 << 20;
constexpr size_t kMaxTrackPoints = 1000000;
// Real GPX nests six levels deep, extensions a few more. GMarkup keeps a frame per open element.
constexpr size_t kMaxGpxDepth = 64;
constexpr size_t kChunkBytes = 32 << 10;
// Receivers stamp points from clocks that wobble; a step back shorter than this is no step.
constexpr double kJitterSeconds = 1.0;

std::string cannotRead(const std::string& path, int err) {
    return path + ": cannot read (" + strerror(err) + ")";
}

std::string tooLarge(const std::string& path) {
    return path + ": too large for a track (more than " + std::to_string(kMaxTrackBytes >> 20) +
           " MiB)";
}

}  // namespace

std::string trackFileProblem(const std::string& path, struct stat* st) {
    if (stat(path.c_str(), st) != 0) return cannotRead(path, errno);
    if (!S_ISREG(st->st_mode)) return path + ": not a regular file";
    if (st->st_size > kMaxTrackBytes) return tooLarge(path);
    return "";
}

// What the two formats share: the points in time order and the file's name for messages.
struct TrackReader::Parser {
    explicit Parser(TrackReader* reader) : r(reader) {}
    virtual ~Parser() = default;
    // False once the file is refused; r->error then says why.
    virtual bool feed(const char* data, size_t length) = 0;
    virtual bool finish() = 0;

    // The point at `when` (seconds on the file's own clock), or what is wrong with it.
    std::string add(double when, const Fix& fix) {
        std::deque<TrackPoint>& points = r->points;
        if (points.size() == kMaxTrackPoints)
            return "more than " + std::to_string(kMaxTrackPoints) + " points";
        if (points.empty()) first = when;
        double seconds = when - first;
        if (!points.empty()) {
            if (points.back().seconds - seconds >= kJitterSeconds) return "time goes back";
            seconds = std::max(seconds, points.back().seconds);
        }
        points.push_back({seconds, fix});
        return "";
    }

    TrackReader* r;
    double first = 0;
};

namespace {

std::string rangeProblem(const Fix& f) {
    if (!(f.latitude >= -90 && f.latitude <= 90)) return "latitude is -90 to 90";
    if (!(f.longitude >= -180 && f.longitude <= 180)) return "longitude is -180 to 180";
    if (!std::isnan(f.altitude) && !orvex_host_plausible_altitude(f.altitude))
        return implausibleAltitude(f.altitude);
    return "";
}

class CsvTrack : public TrackReader::Parser {
public:
    CsvTrack(TrackReader* reader, const std::string& path)
        : Parser(reader), csv_(path, 4, "seconds,latitude,longitude,altitude") {}

    bool feed(const char* data, size_t length) override {
        const char* end = data + length;
        while (data < end) {
            const char* nl = static_cast<const char*>(memchr(data, '\n', size_t(end - data)));
            if (!nl) {
                partial_.append(data, end);
                return true;
            }
            bool ok = partial_.empty() ? line(std::string_view(data, size_t(nl - data)))
                                       : (partial_.append(data, nl), line(partial_));
            partial_.clear();
            if (!ok) return false;
            data = nl + 1;
        }
        return true;
    }

    bool finish() override {
        if (!partial_.empty() && !line(partial_)) return false;
        if (csv_.finish()) return true;
        r->error = csv_.error();
        return false;
    }

private:
    bool line(std::string_view text) {
        if (csv_.line(text) == CsvParser::Row) {
            const std::vector<double>& row = csv_.row();
            Fix fix;
            fix.latitude = row[1];
            fix.longitude = row[2];
            fix.altitude = row[3];
            std::string problem = rangeProblem(fix);
            if (problem.empty()) problem = add(row[0], fix);
            if (!problem.empty()) csv_.refuse(problem);
        }
        if (csv_.error().empty()) return true;
        r->error = csv_.error();
        r->points.clear();
        return false;
    }

    CsvParser csv_;
    std::string partial_;
};

class GpxTrack : public TrackReader::Parser {
public:
    GpxTrack(TrackReader* reader, std::string path)
        : Parser(reader),
          path_(std::move(path)),
          context_(g_markup_parse_context_new(&kCallbacks, GMarkupParseFlags(0), this, nullptr)) {}
    ~GpxTrack() override { g_markup_parse_context_free(context_); }

    bool feed(const char* data, size_t length) override {
        GError* err = nullptr;
        bool ok = g_markup_parse_context_parse(context_, data, gssize(length), &err);
        return ok || refuse(err);
    }

    bool finish() override {
        GError* err = nullptr;
        if (!g_markup_parse_context_end_parse(context_, &err)) return refuse(err);
        if (r->points.empty()) r->error = path_ + ": no track points (a route or waypoints only)";
        return !r->points.empty();
    }

private:
    static const GMarkupParser kCallbacks;

    // The parser's own messages say where in the file; ours name the file and line already.
    bool refuse(GError* err) {
        r->error = ownError_ ? err->message : path_ + ": " + err->message;
        r->points.clear();
        g_error_free(err);
        return false;
    }

    void fail(GError** error, const std::string& message) {
        ownError_ = true;
        g_set_error_literal(error, G_MARKUP_ERROR, G_MARKUP_ERROR_INVALID_CONTENT,
                            (pointLine_ + ": " + message).c_str());
    }

    std::string lineHere() {
        int line = 0;
        g_markup_parse_context_get_position(context_, &line, nullptr);
        return path_ + ":" + std::to_string(line);
    }

    // Only trk/trkseg/trkpt is a track point: waypoints, route points and extension elements
    // carrying lat/lon are not.
    bool atTrackPoint() const {
        size_t n = open_.size();
        return n >= 3 && open_[n - 1] == "trkseg" && open_[n - 2] == "trk" && open_[n - 3] == "gpx";
    }

    static void start(GMarkupParseContext*, const char* name, const char** attrNames,
                      const char** attrValues, gpointer data, GError** error) {
        auto* g = static_cast<GpxTrack*>(data);
        if (g->open_.empty()) {
            const char* version = nullptr;
            for (int i = 0; attrNames[i]; ++i)
                if (!strcmp(attrNames[i], "version")) version = attrValues[i];
            if (strcmp(name, "gpx") != 0 || !version ||
                (strcmp(version, "1.0") != 0 && strcmp(version, "1.1") != 0)) {
                g->ownError_ = true;
                g_set_error(error, G_MARKUP_ERROR, G_MARKUP_ERROR_INVALID_CONTENT,
                            "%s: not a GPX 1.0 or 1.1 file", g->path_.c_str());
                return;
            }
        } else if (g->open_.size() == kMaxGpxDepth) {
            g->pointLine_ = g->lineHere();
            return g->fail(
                error, "elements nested deeper than " + std::to_string(kMaxGpxDepth) + " levels");
        } else if (!strcmp(name, "trkpt") && g->atTrackPoint()) {
            g->startPoint(attrNames, attrValues, error);
            if (error && *error) return;
        }
        g->open_.emplace_back(name);
        g->text_.clear();
    }

    void startPoint(const char** attrNames, const char** attrValues, GError** error) {
        const char* lat = nullptr;
        const char* lon = nullptr;
        for (int i = 0; attrNames[i]; ++i) {
            if (!strcmp(attrNames[i], "lat")) lat = attrValues[i];
            if (!strcmp(attrNames[i], "lon")) lon = attrValues[i];
        }
        pointLine_ = lineHere();
        fix_ = Fix{};
        if (!lat || !lon || !parseNumber(lat, &fix_.latitude) || !parseNumber(lon, &fix_.longitude))
            return fail(error, "a track point needs numeric lat and lon");
        std::string problem = rangeProblem(fix_);
        if (!problem.empty()) return fail(error, problem);
        inPoint_ = true;
        twoD_ = false;
        when_.reset();
    }

    static void end(GMarkupParseContext*, const char* name, gpointer data, GError** error) {
        auto* g = static_cast<GpxTrack*>(data);
        g->open_.pop_back();
        if (!g->inPoint_) return;
        if (g->open_.back() == "trkpt") {
            g->pointChild(name, error);
        } else if (!strcmp(name, "trkpt") && g->atTrackPoint()) {
            g->inPoint_ = false;
            if (!g->when_) return g->fail(error, "a track point needs a time");
            if (g->twoD_) g->fix_.altitude = NAN;
            std::string problem = g->add(*g->when_, g->fix_);
            if (!problem.empty()) return g->fail(error, problem);
        }
    }

    void pointChild(const char* name, GError** error) {
        double v;
        if (!strcmp(name, "ele")) {
            if (!parseNumber(text_, &v)) return fail(error, "ele is not a number");
            if (!orvex_host_plausible_altitude(v)) return fail(error, implausibleAltitude(v));
            fix_.altitude = v;
        } else if (!strcmp(name, "time")) {
            g_autoptr(GTimeZone) utc = g_time_zone_new_utc();
            g_autofree char* stripped = g_strstrip(g_strdup(text_.c_str()));
            g_autoptr(GDateTime) t = g_date_time_new_from_iso8601(stripped, utc);
            if (!t) return fail(error, "time is not an ISO 8601 time");
            if (!orvex_host_plausible_time(g_date_time_to_unix(t)))
                return fail(error, implausibleTime(stripped));
            when_ = double(g_date_time_to_unix(t)) + g_date_time_get_microsecond(t) / 1e6;
        } else if (!strcmp(name, "fix")) {
            // The receiver had no height for the point, whatever ele says.
            g_autofree char* stripped = g_strstrip(g_strdup(text_.c_str()));
            twoD_ = !strcmp(stripped, "2d");
        } else if (!strcmp(name, "speed") && parseNumber(text_, &v) && v >= 0) {
            fix_.speed = v;  // GPX 1.0 only; metres per second
        } else if (!strcmp(name, "course") && parseNumber(text_, &v) && v >= 0 && v <= 360) {
            fix_.direction = v;
        }
    }

    static void text(GMarkupParseContext*, const char* text, gsize length, gpointer data,
                     GError**) {
        auto* g = static_cast<GpxTrack*>(data);
        if (g->inPoint_) g->text_.append(text, length);
    }

    std::string path_;
    GMarkupParseContext* context_;
    std::vector<std::string> open_;  // names of the elements we are inside, kMaxGpxDepth at most
    bool ownError_ = false;
    bool inPoint_ = false;
    bool twoD_ = false;
    Fix fix_;
    std::string pointLine_;
    std::string text_;
    std::optional<double> when_;
};

const GMarkupParser GpxTrack::kCallbacks{start, end, text, nullptr, nullptr};

}  // namespace

TrackReader::TrackReader(std::string path) : path_(std::move(path)) {}

TrackReader::~TrackReader() {
    if (fd_ >= 0) close(fd_);
}

bool TrackReader::fail(const std::string& message) {
    error = message;
    points.clear();
    return false;
}

// Only a regular file: a FIFO would block, a device such as /dev/zero never ends.
bool TrackReader::open() {
    struct stat st;
    std::string problem = trackFileProblem(path_, &st);
    if (!problem.empty()) return fail(problem);
    fd_ = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd_ < 0) return fail(cannotRead(path_, errno));
    if (fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) return fail(path_ + ": not a regular file");
    return true;
}

bool TrackReader::feed(const char* data, size_t length) {
    if (!parser_) {
        if (read_ == length && length >= 3 &&
            !memcmp(data, "\xEF\xBB\xBF", 3)) {  // a byte-order mark
            data += 3;
            length -= 3;
        }
        const char* p = data;
        while (p < data + length && g_ascii_isspace(*p)) ++p;
        if (p == data + length) {
            // Nothing but blanks yet: the format is not known.
            pending_.append(data, length);
            return true;
        }
        if (*p == '<')
            parser_ = std::make_unique<GpxTrack>(this, path_);
        else
            parser_ = std::make_unique<CsvTrack>(this, path_);
        if (!pending_.empty() && !parser_->feed(pending_.data(), pending_.size())) return false;
        pending_.clear();
    }
    return parser_->feed(data, length);
}

bool TrackReader::finish() {
    if (!parser_) parser_ = std::make_unique<CsvTrack>(this, path_);  // blank: "no rows"
    if (!pending_.empty() && !parser_->feed(pending_.data(), pending_.size())) return false;
    return parser_->finish();
}

bool TrackReader::step(gint64 budgetUs) {
    const gint64 until = g_get_monotonic_time() + budgetUs;
    if (!done_ && fd_ < 0 && !open()) done_ = true;
    std::vector<char> chunk(done_ ? 0 : kChunkBytes);
    while (!done_) {
        ssize_t n = ::read(fd_, chunk.data(), chunk.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            fail(cannotRead(path_, errno));
        } else if (n == 0) {
            finish();
        } else if ((read_ += size_t(n)) > size_t(kMaxTrackBytes)) {
            fail(tooLarge(path_));  // it grew after it was looked at
        } else if (feed(chunk.data(), size_t(n))) {
            if (budgetUs > 0 && g_get_monotonic_time() >= until) break;
            continue;
        }
        done_ = true;
    }
    if (done_ && fd_ >= 0) {
        close(fd_);
        fd_ = -1;
        parser_.reset();
    }
    return done_;
}

}  // namespace location
}  // namespace orvex_host
