// Runs the orvex tool as a user would: a separate process with its own data directory.
#ifndef ORVEX_TEST_TOOL_RUNNER_H
#define ORVEX_TEST_TOOL_RUNNER_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace orvex_test {

struct ToolResult {
    int exitCode = -1;  // the exit status, or 128 + signal when killed
    std::string out;
    std::string err;
};

class ToolRunner {
public:
    // tool: path of the executable; home: its ORVEX_HOST_HOME (created if missing).
    ToolRunner(std::string tool, std::string home);

    // Runs to the end with the given standard input.
    ToolResult run(const std::vector<std::string>& args, const std::string& input = "") const;

    // Starts the tool, waits until its standard output satisfies ready (or timeoutMs passes),
    // sends it the signal and collects the rest of its run.
    ToolResult runAndSignal(const std::vector<std::string>& args,
                            const std::function<bool(const std::string&)>& ready, int signal,
                            int timeoutMs = 10000) const;

    void setEnv(const std::string& name, const std::string& value);
    const std::string& home() const { return home_; }

private:
    pid_t spawn(const std::vector<std::string>& args, int* in, int* out, int* err) const;

    std::string tool_;
    std::string home_;
    std::vector<std::pair<std::string, std::string>> env_;
};

// Lines of a text, without their line ends.
std::vector<std::string> splitLines(const std::string& text);

}  // namespace orvex_test

#endif
