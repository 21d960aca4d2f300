// The weather agent's back end: the simulator or Open-Meteo.
#include "AgentBackend.h"

#include <orvex_host/app_control_control.h>

#include <iostream>

namespace orvex_tool {

const char* const kAgentBackendUsage =
    "       orvex agent backend [sim | open-meteo [--url URL]]\n"
    "  sim         the simulated weather agent (the default)\n"
    "  open-meteo  the current sea-level pressure at the location service's position from the\n"
    "              keyless Open-Meteo forecast API, over HTTPS (URL defaults to\n"
    "              https://api.open-meteo.com)\n"
    "The environment variable ORVEX_HOST_AGENT_BACKEND wins over the stored choice.";

namespace {
// 'agent backend' lives under 'agent': a usage error points at that command's help.
const Command kAgent{"agent", "", kAgentBackendUsage, runAgentBackend};
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
        return usageError(kAgent, "expected backend sim or open-meteo [--url URL]");
    }
    if (rc != 0) return fail("cannot store the choice (error " + std::to_string(rc) + ")");

    const std::string backend = orvex_host_agent_backend();
    const bool real = backend == "open-meteo";
    if (options.json) {
        JsonLine()
            .add("backend", backend)
            .add("url", real ? orvex_host_agent_url() : nullptr)
            .print();
    } else if (real) {
        printRows({{"backend", backend}, {"url", orvex_host_agent_url()}});
    } else {
        printRows({{"backend", backend}});
    }
    return backend == "sim" || real
               ? 0
               : fail("unknown back end '" + backend + "' (sim or open-meteo)");
}

AgentFailureWatch::AgentFailureWatch() {
    orvex_host_agent_on_problem(&AgentFailureWatch::onProblem, this);
}

AgentFailureWatch::~AgentFailureWatch() { orvex_host_agent_on_problem(nullptr, nullptr); }

void AgentFailureWatch::onProblem(const char* why, void* self) {
    static_cast<AgentFailureWatch*>(self)->reason_ = why && *why ? why : "no reason given";
}

}  // namespace orvex_tool
