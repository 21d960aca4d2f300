// The weather agent's back end: the simulator or Open-Meteo.
#include "AgentBackend.h"

#include <glib.h>
#include <orvex_host/app_control_control.h>

#include <iostream>

namespace orvex_tool {
namespace {

const char* const kUsage =
    "[sim | open-meteo [--url URL]]\n\n"
    "  sim         the simulated weather agent (the default; see 'orvex agent')\n"
    "  open-meteo  the current sea-level pressure at the location service's position from the\n"
    "              keyless Open-Meteo forecast API, over HTTPS (URL defaults to\n"
    "              https://api.open-meteo.com)\n"
    "The environment variable ORVEX_HOST_AGENT_BACKEND wins over the stored choice.";

// Until the integration gives 'orvex agent backend' its place under 'orvex agent'.
const Command kAgentBackend{"agent-backend",
                            "show or choose where the weather agent's answers come from", kUsage,
                            runAgentBackend};
[[maybe_unused]] const bool registered = addCommand(kAgentBackend);

}  // namespace

int runAgentBackend(const Options& options, const Args& args) {
    int rc = 0;
    if (args.size() == 1 && args[0] == "sim") {
        rc = orvex_host_agent_set_backend("sim");
    } else if (!args.empty() && args[0] == "open-meteo" &&
               (args.size() == 1 || (args.size() == 3 && args[1] == "--url"))) {
        if (args.size() == 3 && args[2].rfind("https://", 0) != 0 &&
            args[2].rfind("http://", 0) != 0)
            return fail("'" + args[2] + "' is not an http:// or https:// URL");
        rc = orvex_host_agent_set_backend("open-meteo");
        if (rc == 0) rc = orvex_host_agent_set_url(args.size() == 3 ? args[2].c_str() : nullptr);
    } else if (!args.empty()) {
        return usageError(kAgentBackend, "expected sim or open-meteo [--url URL]");
    }
    if (rc != 0) return fail("cannot store the choice (error " + std::to_string(rc) + ")");

    const std::string backend = orvex_host_agent_backend();
    const bool real = backend == "open-meteo";
    if (options.json) {
        Json j;
        j.add("backend", backend);
        if (real)
            j.add("url", orvex_host_agent_url());
        else
            j.addNull("url");
        std::cout << j.str() << "\n";
    } else if (real) {
        printRows({{"backend", backend}, {"url", orvex_host_agent_url()}});
    } else {
        printRows({{"backend", backend}});
    }
    return backend == "sim" || real
               ? 0
               : fail("unknown back end '" + backend + "' (sim or open-meteo)");
}

AgentFailureWatch::AgentFailureWatch(GMainLoop* loop) : loop_(loop) {
    orvex_host_agent_on_problem(&AgentFailureWatch::onProblem, this);
}

AgentFailureWatch::~AgentFailureWatch() { orvex_host_agent_on_problem(nullptr, nullptr); }

void AgentFailureWatch::onProblem(const char* why, void* self) {
    auto* watch = static_cast<AgentFailureWatch*>(self);
    watch->reason_ = why;
    if (watch->loop_) g_main_loop_quit(watch->loop_);
}

}  // namespace orvex_tool
