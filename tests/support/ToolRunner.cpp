#include "ToolRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

namespace orvex_test {

ToolRunner::ToolRunner(std::string tool, std::string home)
    : tool_(std::move(tool)), home_(std::move(home)) {
    mkdir(home_.c_str(), 0700);
}

void ToolRunner::setEnv(const std::string& name, const std::string& value) {
    env_.emplace_back(name, value);
}

ToolResult ToolRunner::run(const std::vector<std::string>& args, const std::string& input,
                           const std::function<bool(const std::string&)>& ready, int signal,
                           int timeoutMs) const {
    ToolResult r;
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) return r;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        setenv("ORVEX_HOST_HOME", home_.c_str(), 1);
        unsetenv("ORVEX_HOST_LOG_LEVEL");
        // A sanitizer build checks that its runtime comes first; a preloaded library may not.
        setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
        for (const auto& [name, value] : env_) setenv(name.c_str(), value.c_str(), 1);
        std::vector<char*> argv{const_cast<char*>(tool_.c_str())};
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(tool_.c_str(), argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    // Small inputs only: they fit the pipe, so writing before reading cannot block.
    if (!input.empty()) (void)!write(in[1], input.data(), input.size());
    close(in[1]);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    bool signalled = !ready;
    struct pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* texts[2] = {&r.out, &r.err};
    while (fds[0].fd >= 0 || fds[1].fd >= 0) {
        if (!signalled && (ready(r.out) || std::chrono::steady_clock::now() > deadline)) {
            kill(pid, signal);
            signalled = true;
        }
        if (poll(fds, 2, 50) <= 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            char buf[4096];
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                texts[i]->append(buf, static_cast<size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
            }
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return r;
}

}  // namespace orvex_test
