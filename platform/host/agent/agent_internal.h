// The weather agent's back ends and what they share. One back end per file: weather_agent_sim.cpp,
// weather_agent_openmeteo.cpp; weather_agent.cpp chooses among them from kBackends, the only list.
#ifndef ORVEX_HOST_AGENT_INTERNAL_H
#define ORVEX_HOST_AGENT_INTERNAL_H

#include <memory>
#include <string>

namespace orvex_host {
namespace agent {

// The application id the agent answers as.
extern const char* const kAgentId;

// Where the agent's answers come from.
class Source {
public:
    virtual ~Source() = default;
    // Answers one weather request on the local port `port`, now or later on the main loop, or
    // calls problem() with why it cannot.
    virtual void answer(const std::string& port) = 0;
    // Answers under way (fetches not finished yet).
    virtual int pending() const { return 0; }
};

struct Backend {
    const char* name;
    const char* summary;  // one line for a usage text
    bool fetches;         // answers from the server at the configured URL
    std::unique_ptr<Source> (*make)();
};

// The back ends, the default first.
extern const Backend kBackends[];
extern const int kBackendCount;

std::unique_ptr<Source> makeSimSource();
std::unique_ptr<Source> makeOpenMeteoSource();

// Ends the request under way without an answer: orvex_host_agent_problem() then says why.
void problem(const std::string& why);

}  // namespace agent
}  // namespace orvex_host

#endif
