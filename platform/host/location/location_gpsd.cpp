// Position from gpsd: its JSON reports over TCP, read on the main loop without blocking it.
#include <gio/gio.h>
#include <json-glib/json-glib.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "location/location_internal.h"

namespace orvex_host {
namespace location {
namespace {

constexpr char kWatch[] = "?WATCH={\"enable\":true,\"json\":true}\n";
constexpr guint kFirstRetryMs = 1000;
constexpr guint kLongestRetryMs = 30000;

// One client's life. Every pending asynchronous call holds a reference, so a callback that
// arrives after stop (cancelled) still finds the session it was given.
struct Session {
    int refs = 1;
    std::string host;
    int port = 0;
    FixCallback onFix = nullptr;
    GCancellable* cancel = g_cancellable_new();
    GSocketClient* client = g_socket_client_new();
    GSocketConnection* connection = nullptr;
    GDataInputStream* in = nullptr;
    std::optional<Fix> fix;
    guint retry = 0;
    guint backoffMs = kFirstRetryMs;
    bool down = false;   // the outage has been reported
    std::string why;     // of the outage
    bool heard = false;  // gpsd has said something on this connection

    std::string name() const { return "gpsd at " + host + ":" + std::to_string(port); }
};

Session* g_session = nullptr;

Session* ref(Session* s) {
    ++s->refs;
    return s;
}

void disconnect(Session* s) {
    if (s->in) g_object_unref(s->in);
    if (s->connection) g_object_unref(s->connection);
    s->in = nullptr;
    s->connection = nullptr;
}

void unref(Session* s) {
    if (--s->refs > 0) return;
    disconnect(s);
    g_object_unref(s->client);
    g_object_unref(s->cancel);
    delete s;
}

void setFix(Session* s, const std::optional<Fix>& fix) {
    bool changed = s->fix.has_value() != fix.has_value();
    s->fix = fix;
    if ((fix || changed) && s->onFix) s->onFix(fix, changed);
}

void connect(Session* s);

gboolean retryNow(gpointer data) {
    auto* s = static_cast<Session*>(data);
    s->retry = 0;
    connect(s);
    return G_SOURCE_REMOVE;
}

// gpsd went away or never answered: one line per outage, then quieter and quieter retries.
void lost(Session* s, const std::string& why) {
    disconnect(s);
    setFix(s, std::nullopt);
    if (!s->down) logError(s->name() + ": " + why + "; retrying in the background");
    s->down = true;
    s->why = why;
    if (s->heard) s->backoffMs = kFirstRetryMs;
    s->heard = false;
    s->retry = g_timeout_add(s->backoffMs, retryNow, s);
    s->backoffMs = std::min(s->backoffMs * 2, kLongestRetryMs);
}

bool number(JsonObject* o, const char* member, double* value) {
    JsonNode* n = json_object_get_member(o, member);
    if (!n || JSON_NODE_TYPE(n) != JSON_NODE_VALUE) return false;
    GType t = json_node_get_value_type(n);
    if (t != G_TYPE_DOUBLE && t != G_TYPE_INT64) return false;
    *value = json_node_get_double(n);
    return std::isfinite(*value);
}

// A TPV report of mode 2 (2D) or 3 (3D) is a fix. A 2D fix keeps the altitude last known.
void report(Session* s, const char* line, gsize length) {
    g_autoptr(JsonParser) parser = json_parser_new();
    if (!json_parser_load_from_data(parser, line, static_cast<gssize>(length), nullptr)) return;
    JsonNode* root = json_parser_get_root(parser);
    if (!root || !JSON_NODE_HOLDS_OBJECT(root)) return;
    JsonObject* o = json_node_get_object(root);
    JsonNode* cls = json_object_get_member(o, "class");
    if (!cls || !JSON_NODE_HOLDS_VALUE(cls) || json_node_get_value_type(cls) != G_TYPE_STRING ||
        strcmp(json_node_get_string(cls), "TPV") != 0)
        return;
    double mode = 0;
    number(o, "mode", &mode);
    if (mode < 2) return setFix(s, std::nullopt);
    Fix f{0, 0, s->fix ? s->fix->altitude : 0.0};
    if (!number(o, "lat", &f.latitude) || !number(o, "lon", &f.longitude) ||
        std::fabs(f.latitude) > 90 || std::fabs(f.longitude) > 180)
        return;
    // altMSL is what newer gpsd calls alt; older ones send alt only, above mean sea level.
    double alt;
    if (mode >= 3 && (number(o, "altMSL", &alt) || number(o, "alt", &alt))) f.altitude = alt;
    setFix(s, f);
}

void readLine(Session* s);

void onLine(GObject* source, GAsyncResult* result, gpointer data) {
    auto* s = static_cast<Session*>(data);
    GError* error = nullptr;
    gsize length = 0;
    char* line =
        g_data_input_stream_read_line_finish(G_DATA_INPUT_STREAM(source), result, &length, &error);
    if (g_cancellable_is_cancelled(s->cancel)) {
        // stopped meanwhile
    } else if (error || !line) {
        lost(s, error ? error->message : "connection closed");
    } else {
        if (!s->heard && s->down) logInfo(s->name() + ": connected");
        s->heard = true;
        s->down = false;
        report(s, line, length);
        readLine(s);
    }
    g_free(line);
    g_clear_error(&error);
    unref(s);
}

void readLine(Session* s) {
    g_data_input_stream_read_line_async(s->in, G_PRIORITY_DEFAULT, s->cancel, onLine, ref(s));
}

void onWritten(GObject* source, GAsyncResult* result, gpointer data) {
    auto* s = static_cast<Session*>(data);
    // A connection that cannot take the request fails its pending read too; that one reports.
    g_output_stream_write_all_finish(G_OUTPUT_STREAM(source), result, nullptr, nullptr);
    unref(s);
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
        s->connection = c;
        s->in = g_data_input_stream_new(g_io_stream_get_input_stream(G_IO_STREAM(c)));
        g_output_stream_write_all_async(g_io_stream_get_output_stream(G_IO_STREAM(c)), kWatch,
                                        strlen(kWatch), G_PRIORITY_DEFAULT, s->cancel, onWritten,
                                        ref(s));
        readLine(s);
    }
    g_clear_error(&error);
    unref(s);
}

void connect(Session* s) {
    g_socket_client_connect_to_host_async(s->client, s->host.c_str(), static_cast<guint16>(s->port),
                                          s->cancel, onConnected, ref(s));
}

}  // namespace

void gpsdStart(const std::string& host, int port, FixCallback onFix) {
    if (g_session && g_session->host == host && g_session->port == port) return;
    gpsdStop();
    g_session = new Session;
    g_session->host = host;
    g_session->port = port;
    g_session->onFix = onFix;
    connect(g_session);
}

void gpsdStop() {
    if (!g_session) return;
    g_cancellable_cancel(g_session->cancel);
    if (g_session->retry) g_source_remove(g_session->retry);
    g_session->retry = 0;
    unref(g_session);
    g_session = nullptr;
}

std::optional<Fix> gpsdFix() { return g_session ? g_session->fix : std::nullopt; }

std::string gpsdProblem() {
    if (!g_session) return "gpsd is not in use";
    if (g_session->fix) return "";
    if (g_session->down) return g_session->name() + ": " + g_session->why;
    return g_session->name() + ": no fix yet";
}

}  // namespace location
}  // namespace orvex_host
