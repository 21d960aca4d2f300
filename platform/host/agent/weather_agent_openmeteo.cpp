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

#include "agent/agent_internal.h"
#include "apps/app_registry.h"
#include "core/host_internal.h"
#include "core/json_guard.h"
#include "orvex_host/agent_control.h"
#include "orvex_host/plausible.h"
#include "platform/connection.h"
#include "platform/location_manager.h"

namespace orvex_host {
namespace agent {
namespace {

const char* const kDefaultUrl = "https://api.open-meteo.com";
constexpr long kDefaultTimeoutMs = 10000;
// A forecast answer is a few kilobytes; anything far larger is not one.
constexpr size_t kMaxBody = 1 << 20;
// An error's reason is a sentence.
constexpr size_t kMaxReason = 200;
constexpr long long kMaxUtcOffset = 18 * 3600;

// The location service's position now, or its last one while it has no fix.
bool position(double* latitude, double* longitude) {
    location_manager_h manager = nullptr;
    int rc = location_manager_create(LOCATIONS_METHOD_HYBRID, &manager);
    if (rc != LOCATIONS_ERROR_NONE) {
        problem("the location service is not available (error " + std::to_string(rc) + ")");
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
        problem("no position from the location service (error " + std::to_string(rc) + ")");
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

// The observation time, seconds since the epoch or the local ISO time of the answer's time zone,
// into *t; otherwise why it cannot be read.
std::string observed(JsonObject* root, JsonNode* time, long long* t) {
    const std::string missing = "Open-Meteo's answer has no current pressure_msl and time";
    if (JSON_NODE_HOLDS_VALUE(time) && json_node_get_value_type(time) == G_TYPE_INT64) {
        *t = json_node_get_int(time);
        return "";
    }
    if (!JSON_NODE_HOLDS_VALUE(time) || json_node_get_value_type(time) != G_TYPE_STRING)
        return missing;
    // The API writes local times to the minute ("2026-09-15T12:00"), in the zone of the answer.
    int y, mo, d, h, mi;
    if (sscanf(json_node_get_string(time), "%4d-%2d-%2dT%2d:%2d", &y, &mo, &d, &h, &mi) != 5)
        return missing;
    GDateTime* local = g_date_time_new_utc(y, mo, d, h, mi, 0);
    if (!local) return missing;
    *t = g_date_time_to_unix(local);
    g_date_time_unref(local);
    JsonNode* offset = json_object_get_member(root, "utc_offset_seconds");
    if (!offset || !JSON_NODE_HOLDS_VALUE(offset)) return "";
    const bool whole = json_node_get_value_type(offset) == G_TYPE_INT64;
    const long long seconds = whole ? json_node_get_int(offset) : 0;
    // Time zones lie within 18 hours of UTC.
    if (!whole || seconds < -kMaxUtcOffset || seconds > kMaxUtcOffset)
        return "Open-Meteo's utc_offset_seconds is implausible";
    *t -= seconds;
    return "";
}

// The error's own words, kept to a line: a server may say anything at any length.
std::string reasonOf(JsonObject* root) {
    JsonNode* reason = root ? json_object_get_member(root, "reason") : nullptr;
    if (!reason || !JSON_NODE_HOLDS_VALUE(reason) ||
        json_node_get_value_type(reason) != G_TYPE_STRING)
        return "";
    std::string text = json_node_get_string(reason);
    if (text.size() <= kMaxReason) return ": " + text;
    size_t cut = kMaxReason;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xc0) == 0x80) --cut;
    return ": " + text.substr(0, cut) + "...";
}

// The sea-level pressure of the answer, or why it has none that can be passed on.
std::string pressureOf(JsonNode* slp, double* pressure) {
    const GType type = JSON_NODE_HOLDS_VALUE(slp) ? json_node_get_value_type(slp) : G_TYPE_NONE;
    if (type != G_TYPE_INT64 && type != G_TYPE_DOUBLE)
        return "Open-Meteo's answer has no usable pressure_msl";
    *pressure = json_node_get_double(slp);
    if (orvex_host_plausible_slp(*pressure)) return "";
    char text[160];
    snprintf(text, sizeof text,
             "Open-Meteo's pressure_msl %g hPa is implausible (a sea-level pressure is %g to %g "
             "hPa)",
             *pressure, ORVEX_HOST_SLP_MIN_HPA, ORVEX_HOST_SLP_MAX_HPA);
    return text;
}

int yearOf(long long t) {
    GDateTime* d = g_date_time_new_from_unix_utc(t);
    int year = d ? g_date_time_get_year(d) : 0;
    if (d) g_date_time_unref(d);
    return year;
}

// Reads the answer into the agent's two entries; otherwise returns why it could not.
std::string readAnswer(long status, const std::string& body, long long* time, double* pressure) {
    const bool shallow = orvex_host_json_depth_ok(body.data(), body.size());
    if (!shallow && status == 200)
        return "Open-Meteo's answer nests deeper than " +
               std::to_string(ORVEX_HOST_JSON_MAX_DEPTH) + " levels";
    JsonParser* parser = json_parser_new();
    bool parsed = shallow && json_parser_load_from_data(parser, body.data(),
                                                        static_cast<gssize>(body.size()), nullptr);
    JsonNode* rootNode = parsed ? json_parser_get_root(parser) : nullptr;
    JsonObject* root =
        rootNode && JSON_NODE_HOLDS_OBJECT(rootNode) ? json_node_get_object(rootNode) : nullptr;
    std::string why;
    if (status != 200) {
        why = "Open-Meteo answered HTTP " + std::to_string(status) + reasonOf(root);
    } else {
        JsonNode* current = root ? json_object_get_member(root, "current") : nullptr;
        JsonObject* cur =
            current && JSON_NODE_HOLDS_OBJECT(current) ? json_node_get_object(current) : nullptr;
        JsonNode* slp = cur ? json_object_get_member(cur, "pressure_msl") : nullptr;
        JsonNode* when = cur ? json_object_get_member(cur, "time") : nullptr;
        if (!slp || !JSON_NODE_HOLDS_VALUE(slp) || !when)
            why = "Open-Meteo's answer has no current pressure_msl and time";
        if (why.empty()) why = observed(root, when, time);
        if (why.empty()) why = pressureOf(slp, pressure);
        if (why.empty() && !orvex_host_plausible_time(*time))
            why = "Open-Meteo's time " + std::to_string(*time) + " is implausible (not between " +
                  std::to_string(yearOf(ORVEX_HOST_TIME_MIN)) + " and " +
                  std::to_string(yearOf(ORVEX_HOST_TIME_MAX)) + ")";
    }
    g_object_unref(parser);
    return why;
}

// A day: far past any answer worth waiting for, and the same bound on every word size.
constexpr long long kMaxTimeoutMs = 24LL * 3600 * 1000;
Setting<long long> timeoutSetting() { return configInt("agent_timeout_ms", 1, kMaxTimeoutMs); }
[[maybe_unused]] const bool g_timeoutCheck =
    addConfigCheck([] { return timeoutSetting().problem; });

long timeoutMs() { return timeoutSetting().valueOr(kDefaultTimeoutMs); }

struct Transfer {
    std::string port;
    std::string body;
    bool tooLarge = false;
    char error[CURL_ERROR_SIZE] = "";
};

size_t onBody(char* data, size_t size, size_t count, void* user) {
    auto* transfer = static_cast<Transfer*>(user);
    if (transfer->body.size() + size * count > kMaxBody) {
        transfer->tooLarge = true;
        return 0;
    }
    transfer->body.append(data, size * count);
    return size * count;
}

class OpenMeteoSource : public Source {
public:
    ~OpenMeteoSource() override {
        for (auto& [easy, transfer] : transfers_) {
            curl_multi_remove_handle(multi_, easy);
            curl_easy_cleanup(easy);
        }
        transfers_.clear();
        if (multi_) curl_multi_cleanup(multi_);
        while (!watches_.empty()) unwatch(watches_.begin()->first);
        if (timer_) g_source_remove(timer_);
    }

    void answer(const std::string& port) override;
    int pending() const override { return static_cast<int>(transfers_.size()); }

private:
    bool ensureMulti();
    void finish(CURL* easy, CURLcode result);
    void drive(curl_socket_t fd, int events);
    void unwatch(curl_socket_t fd);

    static gboolean onSocket(gint fd, GIOCondition condition, gpointer self);
    static gboolean onTimer(gpointer self);
    static int onSocketChange(CURL*, curl_socket_t fd, int what, void* self, void*);
    static int onTimerChange(CURLM*, long timeoutMs, void* self);

    CURLM* multi_ = nullptr;
    std::map<curl_socket_t, guint> watches_;
    guint timer_ = 0;
    std::map<CURL*, std::unique_ptr<Transfer>> transfers_;
};

void OpenMeteoSource::finish(CURL* easy, CURLcode result) {
    auto it = transfers_.find(easy);
    if (it == transfers_.end()) return;
    std::unique_ptr<Transfer> transfer = std::move(it->second);
    transfers_.erase(it);
    curl_multi_remove_handle(multi_, easy);
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_cleanup(easy);

    long long time = 0;
    double pressure = 0;
    std::string why;
    if (transfer->tooLarge)
        why = "Open-Meteo's answer is larger than " + std::to_string(kMaxBody >> 20) + " MiB";
    else if (result != CURLE_OK)
        why = std::string("Open-Meteo could not be reached: ") +
              (*transfer->error ? transfer->error : curl_easy_strerror(result));
    else
        why = readAnswer(status, transfer->body, &time, &pressure);
    if (!why.empty()) {
        problem(why);
        return;
    }
    char text[G_ASCII_DTOSTR_BUF_SIZE];
    g_ascii_formatd(text, sizeof text, "%.2f", pressure);
    bundle* reply = bundle_create();
    if (!reply) return;
    bundle_add_str(reply, "refreshedTime", std::to_string(time).c_str());
    bundle_add_str(reply, "pressure", text);
    postToLocalPort(transfer->port.c_str(), kAgentId, reply);
    bundle_free(reply);
}

void OpenMeteoSource::drive(curl_socket_t fd, int events) {
    int running = 0;
    curl_multi_socket_action(multi_, fd, events, &running);
    int left = 0;
    while (CURLMsg* msg = curl_multi_info_read(multi_, &left))
        if (msg->msg == CURLMSG_DONE) finish(msg->easy_handle, msg->data.result);
}

gboolean OpenMeteoSource::onSocket(gint fd, GIOCondition condition, gpointer self) {
    int events = 0;
    if (condition & (G_IO_IN | G_IO_HUP)) events |= CURL_CSELECT_IN;
    if (condition & G_IO_OUT) events |= CURL_CSELECT_OUT;
    if (condition & (G_IO_ERR | G_IO_NVAL)) events |= CURL_CSELECT_ERR;
    static_cast<OpenMeteoSource*>(self)->drive(fd, events);
    // libcurl removes the watch through onSocketChange when it is done with the socket.
    return G_SOURCE_CONTINUE;
}

gboolean OpenMeteoSource::onTimer(gpointer self) {
    auto* source = static_cast<OpenMeteoSource*>(self);
    source->timer_ = 0;
    source->drive(CURL_SOCKET_TIMEOUT, 0);
    return G_SOURCE_REMOVE;
}

void OpenMeteoSource::unwatch(curl_socket_t fd) {
    auto it = watches_.find(fd);
    if (it == watches_.end()) return;
    g_source_remove(it->second);
    watches_.erase(it);
}

int OpenMeteoSource::onSocketChange(CURL*, curl_socket_t fd, int what, void* self, void*) {
    auto* source = static_cast<OpenMeteoSource*>(self);
    source->unwatch(fd);
    if (what == CURL_POLL_REMOVE) return 0;
    int condition = G_IO_HUP | G_IO_ERR;
    if (what & CURL_POLL_IN) condition |= G_IO_IN;
    if (what & CURL_POLL_OUT) condition |= G_IO_OUT;
    source->watches_[fd] =
        g_unix_fd_add(fd, static_cast<GIOCondition>(condition), onSocket, source);
    return 0;
}

int OpenMeteoSource::onTimerChange(CURLM*, long timeoutMs, void* self) {
    auto* source = static_cast<OpenMeteoSource*>(self);
    if (source->timer_) g_source_remove(source->timer_);
    source->timer_ =
        timeoutMs < 0 ? 0 : g_timeout_add(static_cast<guint>(timeoutMs), onTimer, source);
    return 0;
}

bool OpenMeteoSource::ensureMulti() {
    if (multi_) return true;
    multi_ = curl_multi_init();
    if (!multi_) return false;
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, onSocketChange);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, onTimerChange);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    return true;
}

void OpenMeteoSource::answer(const std::string& port) {
    double latitude = 0, longitude = 0;
    if (!position(&latitude, &longitude)) return;
    std::string url = config("agent_url").value_or(kDefaultUrl);
    while (!url.empty() && url.back() == '/') url.pop_back();
    url += "/v1/forecast?latitude=" + number(latitude) + "&longitude=" + number(longitude) +
           "&current=pressure_msl&timeformat=unixtime";

    auto transfer = std::make_unique<Transfer>();
    transfer->port = port;
    CURL* easy = ensureMulti() ? curl_easy_init() : nullptr;
    if (!easy) {
        problem("cannot start a transfer (out of memory)");
        return;
    }
    std::string via = proxy();
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https,http");
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (auto ca = config("agent_ca_file")) curl_easy_setopt(easy, CURLOPT_CAINFO, ca->c_str());
    curl_easy_setopt(easy, CURLOPT_PROXY, via.c_str());
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, timeoutMs());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "orvex-weather-agent");
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.get());
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer->error);
    if (curl_multi_add_handle(multi_, easy) != CURLM_OK) {
        curl_easy_cleanup(easy);
        problem("cannot start a transfer");
        return;
    }
    transfers_[easy] = std::move(transfer);
}

}  // namespace

std::unique_ptr<Source> makeOpenMeteoSource() { return std::make_unique<OpenMeteoSource>(); }

}  // namespace agent
}  // namespace orvex_host

using orvex_host::agent::kDefaultUrl;

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
    if (ms > orvex_host::agent::kMaxTimeoutMs) return -EINVAL;
    return orvex_host::saveConfig("agent_timeout_ms",
                                  ms > 0 ? std::to_string(ms).c_str() : nullptr);
}
