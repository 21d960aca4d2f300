// Runs the orvex tool as a process of its own and collects its exit code and output.
#include "ToolRunner.h"

#include <gio/gio.h>

#include "MainLoop.h"

namespace orvex_test {

static std::string contents(const std::string& path) {
    g_autofree char* text = nullptr;
    gsize size = 0;
    return g_file_get_contents(path.c_str(), &text, &size, nullptr) ? std::string(text, size) : "";
}

// A program of this build runs under the cross build's emulator; the machine's own (a shell) do
// not.
static bool emulated(const std::string& path) {
#ifdef ORVEX_TOOL_EMULATOR
    return g_str_has_prefix(path.c_str(), ORVEX_BUILD_DIR "/");
#else
    (void)path;
    return false;
#endif
}

std::vector<std::string> programCommand(const std::string& path, const Env& loaderEnv) {
    std::vector<std::string> command;
#ifdef ORVEX_TOOL_EMULATOR
    if (emulated(path)) {
        g_auto(GStrv) emulator = g_strsplit(ORVEX_TOOL_EMULATOR, " ", -1);
        command.assign(emulator, emulator + g_strv_length(emulator));
        for (const auto& [name, value] : loaderEnv)
            command.insert(command.end(), {"-E", name + "=" + value});
    }
#else
    (void)loaderEnv;
#endif
    command.push_back(path);
    return command;
}

ToolRunner::ToolRunner(std::string tool, std::string home)
    : tool_(std::move(tool)), home_(std::move(home)) {
    g_mkdir_with_parents(home_.c_str(), 0700);
}

// The tool's streams go through files next to its data, which the ready check can read at any
// time without a reader thread.
ToolResult ToolRunner::run(const std::vector<std::string>& args, const std::string& input,
                           const std::function<bool(const std::string&)>& ready, int signal,
                           int timeoutMs) const {
    const std::string in = home_ + "/.stdin", out = home_ + "/.stdout", err = home_ + "/.stderr";
    g_autoptr(GSubprocessLauncher) launcher = g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_NONE);
    if (!g_file_set_contents(in.c_str(), input.data(), gssize(input.size()), nullptr) ||
        !g_file_set_contents(out.c_str(), "", 0, nullptr) ||
        !g_file_set_contents(err.c_str(), "", 0, nullptr))
        return {};
    g_subprocess_launcher_set_stdin_file_path(launcher, in.c_str());
    g_subprocess_launcher_set_stdout_file_path(launcher, out.c_str());
    g_subprocess_launcher_set_stderr_file_path(launcher, err.c_str());
    g_subprocess_launcher_setenv(launcher, "ORVEX_HOST_HOME", home_.c_str(), TRUE);
    g_subprocess_launcher_unsetenv(launcher, "ORVEX_HOST_LOG_LEVEL");
    // A sanitizer build checks that its runtime comes first; a preloaded library may not.
    g_subprocess_launcher_setenv(launcher, "ASAN_OPTIONS", "verify_asan_link_order=0", TRUE);
    // qemu is a program of the build machine: the loader's variables (LD_PRELOAD) go to the
    // emulated tool alone.
    Env loaderEnv;
    for (const auto& [name, value] : env_) {
        if (emulated(tool_) && g_str_has_prefix(name.c_str(), "LD_"))
            loaderEnv.emplace_back(name, value);
        else
            g_subprocess_launcher_setenv(launcher, name.c_str(), value.c_str(), TRUE);
    }
    std::vector<std::string> command = programCommand(tool_, loaderEnv);
    command.insert(command.end(), args.begin(), args.end());
    std::vector<const char*> argv;
    for (const auto& c : command) argv.push_back(c.c_str());
    argv.push_back(nullptr);
    g_autoptr(GSubprocess) tool = g_subprocess_launcher_spawnv(launcher, argv.data(), nullptr);
    if (!tool) return {};
    const gint64 deadline = g_get_monotonic_time() + gint64(workMs(timeoutMs)) * 1000;
    // The identifier goes once the tool has ended; sending the signal after that does nothing.
    while (ready && g_subprocess_get_identifier(tool)) {
        if (ready(contents(out)) || g_get_monotonic_time() > deadline) {
            g_subprocess_send_signal(tool, signal);
            break;
        }
        g_usleep(50 * 1000);
    }
    g_subprocess_wait(tool, nullptr, nullptr);
    const int code = g_subprocess_get_if_exited(tool) ? g_subprocess_get_exit_status(tool)
                                                      : 128 + g_subprocess_get_term_sig(tool);
    return {code, contents(out), contents(err)};
}

}  // namespace orvex_test
