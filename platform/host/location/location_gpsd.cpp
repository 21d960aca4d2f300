// Back end "gpsd": the fixes of a gpsd daemon, its JSON reports read over TCP on the main loop in
// bounded slices, so that neither a long line nor a flood holds the loop up.
#include <gio/gio.h>
#include <json-glib/json-glib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/host_internal.h"
#include "core/json_guard.h"
#include "location/location_source.h"
#include "orvex_host/location_control.h"
#include "orvex_host/plausible.h"

namespace orvex_host {
namespace location {

namespace {

constexpr char kWatch[] = "?WATCH={\"enable\":true,\"json\":true}\n";
constexpr const char* kDefaultHost = "localhost";
constexpr int kDefaultPort = 2947;
constexpr guint kFirstRetryMs = 1000;
constexpr guint kLongestRetryMs = 30000;
// A connection that lasted this long was a working one: the next loss is a new outage.
constexpr gint64 kSettledUs = gint64(kLongestRetryMs) * 1000;
// gpsd's longest reports (SKY with every satellite in view) are a few kilobytes.
constexpr size_t kMaxLineBytes = 64 << 10;
// What one main-loop iteration reads; after a full slice the reading pauses a little, so that a
// flood costs a bounded share of the processor.
constexpr size_t kSliceBytes = 64 << 10;
constexpr guint kFloodPauseMs = 10;

// One client's life. Every pending asynchronous call and source holds a reference, so a callback
// that arrives after stop (cancelled) still finds the session it was given.
struct Session {
    int refs = 1;
    std::string host;
    int port = 0;
    GCancellable* cancel = g_cancellable_new();
    GSocketClient* client = g_socket_client_new();
    GSocketConnection* connection = nullptr;
    GSource* reading = nullptr;
    guint resume = 0;
    guint retry = 0;
    std::vector<char> slice = std::vector<char>(kSliceBytes);
    std::string line;  // the part of a line read so far
    std::optional<Fix> fix;
    guint backoffMs = kFirstRetryMs;
    gint64 connectedAt = 0;
    bool down = false;       // the outage has been reported
    bool announced = false;  // and the connection after it
    bool warned = false;     // an implausible report on this connection has been reported
    std::string why;         // of the outage

    std::string name() const { return "gpsd at " + host + ":" + std::to_string(port); }
};

Session* ref(Session* s) {
    ++s->refs;
    return s;
}

void stopReading(Session* s) {
    if (s->reading) {
        g_source_destroy(s->reading);
        g_source_unref(s->reading);
        s->reading = nullptr;
    }
    if (s->resume) g_source_remove(s->resume);
    s->resume = 0;
}

void disconnect(Session* s) {
    stopReading(s);
    if (s->connection) g_object_unref(s->connection);
    s->connection = nullptr;
    s->line.clear();
}

void unref(gpointer data) {
    auto* s = static_cast<Session*>(data);
    if (--s->refs > 0) return;
    disconnect(s);
    g_object_unref(s->client);
    g_object_unref(s->cancel);
    delete s;
}

void setFix(Session* s, const std::optional<Fix>& fix) {
    bool changed = s->fix.has_value() != fix.has_value();
    s->fix = fix;
    if (fix) sourceFix(*fix);
    if (changed) sourceUp(fix.has_value());
}

void connect(Session* s);

gboolean retryNow(gpointer data) {
    auto* s = static_cast<Session*>(data);
    s->retry = 0;
    connect(s);
    return G_SOURCE_REMOVE;
}

// gpsd went away, never answered or broke its protocol: one line per outage, then quieter and
// quieter retries. Only a connection that lasted ends the outage, so a gpsd that answers and
// hangs up again and again is retried ever more slowly too.
void lost(Session* s, const std::string& why) {
    bool settled = s->connectedAt && g_get_monotonic_time() - s->connectedAt >= kSettledUs;
    disconnect(s);
    s->connectedAt = 0;
    setFix(s, std::nullopt);
    if (settled) {
        s->down = false;
        s->backoffMs = kFirstRetryMs;
    }
    if (!s->down) logError(s->name() + ": " + why + "; retrying in the background");
    if (!s->down) s->announced = false;
    s->down = true;
    s->why = why;
    s->retry = g_timeout_add(s->backoffMs, retryNow, s);
    s->backoffMs = std::min(s->backoffMs * 2, kLongestRetryMs);
}

void warn(Session* s, const std::string& what) {
    if (!s->warned) logError(s->name() + ": " + what);
    s->warned = true;
}

bool number(JsonObject* o, const char* member, double* value) {
    JsonNode* n = json_object_get_member(o, member);
    if (!n || JSON_NODE_TYPE(n) != JSON_NODE_VALUE) return false;
    GType t = json_node_get_value_type(n);
    if (t != G_TYPE_DOUBLE && t != G_TYPE_INT64) return false;
    *value = json_node_get_double(n);
    return std::isfinite(*value);
}

// A figure that is no error, speed or bearing is left out rather than passed on.
double within(JsonObject* o, const char* member, double low, double high) {
    double v;
    return number(o, member, &v) && v >= low && v <= high ? v : NAN;
}

// Height above mean sea level: altMSL; else the ellipsoid height less the geoid separation; else
// an older gpsd's alt. The ellipsoid height alone is tens of metres off.
double height(JsonObject* o) {
    double msl, hae, sep;
    if (number(o, "altMSL", &msl)) return msl;
    if (number(o, "altHAE", &hae)) return number(o, "geoidSep", &sep) ? hae - sep : NAN;
    return number(o, "alt", &msl) ? msl : NAN;
}

// Why a TPV report's time is not to be believed; empty when it is, or when there is none.
std::string timeProblem(JsonObject* o) {
    JsonNode* n = json_object_get_member(o, "time");
    if (!n) return "";
    const char* text = JSON_NODE_HOLDS_VALUE(n) && json_node_get_value_type(n) == G_TYPE_STRING
                           ? json_node_get_string(n)
                           : nullptr;
    g_autoptr(GDateTime) t = text ? g_date_time_new_from_iso8601(text, nullptr) : nullptr;
    if (!t) return "a report's time is not an ISO 8601 time";
    return orvex_host_plausible_time(g_date_time_to_unix(t)) ? "" : implausibleTime(text);
}

// A TPV report of mode 2 (2D) or 3 (3D) is a fix; only a 3D fix has a height. False when the
// report breaks the protocol and the connection is dropped.
bool report(Session* s, const char* line, size_t length) {
    if (!orvex_host_json_depth_ok(line, length)) {
        lost(s, "a report nested deeper than " + std::to_string(ORVEX_HOST_JSON_MAX_DEPTH) +
                    " levels");
        return false;
    }
    g_autoptr(JsonParser) parser = json_parser_new();
    if (!json_parser_load_from_data(parser, line, gssize(length), nullptr)) return true;
    JsonNode* root = json_parser_get_root(parser);
    if (!root || !JSON_NODE_HOLDS_OBJECT(root)) return true;
    JsonObject* o = json_node_get_object(root);
    JsonNode* cls = json_object_get_member(o, "class");
    if (!cls || !JSON_NODE_HOLDS_VALUE(cls) || json_node_get_value_type(cls) != G_TYPE_STRING ||
        strcmp(json_node_get_string(cls), "TPV") != 0)
        return true;
    double mode = 0;
    number(o, "mode", &mode);
    if (mode < 2) {
        setFix(s, std::nullopt);
        return true;
    }
    Fix f;
    if (!number(o, "lat", &f.latitude) || !number(o, "lon", &f.longitude) ||
        std::fabs(f.latitude) > 90 || std::fabs(f.longitude) > 180) {
        warn(s, "a report without a latitude of -90 to 90 and a longitude of -180 to 180 ignored");
        return true;
    }
    std::string problem = timeProblem(o);
    if (!problem.empty()) {
        warn(s, problem + "; the report ignored");
        return true;
    }
    f.speed = within(o, "speed", 0, HUGE_VAL);
    f.direction = within(o, "track", 0, 360);
    f.horizontalError = within(o, "eph", 0, HUGE_VAL);
    if (std::isnan(f.horizontalError))
        f.horizontalError =
            std::hypot(within(o, "epx", 0, HUGE_VAL), within(o, "epy", 0, HUGE_VAL));
    if (mode >= 3) {
        f.altitude = height(o);
        if (!std::isnan(f.altitude) && !orvex_host_plausible_altitude(f.altitude)) {
            warn(s, implausibleAltitude(f.altitude) + "; positions without altitude");
            f.altitude = NAN;
        }
        f.verticalError = within(o, "epv", 0, HUGE_VAL);
        f.climb = within(o, "climb", -HUGE_VAL, HUGE_VAL);
    }
    setFix(s, f);
    return true;
}

void startReading(Session* s);

gboolean resumeReading(gpointer data) {
    auto* s = static_cast<Session*>(data);
    s->resume = 0;
    startReading(s);
    return G_SOURCE_REMOVE;
}

// Whole lines go to report(); a line that never ends is cut off at kMaxLineBytes.
gboolean onReadable(GSocket* socket, GIOCondition, gpointer data) {
    auto* s = static_cast<Session*>(data);
    if (g_cancellable_is_cancelled(s->cancel) || !s->reading) return G_SOURCE_REMOVE;
    GError* error = nullptr;
    gssize n = g_socket_receive(socket, s->slice.data(), s->slice.size(), nullptr, &error);
    if (n < 0 && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK)) {
        g_error_free(error);
        return G_SOURCE_CONTINUE;
    }
    if (n <= 0) {
        lost(s, error ? error->message : "connection closed");
        g_clear_error(&error);
        return G_SOURCE_REMOVE;
    }
    const char* p = s->slice.data();
    const char* end = p + n;
    while (p < end) {
        const char* nl = static_cast<const char*>(memchr(p, '\n', size_t(end - p)));
        if (s->line.size() + size_t((nl ? nl : end) - p) > kMaxLineBytes) {
            lost(s, "a line longer than " + std::to_string(kMaxLineBytes) + " bytes");
            return G_SOURCE_REMOVE;
        }
        if (!nl) {
            s->line.append(p, end);
            break;
        }
        bool ok;
        if (s->line.empty()) {
            ok = report(s, p, size_t(nl - p));
        } else {
            s->line.append(p, nl);
            ok = report(s, s->line.data(), s->line.size());
            s->line.clear();
        }
        if (!ok) return G_SOURCE_REMOVE;
        p = nl + 1;
    }
    if (size_t(n) < s->slice.size()) return G_SOURCE_CONTINUE;
    stopReading(s);
    s->resume = g_timeout_add(kFloodPauseMs, resumeReading, s);
    return G_SOURCE_REMOVE;
}

// Below the idle priority: the service's own notifications and the enabling dialogue go first.
void startReading(Session* s) {
    GSocket* socket = g_socket_connection_get_socket(s->connection);
    g_socket_set_blocking(socket, FALSE);
    s->reading =
        g_socket_create_source(socket, GIOCondition(G_IO_IN | G_IO_HUP | G_IO_ERR), s->cancel);
    g_source_set_priority(s->reading, G_PRIORITY_LOW);
    g_source_set_callback(s->reading, G_SOURCE_FUNC(onReadable), ref(s), unref);
    g_source_attach(s->reading, g_main_context_get_thread_default());
}

void onWritten(GObject* source, GAsyncResult* result, gpointer data) {
    // A connection that cannot take the request fails its reading too; that one reports.
    g_output_stream_write_all_finish(G_OUTPUT_STREAM(source), result, nullptr, nullptr);
    unref(data);
}

void onConnected(GObject* source, GAsyncResult* result, gpointer data) {
    auto* s = static_cast<Session*>(data);
    GError* error = nullptr;
    GSocketConnection* c =
        g_socket_client_connect_to_host_finish(G_SOCKET_CLIENT(source), result, &error);
    if (g_cancellable_is_cancelled(s->cancel)) {
        if (c) g_object_unref(c);
    } else if (!c) {
        lost(s, error->message);
    } else {
        if (s->down && !s->announced) logInfo(s->name() + ": connected");
        s->announced = true;
        s->warned = false;
        s->connection = c;
        s->connectedAt = g_get_monotonic_time();
        g_output_stream_write_all_async(g_io_stream_get_output_stream(G_IO_STREAM(c)), kWatch,
                                        strlen(kWatch), G_PRIORITY_DEFAULT, s->cancel, onWritten,
                                        ref(s));
        startReading(s);
    }
    g_clear_error(&error);
    unref(s);
}

void connect(Session* s) {
    g_socket_client_connect_to_host_async(s->client, s->host.c_str(), guint16(s->port), s->cancel,
                                          onConnected, ref(s));
}

void end(Session* s) {
    g_cancellable_cancel(s->cancel);
    if (s->retry) g_source_remove(s->retry);
    s->retry = 0;
    disconnect(s);
    unref(s);
}

std::string configuredHost() {
    auto host = orvex_host::config("location_gpsd_host");
    return host && settingProblem("location_gpsd_host", *host).empty() ? *host : kDefaultHost;
}

int configuredPort() {
    auto port = orvex_host::config("location_gpsd_port");
    return port && settingProblem("location_gpsd_port", *port).empty() ? atoi(port->c_str())
                                                                       : kDefaultPort;
}

// With gpsd the service is up while it has a fix, as a receiver's is.
class GpsdSource : public Source {
public:
    ~GpsdSource() override { stop(); }

    void start() override {
        started_ = true;
        connected();
    }
    void stop() override {
        started_ = false;
        if (session_) end(session_);
        session_ = nullptr;
    }
    bool up() override { return connected() && session_->fix; }

    std::optional<Fix> position(double) override {
        return connected() ? session_->fix : std::nullopt;
    }

    const char* const* settings() const override {
        static const char* const keys[] = {"location_gpsd_host", "location_gpsd_port", nullptr};
        return keys;
    }
    std::string checkSetting(const std::string& key, const std::string& value) const override {
        if (key == "location_gpsd_host") {
            bool plain = !value.empty() && std::none_of(value.begin(), value.end(), [](char c) {
                return g_ascii_isspace(c) || g_ascii_iscntrl(c);
            });
            return plain ? "" : "'" + value + "' is not a host name";
        }
        char* end = nullptr;
        errno = 0;
        long port = g_ascii_isdigit(value.c_str()[0]) ? strtol(value.c_str(), &end, 10) : 0;
        return end && !*end && !errno && port >= 1 && port <= 65535
                   ? ""
                   : "'" + value + "' is not a port (1 to 65535)";
    }

    std::string problem() override {
        if (!connected()) return "gpsd is not in use";
        if (session_->fix) return "";
        if (session_->down) return session_->name() + ": " + session_->why;
        return session_->name() + ": no fix yet";
    }

private:
    // The session with gpsd where it is configured now, while started.
    bool connected() {
        if (!started_) return false;
        std::string host = configuredHost();
        int port = configuredPort();
        if (session_ && (session_->host != host || session_->port != port)) {
            end(session_);
            session_ = nullptr;
        }
        if (!session_) {
            session_ = new Session;
            session_->host = host;
            session_->port = port;
            connect(session_);
        }
        return true;
    }

    bool started_ = false;
    Session* session_ = nullptr;
};

}  // namespace

std::unique_ptr<Source> makeGpsdSource() { return std::make_unique<GpsdSource>(); }

}  // namespace location
}  // namespace orvex_host

extern "C" int orvex_host_location_set_gpsd(const char* host, int port) {
    if (port < 0 || port > 65535 || (host && !*host)) return -EINVAL;
    if (int rc = orvex_host::saveConfig("location_gpsd_host", host); rc != 0) return rc;
    return orvex_host::saveConfig(
        "location_gpsd_port",
        port ? std::optional<std::string>(std::to_string(port)) : std::nullopt);
}

extern "C" char* orvex_host_location_gpsd_address(void) {
    using namespace orvex_host::location;
    return g_strdup_printf("%s:%d", configuredHost().c_str(), configuredPort());
}
