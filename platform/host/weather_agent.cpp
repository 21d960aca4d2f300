// The weather-agent simulator: answers weather requests with the host's simulated weather.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>

#include "app_registry.h"
#include "host_internal.h"
#include "orvex_host/app_control_control.h"
#include "orvex_host/control.h"

namespace {

const char* const kAgentId = "com.marveno.weather-agent";
int g_requests = 0;

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
    if (orvex_host::config("agent_silent").value_or("0") != "0") return;
    std::string port = extra(request, "PORT_ID");
    if (port.empty()) return;

    long long age = atoll(orvex_host::config("agent_age").value_or("0").c_str());
    long long observed = static_cast<long long>(time(nullptr)) - age;
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

void resetCount() { g_requests = 0; }

[[maybe_unused]] const bool g_app = orvex_host::registerApp(kAgentId, &handleLaunch);
[[maybe_unused]] const bool g_reset = orvex_host::onReset(&resetCount);

int store(const char* key, const char* value) {
    return orvex_host::setConfig(key, value ? std::optional<std::string>(value) : std::nullopt)
               ? 0
               : -EIO;
}

}  // namespace

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
