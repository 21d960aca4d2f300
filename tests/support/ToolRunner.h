// Runs the orvex tool as a user would: a separate process with its own data directory.
#pragma once

#include <csignal>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace orvex_test {

struct ToolResult {
    int exitCode = -1;  // the exit status, or 128 + signal when killed
    std::string out;
    std::string err;
};

using Env = std::vector<std::pair<std::string, std::string>>;

// The command that runs a program: the program itself, or, for one of this build in a cross build,
// the emulator with the loader's variables loaderEnv and then the program.
std::vector<std::string> programCommand(const std::string& path, const Env& loaderEnv = {});

class ToolRunner {
public:
    // tool: path of the executable; home: its ORVEX_HOST_HOME (created if missing).
    ToolRunner(std::string tool, std::string home);

    // Runs to the end with the given standard input. With ready, sends the tool the signal once
    // ready(stdout) holds (asked every 50 ms) or workMs(timeoutMs) passed, and collects the rest
    // of its run.
    ToolResult run(const std::vector<std::string>& args, const std::string& input = "",
                   const std::function<bool(const std::string&)>& ready = nullptr,
                   int signal = SIGINT, int timeoutMs = 10000) const;

    void setEnv(const std::string& name, const std::string& value) {
        env_.emplace_back(name, value);
    }
    const std::string& home() const { return home_; }

private:
    std::string tool_;
    std::string home_;
    Env env_;
};

}  // namespace orvex_test
