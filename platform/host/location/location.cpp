// Location service: a configured position, a replayed track or gpsd, with the enabling dialogue
// and service-state notifications delivered on the main loop.
#include <glib.h>
#include <glib/gstdio.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/host_internal.h"
#include "location/location_internal.h"
#include "orvex_host/location_control.h"
#include "platform/location_manager.h"

struct location_manager_s {
    location_service_state_changed_cb stateCb = nullptr;
    void* stateData = nullptr;
    bool started = false;
    double startedAt = 0;
    guint pendingState = 0;
};

namespace {

using orvex_host::location::Fix;
using orvex_host::location::TrackPoint;

// An alpine town: a plausible place for an altimeter to stand.
constexpr Fix kDefaultFix{47.2692, 11.4041, 574.0};
// Time the service takes to come up after start.
constexpr guint kServiceDelayMs = 100;
constexpr const char* kDefaultGpsdHost = "localhost";
constexpr int kDefaultGpsdPort = 2947;

std::set<location_manager_h> g_managers;
location_enabling_method_result_cb g_enableCb = nullptr;
void* g_enableData = nullptr;
location_setting_changed_cb g_settingCb = nullptr;
void* g_settingData = nullptr;
std::optional<Fix> g_lastFix;
time_t g_lastTime = 0;

bool flag(const char* key, bool fallback) { return orvex_host::configBool(key).valueOr(fallback); }

int setFlag(const char* key, int value) { return orvex_host::saveConfig(key, value ? "1" : "0"); }

double nowSeconds() { return static_cast<double>(g_get_real_time()) / 1e6; }

std::string backendName() {
    if (auto name = orvex_host::config("location_backend")) return *name;
    return orvex_host::config("location_track") ? "track" : "fixed";
}

std::string gpsdHost() {
    auto host = orvex_host::config("location_gpsd_host");
    return host && !host->empty() ? *host : kDefaultGpsdHost;
}

int gpsdPort() {
    return static_cast<int>(
        orvex_host::configInt("location_gpsd_port", 1, 65535).valueOr(kDefaultGpsdPort));
}

// The track file read once per version of it: positions are asked for far more often than
// tracks change.
struct TrackCache {
    std::string path;
    gint64 mtime = -1;
    gint64 size = -1;
    std::vector<TrackPoint> points;
    std::string error;
} g_track;

const TrackCache& track(const std::string& path) {
    GStatBuf st{};
    bool found = g_stat(path.c_str(), &st) == 0;
    gint64 mtime = found ? static_cast<gint64>(st.st_mtime) : -1;
    gint64 size = found ? static_cast<gint64>(st.st_size) : -1;
    if (path != g_track.path || mtime != g_track.mtime || size != g_track.size) {
        g_track = TrackCache{path, mtime, size, {}, {}};
        g_track.points = orvex_host::location::readTrack(path, &g_track.error);
    }
    return g_track;
}

// The configured position, or the track's point at `sinceStart` seconds. Fails (and says why in
// the log) when the chosen track cannot be read.
bool currentFix(double sinceStart, Fix* out) {
    if (backendName() == "track") {
        auto path = orvex_host::config("location_track");
        if (!path) {
            orvex_host::location::logError("location back end 'track' without a track file");
            return false;
        }
        const TrackCache& t = track(*path);
        if (t.points.empty()) {
            orvex_host::location::logError(t.error);
            return false;
        }
        *out = t.points.front().fix;
        for (const auto& p : t.points)
            if (p.seconds <= sinceStart) *out = p.fix;
        return true;
    }
    *out = kDefaultFix;
    if (auto pos = orvex_host::config("location_position")) {
        Fix f{};
        if (sscanf(pos->c_str(), "%lf,%lf,%lf", &f.latitude, &f.longitude, &f.altitude) == 3)
            *out = f;
    }
    return true;
}

gboolean deliverState(gpointer data) {
    auto* m = static_cast<location_manager_h>(data);
    m->pendingState = 0;
    // The fix was lost meanwhile: the next one brings the service up.
    if (backendName() == "gpsd" && !orvex_host::location::gpsdFix()) return G_SOURCE_REMOVE;
    if (m->stateCb)
        m->stateCb(
            flag("location_enabled", true) ? LOCATIONS_SERVICE_ENABLED : LOCATIONS_SERVICE_DISABLED,
            m->stateData);
    return G_SOURCE_REMOVE;
}

struct EnableRequest {
    bool enable;
};

gboolean deliverEnableResult(gpointer data) {
    auto* req = static_cast<EnableRequest*>(data);
    bool accepted = flag("location_enable_answer", true);
    bool before = flag("location_enabled", true);
    if (accepted) setFlag("location_enabled", req->enable);
    if (g_enableCb)
        g_enableCb(LOCATIONS_METHOD_HYBRID, LOCATIONS_DEVICE_WATCH,
                   accepted ? LOCATIONS_ENABLE_METHOD_RESULT_ACCEPTED
                            : LOCATIONS_ENABLE_METHOD_RESULT_REFUSED,
                   g_enableData);
    if (accepted && before != req->enable && g_settingCb)
        g_settingCb(LOCATIONS_METHOD_HYBRID, req->enable, g_settingData);
    delete req;
    return G_SOURCE_REMOVE;
}

void resetLocation() {
    for (auto m : g_managers) {
        if (m->pendingState) g_source_remove(m->pendingState);
        delete m;
    }
    g_managers.clear();
    orvex_host::location::gpsdStop();
    g_track = TrackCache{};
    g_enableCb = nullptr;
    g_settingCb = nullptr;
    g_lastFix.reset();
}

[[maybe_unused]] const bool g_reset = orvex_host::onReset(&resetLocation);

bool valid(location_manager_h m) { return m && g_managers.count(m); }

struct InjectedState {
    location_manager_h manager;
    int state;
};

gboolean deliverInjected(gpointer data) {
    auto* s = static_cast<InjectedState*>(data);
    if (valid(s->manager) && s->manager->stateCb)
        s->manager->stateCb(static_cast<location_service_state_e>(s->state), s->manager->stateData);
    delete s;
    return G_SOURCE_REMOVE;
}

void queueState(int state) {
    for (auto m : g_managers)
        if (m->started) g_idle_add(deliverInjected, new InjectedState{m, state});
}

// With gpsd the service is up while it has a fix, as a receiver's is; its fixes are the last
// known position.
void gpsdFix(const std::optional<Fix>& fix, bool changed) {
    if (fix) {
        g_lastFix = fix;
        g_lastTime = time(nullptr);
    }
    if (changed)
        queueState(fix && flag("location_enabled", true) ? LOCATIONS_SERVICE_ENABLED
                                                         : LOCATIONS_SERVICE_DISABLED);
}

// The gpsd client runs while a manager is started on that back end.
void updateGpsd() {
    bool wanted = false;
    for (auto m : g_managers) wanted = wanted || m->started;
    if (wanted && backendName() == "gpsd")
        orvex_host::location::gpsdStart(gpsdHost(), gpsdPort(), &gpsdFix);
    else
        orvex_host::location::gpsdStop();
}

bool isHybrid(location_method_e method) { return method == LOCATIONS_METHOD_HYBRID; }

int position(location_manager_h manager, double* altitude, double* latitude, double* longitude,
             time_t* timestamp, bool last) {
    if (!valid(manager) || !altitude || !latitude || !longitude)
        return LOCATIONS_ERROR_INVALID_PARAMETER;
    Fix fix;
    time_t when;
    if (last) {
        if (!g_lastFix) return LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE;
        fix = *g_lastFix;
        when = g_lastTime;
    } else {
        if (!manager->started || !flag("location_enabled", true))
            return LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE;
        if (backendName() == "gpsd") {
            // Until the receiver has a fix there is no position, as on a watch under a roof.
            auto f = orvex_host::location::gpsdFix();
            if (!f) return LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE;
            fix = *f;
        } else if (!currentFix(nowSeconds() - manager->startedAt, &fix)) {
            return LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE;
        }
        when = time(nullptr);
        g_lastFix = fix;
        g_lastTime = when;
    }
    *altitude = fix.altitude;
    *latitude = fix.latitude;
    *longitude = fix.longitude;
    if (timestamp) *timestamp = when;
    return LOCATIONS_ERROR_NONE;
}

}  // namespace

extern "C" bool location_manager_is_supported_method(location_method_e method) {
    int code;
    if (orvex_host::fault("location_manager_is_supported_method", &code)) return false;
    return isHybrid(method) && flag("location_supported", true);
}

extern "C" int location_manager_is_enabled_method(location_method_e method, bool* enable) {
    ORVEX_HOST_FAULT_RETURN("location_manager_is_enabled_method");
    if (!enable || method == LOCATIONS_METHOD_NONE) return LOCATIONS_ERROR_INVALID_PARAMETER;
    *enable = flag("location_enabled", true);
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_enable_method(location_method_e method, bool enable) {
    ORVEX_HOST_FAULT_RETURN("location_manager_enable_method");
    if (!isHybrid(method)) return LOCATIONS_ERROR_INCORRECT_METHOD;
    g_idle_add(deliverEnableResult, new EnableRequest{enable});
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_set_enabling_method_result_cb(
    location_method_e method, location_enabling_method_result_cb callback, void* user_data) {
    ORVEX_HOST_FAULT_RETURN("location_manager_set_enabling_method_result_cb");
    if (!isHybrid(method) || !callback) return LOCATIONS_ERROR_INVALID_PARAMETER;
    g_enableCb = callback;
    g_enableData = user_data;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_unset_enabling_method_result_cb(location_method_e method) {
    ORVEX_HOST_FAULT_RETURN("location_manager_unset_enabling_method_result_cb");
    if (!isHybrid(method)) return LOCATIONS_ERROR_INVALID_PARAMETER;
    g_enableCb = nullptr;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_set_setting_changed_cb(location_method_e method,
                                                       location_setting_changed_cb callback,
                                                       void* user_data) {
    ORVEX_HOST_FAULT_RETURN("location_manager_set_setting_changed_cb");
    if (!isHybrid(method) || !callback) return LOCATIONS_ERROR_INVALID_PARAMETER;
    g_settingCb = callback;
    g_settingData = user_data;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_unset_setting_changed_cb(location_method_e method) {
    ORVEX_HOST_FAULT_RETURN("location_manager_unset_setting_changed_cb");
    if (!isHybrid(method)) return LOCATIONS_ERROR_INVALID_PARAMETER;
    g_settingCb = nullptr;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_create(location_method_e method, location_manager_h* manager) {
    ORVEX_HOST_FAULT_RETURN("location_manager_create");
    if (!manager) return LOCATIONS_ERROR_INVALID_PARAMETER;
    if (!isHybrid(method)) return LOCATIONS_ERROR_INCORRECT_METHOD;
    if (!flag("location_supported", true)) return LOCATIONS_ERROR_NOT_SUPPORTED;
    *manager = new (std::nothrow) location_manager_s();
    if (!*manager) return LOCATIONS_ERROR_OUT_OF_MEMORY;
    g_managers.insert(*manager);
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_destroy(location_manager_h manager) {
    ORVEX_HOST_FAULT_RETURN("location_manager_destroy");
    if (!valid(manager)) return LOCATIONS_ERROR_INVALID_PARAMETER;
    if (manager->pendingState) g_source_remove(manager->pendingState);
    g_managers.erase(manager);
    delete manager;
    updateGpsd();
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_start(location_manager_h manager) {
    ORVEX_HOST_FAULT_RETURN("location_manager_start");
    if (!valid(manager)) return LOCATIONS_ERROR_INVALID_PARAMETER;
    if (!flag("location_enabled", true)) return LOCATIONS_ERROR_GPS_SETTING_OFF;
    if (!manager->started) manager->startedAt = nowSeconds();
    manager->started = true;
    updateGpsd();
    // gpsd reports the service up with its first fix.
    bool waitForFix = backendName() == "gpsd" && !orvex_host::location::gpsdFix();
    if (!manager->pendingState && !waitForFix)
        manager->pendingState = g_timeout_add(kServiceDelayMs, deliverState, manager);
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_stop(location_manager_h manager) {
    ORVEX_HOST_FAULT_RETURN("location_manager_stop");
    if (!valid(manager)) return LOCATIONS_ERROR_INVALID_PARAMETER;
    manager->started = false;
    if (manager->pendingState) {
        g_source_remove(manager->pendingState);
        manager->pendingState = 0;
    }
    updateGpsd();
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_set_service_state_changed_cb(
    location_manager_h manager, location_service_state_changed_cb callback, void* user_data) {
    ORVEX_HOST_FAULT_RETURN("location_manager_set_service_state_changed_cb");
    if (!valid(manager) || !callback) return LOCATIONS_ERROR_INVALID_PARAMETER;
    manager->stateCb = callback;
    manager->stateData = user_data;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_unset_service_state_changed_cb(location_manager_h manager) {
    ORVEX_HOST_FAULT_RETURN("location_manager_unset_service_state_changed_cb");
    if (!valid(manager)) return LOCATIONS_ERROR_INVALID_PARAMETER;
    manager->stateCb = nullptr;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_set_position_updated_cb(location_manager_h manager,
                                                        location_position_updated_cb callback,
                                                        int interval, void*) {
    ORVEX_HOST_FAULT_RETURN("location_manager_set_position_updated_cb");
    if (!valid(manager) || !callback || interval < 1) return LOCATIONS_ERROR_INVALID_PARAMETER;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_unset_position_updated_cb(location_manager_h manager) {
    ORVEX_HOST_FAULT_RETURN("location_manager_unset_position_updated_cb");
    return valid(manager) ? LOCATIONS_ERROR_NONE : LOCATIONS_ERROR_INVALID_PARAMETER;
}

extern "C" int location_manager_get_position(location_manager_h manager, double* altitude,
                                             double* latitude, double* longitude,
                                             time_t* timestamp) {
    ORVEX_HOST_FAULT_RETURN("location_manager_get_position");
    return position(manager, altitude, latitude, longitude, timestamp, false);
}

extern "C" int location_manager_get_last_position(location_manager_h manager, double* altitude,
                                                  double* latitude, double* longitude,
                                                  time_t* timestamp) {
    ORVEX_HOST_FAULT_RETURN("location_manager_get_last_position");
    return position(manager, altitude, latitude, longitude, timestamp, true);
}

extern "C" int orvex_host_location_set_position(double latitude, double longitude,
                                                double altitude) {
    if (std::fabs(latitude) > 90 || std::fabs(longitude) > 180) return -EINVAL;
    char buf[96];
    snprintf(buf, sizeof buf, "%.7f,%.7f,%.2f", latitude, longitude, altitude);
    return orvex_host::saveConfig("location_position", buf);
}

extern "C" const char* orvex_host_location_track_problem(const char* path) {
    static thread_local std::string slot;
    std::string error;
    if (!path)
        error = "no track file given";
    else if (!orvex_host::location::readTrack(path, &error).empty())
        error.clear();
    return orvex_host::lendProblem(slot, error);
}

extern "C" int orvex_host_location_set_track(const char* path) {
    if (path) {
        if (orvex_host_location_track_problem(path)) return -EINVAL;
    }
    if (int rc = orvex_host::saveConfig("location_track", path); rc != 0) return rc;
    return orvex_host::saveConfig("location_backend", path ? "track" : "fixed");
}

extern "C" int orvex_host_location_set_backend(const char* name) {
    if (name && strcmp(name, "fixed") != 0 && strcmp(name, "track") != 0 &&
        strcmp(name, "gpsd") != 0)
        return -EINVAL;
    if (name && !strcmp(name, "track") && !orvex_host::config("location_track")) return -ENOENT;
    return orvex_host::saveConfig("location_backend", name);
}

extern "C" const char* orvex_host_location_backend(void) {
    std::string name = backendName();
    for (const char* known : {"fixed", "track", "gpsd"})
        if (name == known) return known;
    return "fixed";
}

extern "C" const char* orvex_host_location_problem(void) {
    static thread_local std::string slot;
    std::string name = backendName();
    std::string problem;
    if (name == "gpsd") {
        problem = orvex_host::location::gpsdProblem();
    } else if (name == "track") {
        auto path = orvex_host::config("location_track");
        problem = path ? track(*path).error : "no track file set";
    }
    return orvex_host::lendProblem(slot, problem);
}

extern "C" int orvex_host_location_set_gpsd(const char* host, int port) {
    if (port < 0 || port > 65535) return -EINVAL;
    if (int rc = orvex_host::saveConfig("location_gpsd_host", host); rc != 0) return rc;
    return orvex_host::saveConfig(
        "location_gpsd_port",
        port ? std::optional<std::string>(std::to_string(port)) : std::nullopt);
}

extern "C" char* orvex_host_location_gpsd_address(void) {
    return g_strdup_printf("%s:%d", gpsdHost().c_str(), gpsdPort());
}

extern "C" int orvex_host_location_set_supported(int supported) {
    return setFlag("location_supported", supported);
}

extern "C" int orvex_host_location_set_enabled(int enabled) {
    return setFlag("location_enabled", enabled);
}

extern "C" int orvex_host_location_set_enable_answer(int accept) {
    return setFlag("location_enable_answer", accept);
}

extern "C" void orvex_host_location_inject_state(int state) { queueState(state); }

extern "C" int orvex_host_location_manager_count(void) {
    return static_cast<int>(g_managers.size());
}

extern "C" int orvex_host_location_has_enabling_result_cb(void) { return g_enableCb != nullptr; }

extern "C" int orvex_host_location_has_setting_changed_cb(void) { return g_settingCb != nullptr; }
