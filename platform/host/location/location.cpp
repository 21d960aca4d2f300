// The location service's C interface: managers, the enabling dialogue and service-state
// notifications on the main loop, over the source of the back end chosen.
#include <glib.h>

#include <cerrno>
#include <ctime>
#include <new>
#include <optional>
#include <set>
#include <string>

#include "core/host_internal.h"
#include "location/location_source.h"
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

using orvex_host::location::chosenSource;
using orvex_host::location::Fix;
using orvex_host::location::flag;
using orvex_host::location::Source;

// Time the service takes to come up after start.
constexpr guint kServiceDelayMs = 100;

std::set<location_manager_h> g_managers;
location_enabling_method_result_cb g_enableCb = nullptr;
void* g_enableData = nullptr;
location_setting_changed_cb g_settingCb = nullptr;
void* g_settingData = nullptr;
std::optional<Fix> g_lastFix;
time_t g_lastTime = 0;
std::string g_reportedProblem;  // the settings' problem last logged

int setFlag(const char* key, int value) { return orvex_host::saveConfig(key, value ? "1" : "0"); }

double nowSeconds() { return static_cast<double>(g_get_real_time()) / 1e6; }

// The source, or none when the settings cannot be used: that is logged once.
Source* source() {
    Source* s = chosenSource();
    std::string problem = s ? "" : orvex_host::location::configProblem();
    if (!problem.empty() && problem != g_reportedProblem) orvex_host::location::logError(problem);
    g_reportedProblem = problem;
    return s;
}

gboolean deliverState(gpointer data) {
    auto* m = static_cast<location_manager_h>(data);
    m->pendingState = 0;
    // The source went down meanwhile: it says when it comes up.
    Source* s = source();
    if (!s || !s->up()) return G_SOURCE_REMOVE;
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
    g_enableCb = nullptr;
    g_settingCb = nullptr;
    g_lastFix.reset();
    g_reportedProblem.clear();
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

}  // namespace

namespace orvex_host {
namespace location {

void sourceUp(bool up) {
    queueState(up && flag("location_enabled", true) ? LOCATIONS_SERVICE_ENABLED
                                                    : LOCATIONS_SERVICE_DISABLED);
}

void sourceFix(const Fix& fix) {
    g_lastFix = fix;
    g_lastTime = time(nullptr);
}

}  // namespace location
}  // namespace orvex_host

namespace {

// Whether any manager is started: the chosen source runs while one is.
void updateSource() {
    bool wanted = false;
    for (auto m : g_managers) wanted = wanted || m->started;
    orvex_host::location::runChosen(wanted);
}

bool isHybrid(location_method_e method) { return method == LOCATIONS_METHOD_HYBRID; }

// The position of a started manager now; nullptr with the failure in *rc.
std::optional<Fix> current(location_manager_h manager, int* rc) {
    *rc = LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE;
    if (!manager->started || !flag("location_enabled", true)) return std::nullopt;
    Source* s = source();
    auto fix = s ? s->position(nowSeconds() - manager->startedAt) : std::nullopt;
    if (fix) *rc = LOCATIONS_ERROR_NONE;
    return fix;
}

int position(location_manager_h manager, double* altitude, double* latitude, double* longitude,
             time_t* timestamp, bool last) {
    if (!valid(manager) || !altitude || !latitude || !longitude)
        return LOCATIONS_ERROR_INVALID_PARAMETER;
    std::optional<Fix> fix = g_lastFix;
    time_t when = g_lastTime;
    if (last) {
        if (!fix) return LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE;
    } else {
        int rc;
        fix = current(manager, &rc);
        if (!fix) return rc;
        when = time(nullptr);
        g_lastFix = fix;
        g_lastTime = when;
    }
    *altitude = fix->altitude;
    *latitude = fix->latitude;
    *longitude = fix->longitude;
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
    updateSource();
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_start(location_manager_h manager) {
    ORVEX_HOST_FAULT_RETURN("location_manager_start");
    if (!valid(manager)) return LOCATIONS_ERROR_INVALID_PARAMETER;
    if (!flag("location_enabled", true)) return LOCATIONS_ERROR_GPS_SETTING_OFF;
    if (!source()) return LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE;
    if (!manager->started) manager->startedAt = nowSeconds();
    manager->started = true;
    updateSource();
    // A source that is not up yet (no fix, a track still being read) says when it is.
    Source* s = source();
    if (!manager->pendingState && s && s->up())
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
    updateSource();
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

extern "C" int location_manager_get_accuracy(location_manager_h manager,
                                             location_accuracy_level_e* level, double* horizontal,
                                             double* vertical) {
    ORVEX_HOST_FAULT_RETURN("location_manager_get_accuracy");
    if (!valid(manager) || !level || !horizontal || !vertical)
        return LOCATIONS_ERROR_INVALID_PARAMETER;
    int rc;
    auto fix = current(manager, &rc);
    if (!fix) return rc;
    // Every source here gives a point, not an area; how good it is, the errors say.
    *level = LOCATIONS_ACCURACY_DETAILED;
    *horizontal = fix->horizontalError;
    *vertical = fix->verticalError;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int location_manager_get_velocity(location_manager_h manager, double* climb,
                                             double* direction, double* speed) {
    ORVEX_HOST_FAULT_RETURN("location_manager_get_velocity");
    if (!valid(manager) || !climb || !direction || !speed) return LOCATIONS_ERROR_INVALID_PARAMETER;
    int rc;
    auto fix = current(manager, &rc);
    if (!fix) return rc;
    *climb = fix->climb;
    *direction = fix->direction;
    *speed = fix->speed;
    return LOCATIONS_ERROR_NONE;
}

extern "C" int orvex_host_location_set_backend(const char* name) {
    using namespace orvex_host::location;
    const Backend* b = name ? findBackend(name) : nullptr;
    if (name && !b) return -EINVAL;
    const char* required = b ? prototype(b).required() : nullptr;
    if (required && !orvex_host::config(required)) return -ENOENT;
    return orvex_host::saveConfig("location_backend", name);
}

extern "C" const char* orvex_host_location_backend(void) {
    return orvex_host::location::chosenName();
}

extern "C" const char* orvex_host_location_backend_name(int i) {
    const auto* b = orvex_host::location::backends();
    for (int k = 0; k < i && b->name; ++k) ++b;
    return i < 0 ? nullptr : b->name;
}

extern "C" const char* orvex_host_location_backend_summary(int i) {
    const auto* b = orvex_host::location::backends();
    for (int k = 0; k < i && b->name; ++k) ++b;
    return i < 0 ? nullptr : b->summary;
}

extern "C" const char* orvex_host_location_problem(void) {
    static thread_local std::string slot;
    std::string problem = orvex_host::location::configProblem();
    if (problem.empty()) {
        Source* s = source();
        problem = s ? s->problem() : "";
    }
    return orvex_host::lendProblem(slot, problem);
}

extern "C" const char* orvex_host_location_config_problem(void) {
    static thread_local std::string slot;
    return orvex_host::lendProblem(slot, orvex_host::location::configProblem());
}

extern "C" const char* orvex_host_location_setting_problem(const char* key, const char* value) {
    static thread_local std::string slot;
    return orvex_host::lendProblem(
        slot, key && value ? orvex_host::location::settingProblem(key, value) : "no setting given");
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
