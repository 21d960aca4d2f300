// Tracks to replay as the host's position: GPX files from a GNSS logger, or CSV rows.
#include <glib.h>
#include <glib/gstdio.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/csv_reader.h"
#include "location/location_internal.h"
#include "platform/dlog.h"

namespace orvex_host {
namespace location {
namespace {

// Far beyond a day's logging at one point a second; a larger file is not a track.
constexpr gsize kMaxTrackBytes = 64u << 20;

std::string lineOf(const std::string& path, GMarkupParseContext* context) {
    int line = 0;
    g_markup_parse_context_get_position(context, &line, nullptr);
    return path + ":" + std::to_string(line);
}

// The whole text is one finite number.
bool parseNumber(const char* text, double* value) {
    while (g_ascii_isspace(*text)) ++text;
    if (!*text) return false;
    char* end = nullptr;
    *value = g_ascii_strtod(text, &end);
    while (g_ascii_isspace(*end)) ++end;
    return *end == '\0' && std::isfinite(*value);
}

// Empty when the point is in range, else what is wrong with it.
std::string rangeProblem(const Fix& f) {
    if (!(f.latitude >= -90 && f.latitude <= 90)) return "latitude is -90 to 90";
    if (!(f.longitude >= -180 && f.longitude <= 180)) return "longitude is -180 to 180";
    if (!std::isfinite(f.altitude)) return "altitude is not a finite number";
    return "";
}

struct GpxReader {
    std::string path;
    std::vector<std::string> open;  // names of the elements we are inside
    std::vector<TrackPoint> points;
    bool inPoint = false;
    Fix fix{};
    std::string pointLine;
    std::string text;
    std::optional<double> ele, when;
    double firstTime = 0;
    bool ownError = false;  // the message names the file already

    // Only trk/trkseg/trkpt is a track point: waypoints, route points and extension elements
    // carrying lat/lon are not.
    bool atTrackPoint() const {
        size_t n = open.size();
        return n >= 3 && open[n - 1] == "trkseg" && open[n - 2] == "trk" && open[n - 3] == "gpx";
    }
};

void fail(GpxReader* r, GError** error, const std::string& message) {
    r->ownError = true;
    g_set_error_literal(error, G_MARKUP_ERROR, G_MARKUP_ERROR_INVALID_CONTENT, message.c_str());
}

void startElement(GMarkupParseContext* context, const char* name, const char** attrNames,
                  const char** attrValues, gpointer data, GError** error) {
    auto* r = static_cast<GpxReader*>(data);
    if (r->open.empty()) {
        const char* version = nullptr;
        for (int i = 0; attrNames[i]; ++i)
            if (!strcmp(attrNames[i], "version")) version = attrValues[i];
        if (strcmp(name, "gpx") != 0 || !version ||
            (strcmp(version, "1.0") != 0 && strcmp(version, "1.1") != 0))
            return fail(r, error, r->path + ": not a GPX 1.0 or 1.1 file");
    } else if (!strcmp(name, "trkpt") && r->atTrackPoint()) {
        const char* lat = nullptr;
        const char* lon = nullptr;
        for (int i = 0; attrNames[i]; ++i) {
            if (!strcmp(attrNames[i], "lat")) lat = attrValues[i];
            if (!strcmp(attrNames[i], "lon")) lon = attrValues[i];
        }
        r->pointLine = lineOf(r->path, context);
        if (!lat || !lon || !parseNumber(lat, &r->fix.latitude) ||
            !parseNumber(lon, &r->fix.longitude))
            return fail(r, error, r->pointLine + ": a track point needs numeric lat and lon");
        std::string problem = rangeProblem(Fix{r->fix.latitude, r->fix.longitude, 0});
        if (!problem.empty()) return fail(r, error, r->pointLine + ": " + problem);
        r->inPoint = true;
        r->ele.reset();
        r->when.reset();
    }
    r->open.emplace_back(name);
    r->text.clear();
}

void endElement(GMarkupParseContext*, const char* name, gpointer data, GError** error) {
    auto* r = static_cast<GpxReader*>(data);
    r->open.pop_back();
    if (!r->inPoint) return;
    bool pointChild = !r->open.empty() && r->open.back() == "trkpt";
    if (pointChild && !strcmp(name, "ele")) {
        double v;
        if (!parseNumber(r->text.c_str(), &v))
            return fail(r, error, r->pointLine + ": ele is not a number");
        r->ele = v;
    } else if (pointChild && !strcmp(name, "time")) {
        g_autoptr(GTimeZone) utc = g_time_zone_new_utc();
        g_autofree char* stripped = g_strstrip(g_strdup(r->text.c_str()));
        g_autoptr(GDateTime) t = g_date_time_new_from_iso8601(stripped, utc);
        if (!t) return fail(r, error, r->pointLine + ": time is not an ISO 8601 time");
        r->when =
            static_cast<double>(g_date_time_to_unix(t)) + g_date_time_get_microsecond(t) / 1e6;
    } else if (!strcmp(name, "trkpt") && r->atTrackPoint()) {
        r->inPoint = false;
        if (!r->ele || !r->when)
            return fail(r, error, r->pointLine + ": a track point needs ele and time");
        r->fix.altitude = *r->ele;
        if (r->points.empty()) r->firstTime = *r->when;
        double seconds = *r->when - r->firstTime;
        if (!r->points.empty() && seconds < r->points.back().seconds)
            return fail(r, error, r->pointLine + ": time goes back");
        r->points.push_back({seconds, r->fix});
    }
}

void text(GMarkupParseContext*, const char* text, gsize length, gpointer data, GError**) {
    auto* r = static_cast<GpxReader*>(data);
    if (r->inPoint) r->text.append(text, length);
}

std::vector<TrackPoint> readGpx(const std::string& path, const char* content, gsize length,
                                std::string* error) {
    static const GMarkupParser parser{startElement, endElement, text, nullptr, nullptr};
    GpxReader reader;
    reader.path = path;
    GMarkupParseContext* context =
        g_markup_parse_context_new(&parser, GMarkupParseFlags(0), &reader, nullptr);
    GError* err = nullptr;
    bool ok = g_markup_parse_context_parse(context, content, static_cast<gssize>(length), &err) &&
              g_markup_parse_context_end_parse(context, &err);
    g_markup_parse_context_free(context);
    if (!ok) {
        // The parser's own messages say where in the file.
        *error = reader.ownError ? err->message : path + ": " + err->message;
        g_error_free(err);
        return {};
    }
    if (reader.points.empty()) *error = path + ": no track points (a route or waypoints only)";
    return std::move(reader.points);
}

std::vector<TrackPoint> readCsvTrack(const std::string& path, std::string* error) {
    CsvTable table =
        readCsv(path, 4, "seconds,latitude,longitude,altitude",
                [](const std::vector<double>& row, const std::vector<double>* previous) {
                    if (previous && row[0] < (*previous)[0]) return std::string("time goes back");
                    return rangeProblem(Fix{row[1], row[2], row[3]});
                });
    *error = table.error;
    std::vector<TrackPoint> points;
    for (const auto& row : table.rows)
        points.push_back({row[0] - table.rows.front()[0], Fix{row[1], row[2], row[3]}});
    return points;
}

}  // namespace

std::vector<TrackPoint> readTrack(const std::string& path, std::string* error) {
    gchar* content = nullptr;
    gsize length = 0;
    GError* err = nullptr;
    GStatBuf st;
    if (g_stat(path.c_str(), &st) == 0 && static_cast<gsize>(st.st_size) > kMaxTrackBytes) {
        *error = path + ": too large for a track";
        return {};
    }
    if (!g_file_get_contents(path.c_str(), &content, &length, &err)) {
        *error = err->message;
        g_error_free(err);
        return {};
    }
    std::unique_ptr<gchar, decltype(&g_free)> owned(content, g_free);
    const char* start = content;
    if (length >= 3 && !memcmp(start, "\xEF\xBB\xBF", 3)) start += 3;  // a UTF-8 byte order mark
    while (g_ascii_isspace(*start)) ++start;
    if (*start == '<')
        return readGpx(path, start, length - static_cast<gsize>(start - content), error);
    return readCsvTrack(path, error);
}

void logError(const std::string& message) {
    __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "ORVEX_HOST", "%s", message.c_str());
}

void logInfo(const std::string& message) {
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "ORVEX_HOST", "%s", message.c_str());
}

}  // namespace location
}  // namespace orvex_host
