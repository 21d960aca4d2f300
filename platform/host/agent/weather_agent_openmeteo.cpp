// The weather agent's real source: the current mean sea-level pressure at the location service's
// position from the keyless Open-Meteo forecast API. Transfers run on the GLib main loop through
// libcurl's multi-socket interface (fd watches and one timer), so nothing here ever blocks.
#include <curl/curl.h>
#include <glib-unix.h>
#include <glib.h>
#include <json-glib/json-glib.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "apps/app_registry.h"
#include "core/host_internal.h"
#include "orvex_host/app_control_control.h"
#include "platform/connection.h"
#include "platform/location_manager.h"

namespace {

const char* const kDefaultUrl = "https://api.open-meteo.com";
constexpr long kDefaultTimeoutMs = 10000;
// A forecast answer is a few kilobytes; anything far larger is not one.
constexpr size_t kMaxBody = 1 << 20;

struct Transfer {
    CURL* easy = nullptr;
    std::string port;
    const char* agentId = nullptr;
    std::string body;
    char error[CURL_ERROR_SIZE] = "";
};

CURLM* g_multi = nullptr;
std::map<curl_socket_t, guint> g_watches;
guint g_timer = 0;
std::map<CURL*, std::unique_ptr<Transfer>> g_transfers;

void setProblem(const std::string& why) { orvex_host::agentProblem(why); }

// The location service's position now, or its last one while it has no fix.
bool position(double* latitude, double* longitude) {
    location_manager_h manager = nullptr;
    int rc = location_manager_create(LOCATIONS_METHOD_HYBRID, &manager);
    if (rc != LOCATIONS_ERROR_NONE) {
        setProblem("the location service is not available (error " + std::to_string(rc) + ")");
        return false;
    }
    double altitude = 0;
    rc = location_manager_start(manager);
    if (rc == LOCATIONS_ERROR_NONE)
        rc = location_manager_get_position(manager, &altitude, latitude, longitude, nullptr);
    if (rc != LOCATIONS_ERROR_NONE &&
        location_manager_get_last_position(manager, &altitude, latitude, longitude, nullptr) ==
            LOCATIONS_ERROR_NONE)
        rc = LOCATIONS_ERROR_NONE;
    location_manager_stop(manager);
    location_manager_destroy(manager);
    if (rc != LOCATIONS_ERROR_NONE)
        setProblem("no position from the location service (error " + std::to_string(rc) + ")");
    return rc == LOCATIONS_ERROR_NONE;
}

std::string number(double v) {
    char buf[G_ASCII_DTOSTR_BUF_SIZE];
    return g_ascii_formatd(buf, sizeof buf, "%.4f", v);
}

// The system proxy as the connection service reports it; "" means a direct connection.
std::string proxy() {
    connection_h connection = nullptr;
    if (connection_create(&connection) != CONNECTION_ERROR_NONE) return "";
    char* value = nullptr;
    connection_get_proxy(connection, CONNECTION_ADDRESS_FAMILY_IPV4, &value);
    connection_destroy(connection);
    std::string out = value ? value : "";
    free(value);
    return out;
}

// The observation time: seconds since the epoch, or the local ISO time of the answer's time zone.
std::optional<long long> observed(JsonObject* root, JsonNode* time) {
    if (JSON_NODE_HOLDS_VALUE(time) && json_node_get_value_type(time) == G_TYPE_INT64)
        return json_node_get_int(time);
    if (!JSON_NODE_HOLDS_VALUE(time) || json_node_get_value_type(time) != G_TYPE_STRING)
        return std::nullopt;
    // The API writes local times to the minute ("2026-09-15T12:00"), in the zone of the answer.
    int y, mo, d, h, mi;
    if (sscanf(json_node_get_string(time), "%4d-%2d-%2dT%2d:%2d", &y, &mo, &d, &h, &mi) != 5)
        return std::nullopt;
    GDateTime* local = g_date_time_new_utc(y, mo, d, h, mi, 0);
    if (!local) return std::nullopt;
    long long t = g_date_time_to_unix(local);
    g_date_time_unref(local);
    JsonNode* offset = json_object_get_member(root, "utc_offset_seconds");
    if (offset && JSON_NODE_HOLDS_VALUE(offset)) t -= json_node_get_int(offset);
    return t;
}

// Reads the answer into the agent's two entries; otherwise returns why it could not.
std::string readAnswer(long status, const std::string& body, long long* time, double* pressure) {
    JsonParser* parser = json_parser_new();
    bool parsed =
        json_parser_load_from_data(parser, body.data(), static_cast<gssize>(body.size()), nullptr);
    JsonNode* rootNode = parsed ? json_parser_get_root(parser) : nullptr;
    JsonObject* root =
        rootNode && JSON_NODE_HOLDS_OBJECT(rootNode) ? json_node_get_object(rootNode) : nullptr;
    std::string why;
    if (status != 200) {
        why = "Open-Meteo answered HTTP " + std::to_string(status);
        JsonNode* reason = root ? json_object_get_member(root, "reason") : nullptr;
        if (reason && JSON_NODE_HOLDS_VALUE(reason) &&
            json_node_get_value_type(reason) == G_TYPE_STRING)
            why += std::string(": ") + json_node_get_string(reason);
    } else {
        JsonNode* current = root ? json_object_get_member(root, "current") : nullptr;
        JsonObject* cur =
            current && JSON_NODE_HOLDS_OBJECT(current) ? json_node_get_object(current) : nullptr;
        JsonNode* slp = cur ? json_object_get_member(cur, "pressure_msl") : nullptr;
        JsonNode* when = cur ? json_object_get_member(cur, "time") : nullptr;
        std::optional<long long> t = when ? observed(root, when) : std::nullopt;
        if (!slp || !JSON_NODE_HOLDS_VALUE(slp) || !t) {
            why = "Open-Meteo's answer has no current pressure_msl and time";
        } else {
            *time = *t;
            *pressure = json_node_get_double(slp);
            if (!std::isfinite(*pressure) || *pressure <= 0)
                why = "Open-Meteo's answer has no usable pressure_msl";
        }
    }
    g_object_unref(parser);
    return why;
}

void finish(CURL* easy, CURLcode result) {
    auto it = g_transfers.find(easy);
    if (it == g_transfers.end()) return;
    std::unique_ptr<Transfer> transfer = std::move(it->second);
    g_transfers.erase(it);
    curl_multi_remove_handle(g_multi, easy);
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_cleanup(easy);

    long long time = 0;
    double pressure = 0;
    std::string why;
    if (result != CURLE_OK)
        why = std::string("Open-Meteo could not be reached: ") +
              (*transfer->error ? transfer->error : curl_easy_strerror(result));
    else
        why = readAnswer(status, transfer->body, &time, &pressure);
    if (!why.empty()) {
        setProblem(why);
        return;
    }
    char text[G_ASCII_DTOSTR_BUF_SIZE];
    g_ascii_formatd(text, sizeof text, "%.2f", pressure);
    bundle* reply = bundle_create();
    if (!reply) return;
    bundle_add_str(reply, "refreshedTime", std::to_string(time).c_str());
    bundle_add_str(reply, "pressure", text);
    orvex_host::postToLocalPort(transfer->port.c_str(), transfer->agentId, reply);
    bundle_free(reply);
}

void drive(curl_socket_t fd, int events) {
    int running = 0;
    curl_multi_socket_action(g_multi, fd, events, &running);
    int left = 0;
    while (CURLMsg* msg = curl_multi_info_read(g_multi, &left))
        if (msg->msg == CURLMSG_DONE) finish(msg->easy_handle, msg->data.result);
}

gboolean onSocket(gint fd, GIOCondition condition, gpointer) {
    int events = 0;
    if (condition & (G_IO_IN | G_IO_HUP)) events |= CURL_CSELECT_IN;
    if (condition & G_IO_OUT) events |= CURL_CSELECT_OUT;
    if (condition & (G_IO_ERR | G_IO_NVAL)) events |= CURL_CSELECT_ERR;
    drive(fd, events);
    // libcurl removes the watch through onSocketChange when it is done with the socket.
    return G_SOURCE_CONTINUE;
}

gboolean onTimer(gpointer) {
    g_timer = 0;
    drive(CURL_SOCKET_TIMEOUT, 0);
    return G_SOURCE_REMOVE;
}

void unwatch(curl_socket_t fd) {
    auto it = g_watches.find(fd);
    if (it == g_watches.end()) return;
    g_source_remove(it->second);
    g_watches.erase(it);
}

int onSocketChange(CURL*, curl_socket_t fd, int what, void*, void*) {
    unwatch(fd);
    if (what == CURL_POLL_REMOVE) return 0;
    int condition = G_IO_HUP | G_IO_ERR;
    if (what & CURL_POLL_IN) condition |= G_IO_IN;
    if (what & CURL_POLL_OUT) condition |= G_IO_OUT;
    g_watches[fd] = g_unix_fd_add(fd, static_cast<GIOCondition>(condition), onSocket, nullptr);
    return 0;
}

int onTimerChange(CURLM*, long timeoutMs, void*) {
    if (g_timer) g_source_remove(g_timer);
    g_timer = timeoutMs < 0 ? 0 : g_timeout_add(static_cast<guint>(timeoutMs), onTimer, nullptr);
    return 0;
}

size_t onBody(char* data, size_t size, size_t count, void* user) {
    auto* transfer = static_cast<Transfer*>(user);
    if (transfer->body.size() + size * count > kMaxBody) return 0;
    transfer->body.append(data, size * count);
    return size * count;
}

bool ensureMulti() {
    if (g_multi) return true;
    g_multi = curl_multi_init();
    if (!g_multi) return false;
    curl_multi_setopt(g_multi, CURLMOPT_SOCKETFUNCTION, onSocketChange);
    curl_multi_setopt(g_multi, CURLMOPT_TIMERFUNCTION, onTimerChange);
    return true;
}

void resetOpenMeteo() {
    for (auto& [easy, transfer] : g_transfers) {
        curl_multi_remove_handle(g_multi, easy);
        curl_easy_cleanup(easy);
    }
    g_transfers.clear();
    if (g_multi) curl_multi_cleanup(g_multi);
    g_multi = nullptr;
    while (!g_watches.empty()) unwatch(g_watches.begin()->first);
    if (g_timer) g_source_remove(g_timer);
    g_timer = 0;
}

[[maybe_unused]] const bool g_reset = orvex_host::onReset(&resetOpenMeteo);

long timeoutMs() {
    return orvex_host::configInt("agent_timeout_ms", 1, LONG_MAX).valueOr(kDefaultTimeoutMs);
}

}  // namespace

void orvex_host::openMeteoRequest(const std::string& port, const char* agentId) {
    double latitude = 0, longitude = 0;
    if (!position(&latitude, &longitude)) return;
    std::string url = orvex_host::config("agent_url").value_or(kDefaultUrl);
    while (!url.empty() && url.back() == '/') url.pop_back();
    url += "/v1/forecast?latitude=" + number(latitude) + "&longitude=" + number(longitude) +
           "&current=pressure_msl&timeformat=unixtime";

    auto transfer = std::make_unique<Transfer>();
    transfer->port = port;
    transfer->agentId = agentId;
    CURL* easy = ensureMulti() ? curl_easy_init() : nullptr;
    if (!easy) {
        setProblem("cannot start a transfer (out of memory)");
        return;
    }
    std::string via = proxy();
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https,http");
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (auto ca = orvex_host::config("agent_ca_file"))
        curl_easy_setopt(easy, CURLOPT_CAINFO, ca->c_str());
    curl_easy_setopt(easy, CURLOPT_PROXY, via.c_str());
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, timeoutMs());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "orvex-weather-agent");
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.get());
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer->error);
    transfer->easy = easy;
    if (curl_multi_add_handle(g_multi, easy) != CURLM_OK) {
        curl_easy_cleanup(easy);
        setProblem("cannot start a transfer");
        return;
    }
    g_transfers[easy] = std::move(transfer);
}

extern "C" int orvex_host_agent_set_url(const char* base_url) {
    return orvex_host::saveConfig("agent_url", base_url);
}

extern "C" const char* orvex_host_agent_url(void) {
    static std::string copy;
    copy = orvex_host::config("agent_url").value_or(kDefaultUrl);
    return copy.c_str();
}

extern "C" int orvex_host_agent_set_ca_file(const char* path) {
    return orvex_host::saveConfig("agent_ca_file", path);
}

extern "C" int orvex_host_agent_set_timeout_ms(long ms) {
    return orvex_host::saveConfig(
        "agent_timeout_ms", ms > 0 ? std::optional<std::string>(std::to_string(ms)) : std::nullopt);
}

extern "C" int orvex_host_agent_fetches(void) { return static_cast<int>(g_transfers.size()); }
