// The weather agent: answers weather requests with the host's simulated weather, or with the
// sea-level pressure a real source reports (weather_agent_openmeteo.cpp).
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>

#include "apps/app_registry.h"
#include "core/host_internal.h"
#include "orvex_host/app_control_control.h"
#include "orvex_host/control.h"

namespace {

const char* const kAgentId = "com.marveno.weather-agent";
int g_requests = 0;
// Why the last request got no answer; empty once a request is under way again.
std::string g_problem;
void (*g_problemCb)(const char*, void*) = nullptr;
void* g_problemData = nullptr;

std::string extra(app_control_h request, const char* key) {
    char* value = nullptr;
    if (app_control_get_extra_data(request, key, &value) != APP_CONTROL_ERROR_NONE) return "";
    std::string out = value ? value : "";
    free(value);
    return out;
}

void addEntry(bundle* b, const char* key, const std::string& value) {
    if (orvex_host::config("agent_missing").value_or("") == key) return;
    bundle_add_str(b, key,
                   orvex_host::config("agent_empty").value_or("") == key ? "" : value.c_str());
}

void handleLaunch(app_control_h request) {
    if (extra(request, "MESSAGE") != "GET_CURRENT_WEATHER_INFO") return;
    ++g_requests;
    g_problem.clear();
    std::string port = extra(request, "PORT_ID");
    std::string backend = orvex_host::config("agent_backend").value_or("sim");
    if (backend == "open-meteo") {
        if (!port.empty()) orvex_host::openMeteoRequest(port, kAgentId);
        return;
    }
    if (backend != "sim") {
        orvex_host::agentProblem("unknown weather agent back end '" + backend +
                                 "' (sim or open-meteo)");
        return;
    }
    if (orvex_host::config("agent_silent").value_or("0") != "0") return;
    if (port.empty()) return;

    long long age = orvex_host::configInt("agent_age", LLONG_MIN, LLONG_MAX).valueOr(0);
    // A stored age may be anything: an observation further off than a long long can say is
    // reported at the far end instead of wrapping round.
    long long observed;
    if (__builtin_sub_overflow(static_cast<long long>(time(nullptr)), age, &observed))
        observed = age < 0 ? LLONG_MAX : LLONG_MIN;
    std::string pressure;
    if (auto fixed = orvex_host::config("agent_pressure")) {
        pressure = *fixed;
    } else {
        char buf[32];
        snprintf(buf, sizeof buf, "%.2f", orvex_host_weather_slp(static_cast<double>(observed)));
        pressure = buf;
    }

    bundle* reply = bundle_create();
    if (!reply) return;
    addEntry(reply, "refreshedTime", std::to_string(observed));
    addEntry(reply, "pressure", pressure);
    orvex_host::postToLocalPort(port.c_str(), kAgentId, reply);
    bundle_free(reply);
}

void resetCount() {
    g_requests = 0;
    g_problem.clear();
    g_problemCb = nullptr;
}

[[maybe_unused]] const bool g_app = orvex_host::registerApp(kAgentId, &handleLaunch);
[[maybe_unused]] const bool g_reset = orvex_host::onReset(&resetCount);

int store(const char* key, const char* value) { return orvex_host::saveConfig(key, value); }

}  // namespace

void orvex_host::agentProblem(const std::string& why) {
    g_problem = why;
    if (g_problemCb) g_problemCb(g_problem.c_str(), g_problemData);
}

extern "C" int orvex_host_agent_set_pressure(const char* text) {
    return store("agent_pressure", text);
}

extern "C" int orvex_host_agent_set_age(long long seconds) {
    return store("agent_age", std::to_string(seconds).c_str());
}

extern "C" int orvex_host_agent_set_missing(const char* key) { return store("agent_missing", key); }

extern "C" int orvex_host_agent_set_empty(const char* key) { return store("agent_empty", key); }

extern "C" int orvex_host_agent_set_silent(int silent) {
    return store("agent_silent", silent ? "1" : nullptr);
}

extern "C" int orvex_host_agent_reset(void) {
    int rc = 0;
    for (const char* key :
         {"agent_pressure", "agent_age", "agent_missing", "agent_empty", "agent_silent"})
        rc |= store(key, nullptr);
    return rc;
}

extern "C" int orvex_host_agent_request_count(void) { return g_requests; }

extern "C" int orvex_host_agent_set_backend(const char* name) {
    if (name && strcmp(name, "sim") != 0 && strcmp(name, "open-meteo") != 0) return -EINVAL;
    return store("agent_backend", name);
}

extern "C" const char* orvex_host_agent_backend(void) {
    static std::string copy;
    copy = orvex_host::config("agent_backend").value_or("sim");
    return copy.c_str();
}

extern "C" const char* orvex_host_agent_problem(void) {
    static thread_local std::string slot;
    return orvex_host::lendProblem(slot, g_problem);
}

extern "C" void orvex_host_agent_on_problem(void (*callback)(const char* why, void* data),
                                            void* data) {
    g_problemCb = callback;
    g_problemData = data;
}
