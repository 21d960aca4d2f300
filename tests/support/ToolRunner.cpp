#include "ToolRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

namespace orvex_test {
namespace {

int exitCodeOf(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

// Reads whatever is ready on the two pipes into the strings; returns false once both are closed.
bool pump(int& out, int& err, std::string& outText, std::string& errText, int waitMs) {
    struct pollfd fds[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    if (out < 0 && err < 0) return false;
    if (poll(fds, 2, waitMs) <= 0) return true;
    int* ends[2] = {&out, &err};
    std::string* texts[2] = {&outText, &errText};
    for (int i = 0; i < 2; ++i) {
        if (*ends[i] < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        char buf[4096];
        ssize_t n = read(*ends[i], buf, sizeof buf);
        if (n > 0) {
            texts[i]->append(buf, static_cast<size_t>(n));
        } else {
            close(*ends[i]);
            *ends[i] = -1;
        }
    }
    return out >= 0 || err >= 0;
}

}  // namespace

ToolRunner::ToolRunner(std::string tool, std::string home)
    : tool_(std::move(tool)), home_(std::move(home)) {
    mkdir(home_.c_str(), 0700);
}

void ToolRunner::setEnv(const std::string& name, const std::string& value) {
    env_.emplace_back(name, value);
}

pid_t ToolRunner::spawn(const std::vector<std::string>& args, int* in, int* out, int* err) const {
    int pin[2], pout[2], perr[2];
    if (pipe2(pin, O_CLOEXEC) || pipe2(pout, O_CLOEXEC) || pipe2(perr, O_CLOEXEC)) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(pin[0], 0);
        dup2(pout[1], 1);
        dup2(perr[1], 2);
        setenv("ORVEX_HOST_HOME", home_.c_str(), 1);
        unsetenv("ORVEX_HOST_LOG_LEVEL");
        for (const auto& [name, value] : env_) setenv(name.c_str(), value.c_str(), 1);
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(tool_.c_str()));
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(tool_.c_str(), argv.data());
        _exit(127);
    }
    close(pin[0]);
    close(pout[1]);
    close(perr[1]);
    *in = pin[1];
    *out = pout[0];
    *err = perr[0];
    return pid;
}

ToolResult ToolRunner::run(const std::vector<std::string>& args, const std::string& input) const {
    ToolResult r;
    int in, out, err;
    pid_t pid = spawn(args, &in, &out, &err);
    if (pid < 0) return r;
    // Small inputs only: they fit the pipe, so writing before reading cannot block.
    if (!input.empty()) (void)!write(in, input.data(), input.size());
    close(in);
    while (pump(out, err, r.out, r.err, 1000)) {
    }
    int status = 0;
    waitpid(pid, &status, 0);
    r.exitCode = exitCodeOf(status);
    return r;
}

ToolResult ToolRunner::runAndSignal(const std::vector<std::string>& args,
                                    const std::function<bool(const std::string&)>& ready,
                                    int signal, int timeoutMs) const {
    ToolResult r;
    int in, out, err;
    pid_t pid = spawn(args, &in, &out, &err);
    if (pid < 0) return r;
    close(in);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    bool signalled = false;
    while (pump(out, err, r.out, r.err, 50)) {
        if (!signalled && (ready(r.out) || std::chrono::steady_clock::now() > deadline)) {
            kill(pid, signal);
            signalled = true;
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    r.exitCode = exitCodeOf(status);
    return r;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

}  // namespace orvex_test
