// Application control: launch requests resolved through the in-process application registry.
#include <glib.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "apps/app_registry.h"
#include "core/host_internal.h"
#include "orvex_host/app_control_control.h"

struct app_control_s {
    std::string appId;
    std::vector<std::pair<std::string, std::string>> extras;
};

namespace {

std::map<std::string, orvex_host::AppHandler>& apps() {
    static std::map<std::string, orvex_host::AppHandler> registry;
    return registry;
}

int g_launches = 0;

// Every handle not destroyed yet. A launched request's handle stays with the platform, as on the
// device; the host frees the leftovers at reset.
// Never destroyed, so the handles stay reachable until the process is gone.
std::set<app_control_h>& liveHandles() {
    static auto* handles = new std::set<app_control_h>();
    return *handles;
}

struct PendingLaunch {
    app_control_s request;
    orvex_host::AppHandler handler;
};

gboolean deliverLaunch(gpointer data) {
    auto* pending = static_cast<PendingLaunch*>(data);
    pending->handler(&pending->request);
    delete pending;
    return G_SOURCE_REMOVE;
}

void resetLaunches() {
    g_launches = 0;
    for (app_control_h h : liveHandles()) delete h;
    liveHandles().clear();
}

[[maybe_unused]] const bool g_registered = orvex_host::onReset(&resetLaunches);

}  // namespace

bool orvex_host::registerApp(const char* appId, AppHandler handler) {
    apps()[appId] = handler;
    return true;
}

extern "C" int app_control_create(app_control_h* app_control) {
    ORVEX_HOST_FAULT_RETURN("app_control_create");
    if (!app_control) return APP_CONTROL_ERROR_INVALID_PARAMETER;
    *app_control = new (std::nothrow) app_control_s();
    if (!*app_control) return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    liveHandles().insert(*app_control);
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_destroy(app_control_h app_control) {
    ORVEX_HOST_FAULT_RETURN("app_control_destroy");
    if (!app_control || !liveHandles().erase(app_control))
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    delete app_control;
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_set_app_id(app_control_h app_control, const char* app_id) {
    ORVEX_HOST_FAULT_RETURN("app_control_set_app_id");
    if (!app_control || !app_id) return APP_CONTROL_ERROR_INVALID_PARAMETER;
    app_control->appId = app_id;
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_get_app_id(app_control_h app_control, char** app_id) {
    ORVEX_HOST_FAULT_RETURN("app_control_get_app_id");
    if (!app_control || !app_id) return APP_CONTROL_ERROR_INVALID_PARAMETER;
    *app_id = strdup(app_control->appId.c_str());
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_add_extra_data(app_control_h app_control, const char* key,
                                          const char* value) {
    ORVEX_HOST_FAULT_RETURN("app_control_add_extra_data");
    if (!app_control || !key || !*key || !value) return APP_CONTROL_ERROR_INVALID_PARAMETER;
    for (auto& e : app_control->extras) {
        if (e.first == key) {
            e.second = value;
            return APP_CONTROL_ERROR_NONE;
        }
    }
    app_control->extras.emplace_back(key, value);
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_get_extra_data(app_control_h app_control, const char* key,
                                          char** value) {
    ORVEX_HOST_FAULT_RETURN("app_control_get_extra_data");
    if (!app_control || !key || !value) return APP_CONTROL_ERROR_INVALID_PARAMETER;
    for (const auto& e : app_control->extras) {
        if (e.first == key) {
            *value = strdup(e.second.c_str());
            return APP_CONTROL_ERROR_NONE;
        }
    }
    return APP_CONTROL_ERROR_KEY_NOT_FOUND;
}

extern "C" int app_control_send_launch_request(app_control_h app_control,
                                               app_control_reply_cb /*callback*/,
                                               void* /*user_data*/) {
    ORVEX_HOST_FAULT_RETURN("app_control_send_launch_request");
    if (!app_control || app_control->appId.empty()) return APP_CONTROL_ERROR_INVALID_PARAMETER;
    auto it = apps().find(app_control->appId);
    if (it == apps().end()) return APP_CONTROL_ERROR_APP_NOT_FOUND;
    ++g_launches;
    g_idle_add(deliverLaunch, new PendingLaunch{*app_control, it->second});
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int orvex_host_app_launch_count(void) { return g_launches; }
