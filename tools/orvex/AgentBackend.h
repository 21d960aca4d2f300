// Where the host's weather agent takes its answers from, and why a request got none.
#ifndef ORVEX_TOOL_AGENT_BACKEND_H
#define ORVEX_TOOL_AGENT_BACKEND_H

#include <string>

#include "Tool.h"

namespace orvex_tool {

// Usage lines of 'agent backend', for the agent command's help.
extern const char* const kAgentBackendUsage;

// `orvex agent backend [sim | open-meteo [--url URL]]`, given the arguments after "backend":
// stores the choice when one is given, then shows the back end in use.
int runAgentBackend(const Options& options, const Args& args);

// While alive, notes when the weather agent gives up on a request (a failed fetch, an unknown back
// end); reason() then says why, and is empty while nothing went wrong. The note is made on the
// main loop, so a waitFor() condition sees it at once.
class AgentFailureWatch {
public:
    AgentFailureWatch();
    ~AgentFailureWatch();
    AgentFailureWatch(const AgentFailureWatch&) = delete;
    AgentFailureWatch& operator=(const AgentFailureWatch&) = delete;

    const std::string& reason() const { return reason_; }

private:
    static void onProblem(const char* why, void* self);

    std::string reason_;
};

}  // namespace orvex_tool

#endif
