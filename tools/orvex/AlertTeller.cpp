// Tells a storm alert in the log and to the user's hook command, without a shell.
#include "AlertTeller.h"

#include <fcntl.h>
#include <glib.h>
#include <platform/dlog.h>
#include <unistd.h>

#include <cmath>

namespace orvex_tool {

namespace {

const char* const kLogTag = "ORVEX_APP";

std::string decimal(double value, const char* format) {
    char buffer[G_ASCII_DTOSTR_BUF_SIZE];
    return g_ascii_formatd(buffer, sizeof buffer, format, value);
}

// Runs in the child between fork and exec: only async-signal-safe calls.
void childSetup(gpointer) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    int null = open("/dev/null", O_RDONLY);
    if (null >= 0) {
        dup2(null, STDIN_FILENO);
        close(null);
    }
}

}  // namespace

std::string hookProblem(const std::string& commandLine) {
    gchar** argv = nullptr;
    GError* error = nullptr;
    if (g_shell_parse_argv(commandLine.c_str(), nullptr, &argv, &error)) {
        g_strfreev(argv);
        return "";
    }
    std::string problem = error->message;
    g_error_free(error);
    return problem;
}

std::string tellStormAlert(const StormAlertFacts& f, const std::string& hookCommandLine) {
    const std::string tendency = decimal(f.tendencyHpa, "%.2f");
    const std::string slp = decimal(f.slpHpa, "%.2f");
    __dlog_print(LOG_ID_MAIN, DLOG_WARN, kLogTag,
                 "storm alert: the sea-level pressure fell %s hPa in 3 h to %s hPa (threshold %s)",
                 decimal(-f.tendencyHpa, "%.2f").c_str(), slp.c_str(),
                 decimal(f.thresholdHpa, "%.1f").c_str());
    if (hookCommandLine.empty()) return "";

    gchar** argv = nullptr;
    GError* error = nullptr;
    std::string problem;
    if (g_shell_parse_argv(hookCommandLine.c_str(), nullptr, &argv, &error)) {
        gchar** envp = g_get_environ();
        envp = g_environ_setenv(envp, "ORVEX_ALERT_TIME",
                                std::to_string(std::llround(f.time)).c_str(), TRUE);
        envp = g_environ_setenv(envp, "ORVEX_ALERT_TENDENCY_HPA", tendency.c_str(), TRUE);
        envp = g_environ_setenv(envp, "ORVEX_ALERT_PRESSURE_HPA",
                                decimal(f.pressureHpa, "%.2f").c_str(), TRUE);
        envp = g_environ_setenv(envp, "ORVEX_ALERT_SLP_HPA", slp.c_str(), TRUE);
        envp = g_environ_setenv(envp, "ORVEX_ALERT_THRESHOLD_HPA",
                                decimal(f.thresholdHpa, "%.1f").c_str(), TRUE);
        // Without G_SPAWN_DO_NOT_REAP_CHILD GLib leaves no child to wait for: the hook may run as
        // long as it likes.
        if (!g_spawn_async(nullptr, argv, envp, G_SPAWN_SEARCH_PATH, childSetup, nullptr, nullptr,
                           &error)) {
            problem = error->message;
        }
        g_strfreev(envp);
        g_strfreev(argv);
    } else {
        problem = error->message;
    }
    if (error) g_error_free(error);
    if (!problem.empty())
        __dlog_print(LOG_ID_MAIN, DLOG_ERROR, kLogTag, "the alert hook did not start: %s",
                     problem.c_str());
    return problem;
}

void tellStormAlertOver(double time, double tendencyHpa) {
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, kLogTag,
                 "storm alert over: the sea-level pressure changed %s hPa in 3 h (at %lld)",
                 decimal(tendencyHpa, "%.2f").c_str(), static_cast<long long>(std::llround(time)));
}

}  // namespace orvex_tool
