// The weather agent's simulator: answers with the host's simulated weather, or with whatever the
// tool or a test told it to send (a fixed text, an old observation, an entry left out, silence).
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "agent/agent_internal.h"
#include "apps/app_registry.h"
#include "core/host_internal.h"
#include "orvex_host/agent_control.h"
#include "orvex_host/control.h"

namespace orvex_host {
namespace agent {
namespace {

Setting<long long> ageSetting() { return configInt("agent_age", LLONG_MIN, LLONG_MAX); }
[[maybe_unused]] const bool g_ageCheck = addConfigCheck([] { return ageSetting().problem; });

void addEntry(bundle* b, const char* key, const std::string& value) {
    if (config("agent_missing").value_or("") == key) return;
    bundle_add_str(b, key, config("agent_empty").value_or("") == key ? "" : value.c_str());
}

class SimSource : public Source {
public:
    void answer(const std::string& port) override {
        if (config("agent_silent").value_or("0") != "0") return;
        long long age = ageSetting().valueOr(0);
        // A stored age may be anything: an observation further off than a long long can say is
        // reported at the far end instead of wrapping round.
        long long observed;
        if (__builtin_sub_overflow(static_cast<long long>(time(nullptr)), age, &observed))
            observed = age < 0 ? LLONG_MAX : LLONG_MIN;
        std::string pressure;
        if (auto fixed = config("agent_pressure")) {
            pressure = *fixed;
        } else {
            char buf[32];
            snprintf(buf, sizeof buf, "%.2f",
                     orvex_host_weather_slp(static_cast<double>(observed)));
            pressure = buf;
        }
        bundle* reply = bundle_create();
        if (!reply) return;
        addEntry(reply, "refreshedTime", std::to_string(observed));
        addEntry(reply, "pressure", pressure);
        postToLocalPort(port.c_str(), kAgentId, reply);
        bundle_free(reply);
    }
};

}  // namespace

std::unique_ptr<Source> makeSimSource() { return std::make_unique<SimSource>(); }

}  // namespace agent
}  // namespace orvex_host

extern "C" int orvex_host_agent_set_pressure(const char* text) {
    return orvex_host::saveConfig("agent_pressure", text);
}

extern "C" int orvex_host_agent_set_age(long long seconds) {
    return orvex_host::saveConfig("agent_age", std::to_string(seconds).c_str());
}

extern "C" int orvex_host_agent_set_missing(const char* key) {
    return orvex_host::saveConfig("agent_missing", key);
}

extern "C" int orvex_host_agent_set_empty(const char* key) {
    return orvex_host::saveConfig("agent_empty", key);
}

extern "C" int orvex_host_agent_set_silent(int silent) {
    return orvex_host::saveConfig("agent_silent", silent ? "1" : nullptr);
}

extern "C" int orvex_host_agent_reset(void) {
    int rc = 0;
    for (const char* key :
         {"agent_pressure", "agent_age", "agent_missing", "agent_empty", "agent_silent"})
        rc |= orvex_host::saveConfig(key, nullptr);
    return rc;
}
