// Where the host's weather agent takes its answers from, and why a request got none.
#ifndef ORVEX_TOOL_AGENT_BACKEND_H
#define ORVEX_TOOL_AGENT_BACKEND_H

#include <string>

#include "Tool.h"

typedef struct _GMainLoop GMainLoop;

namespace orvex_tool {

// `orvex agent backend [sim | open-meteo [--url URL]]`, given the arguments after "backend":
// stores the choice when one is given, then shows the back end in use.
int runAgentBackend(const Options& options, const Args& args);

// While alive, quits `loop` as soon as the weather agent gives up on a request (a failed fetch,
// an unknown back end); reason() then says why, and is empty while nothing went wrong.
class AgentFailureWatch {
public:
    explicit AgentFailureWatch(GMainLoop* loop);
    ~AgentFailureWatch();
    AgentFailureWatch(const AgentFailureWatch&) = delete;
    AgentFailureWatch& operator=(const AgentFailureWatch&) = delete;

    const std::string& reason() const { return reason_; }

private:
    static void onProblem(const char* why, void* self);

    GMainLoop* loop_;
    std::string reason_;
};

}  // namespace orvex_tool

#endif
