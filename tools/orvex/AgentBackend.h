// The weather agent as the application meets it: one calibration from it, why a request got no
// answer, and the user's earlier calibration kept when the agent's value is implausible.
#ifndef ORVEX_TOOL_AGENT_BACKEND_H
#define ORVEX_TOOL_AGENT_BACKEND_H

#include <glib.h>

#include <string>

class OrvexStorageMgr;

namespace orvex_tool {

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

// The stored calibration as it was before the library stored an agent's answer: the library keeps
// whatever the agent says, so the application takes an implausible answer back itself.
class CalibrationSnapshot {
public:
    explicit CalibrationSnapshot(OrvexStorageMgr* store);

    // Puts the sea-level pressure and the calibration time back and takes out the history entry
    // of time `added`, when the library added one. Empty when all of it was stored; otherwise
    // what could not be.
    std::string restore(long long added) const;

private:
    OrvexStorageMgr* store_;
    double slp_;
    int calTimeRead_;  // the store's answer when the time was read: it may have had none
    std::string calTime_;
    std::string history_;
};

struct AgentCalibration {
    enum class End { Stored, Failed, Interrupted } end;
    std::string message;  // why, when it failed: one line for the user
};

// Asks the weather agent and waits at most timeoutMs for its answer. Stored means the library
// stored a plausible sea-level pressure and time; an implausible one is taken back (the message
// then says so).
AgentCalibration calibrateFromAgent(OrvexStorageMgr* store, guint timeoutMs);

}  // namespace orvex_tool

#endif
