// The weather agent: takes the application's weather requests and has the chosen back end answer
// them. kBackends is the only list of back ends.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "agent/agent_internal.h"
#include "apps/app_registry.h"
#include "core/host_internal.h"
#include "orvex_host/agent_control.h"

namespace orvex_host {
namespace agent {

const char* const kAgentId = "com.marveno.weather-agent";

const Backend kBackends[] = {
    {"sim", "the simulated weather agent (the default)", false, &makeSimSource},
    {"open-meteo",
     "the current sea-level pressure at the location service's position from the keyless "
     "Open-Meteo forecast API, over HTTPS",
     true, &makeOpenMeteoSource},
};
const int kBackendCount = static_cast<int>(sizeof kBackends / sizeof kBackends[0]);

namespace {

int g_requests = 0;
// Why the last request got no answer; empty once a request is under way again.
std::string g_problem;
void (*g_problemCb)(const char*, void*) = nullptr;
void* g_problemData = nullptr;

// Each back end's source, made when it is first asked and kept until a reset, so that a fetch
// under way still answers after another back end was chosen.
std::vector<std::unique_ptr<Source>> g_sources;

// The back end's place in kBackends, or -1.
int find(const std::string& name) {
    for (int i = 0; i < kBackendCount; ++i)
        if (name == kBackends[i].name) return i;
    return -1;
}

// "sim or open-meteo": the names as a message offers them.
std::string alternatives() {
    std::string text;
    for (int i = 0; i < kBackendCount; ++i)
        text += std::string(i == 0                   ? ""
                            : i + 1 == kBackendCount ? " or "
                                                     : ", ") +
                kBackends[i].name;
    return text;
}

std::string chosenName() { return config("agent_backend").value_or(kBackends[0].name); }

std::string extra(app_control_h request, const char* key) {
    char* value = nullptr;
    if (app_control_get_extra_data(request, key, &value) != APP_CONTROL_ERROR_NONE) return "";
    std::string out = value ? value : "";
    free(value);
    return out;
}

void handleLaunch(app_control_h request) {
    if (extra(request, "MESSAGE") != "GET_CURRENT_WEATHER_INFO") return;
    ++g_requests;
    g_problem.clear();
    const std::string port = extra(request, "PORT_ID");
    const std::string name = chosenName();
    const int index = find(name);
    if (index < 0) {
        problem("unknown weather agent back end '" + name + "' (" + alternatives() + ")");
        return;
    }
    if (port.empty()) return;
    g_sources.resize(kBackendCount);
    std::unique_ptr<Source>& source = g_sources[index];
    if (!source) source = kBackends[index].make();
    if (source) source->answer(port);
}

void resetAgent() {
    g_requests = 0;
    g_problem.clear();
    g_problemCb = nullptr;
    g_sources.clear();
}

[[maybe_unused]] const bool g_app = registerApp(kAgentId, &handleLaunch);
[[maybe_unused]] const bool g_reset = onReset(&resetAgent);

}  // namespace

void problem(const std::string& why) {
    g_problem = why;
    if (g_problemCb) g_problemCb(g_problem.c_str(), g_problemData);
}

}  // namespace agent
}  // namespace orvex_host

using namespace orvex_host::agent;

extern "C" int orvex_host_agent_request_count(void) { return g_requests; }

extern "C" int orvex_host_agent_set_backend(const char* name) {
    if (name && find(name) < 0) return -EINVAL;
    return orvex_host::saveConfig("agent_backend", name);
}

extern "C" const char* orvex_host_agent_backend(void) {
    static std::string copy;
    copy = chosenName();
    return copy.c_str();
}

extern "C" int orvex_host_agent_backend_info_get(int index, orvex_host_agent_backend_info* info) {
    if (index < 0 || index >= kBackendCount) return -ERANGE;
    if (!info) return -EINVAL;
    info->name = kBackends[index].name;
    info->summary = kBackends[index].summary;
    info->fetches = kBackends[index].fetches ? 1 : 0;
    return 0;
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

extern "C" int orvex_host_agent_fetches(void) {
    int n = 0;
    for (const auto& source : g_sources)
        if (source) n += source->pending();
    return n;
}
