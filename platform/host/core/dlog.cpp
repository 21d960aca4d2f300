// Log service: the system log, or stderr from a level asked for, plus an in-memory capture.
#include "platform/dlog.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>

#include "core/host_internal.h"
#include "orvex_host/control.h"

namespace {

struct Line {
    int prio;
    std::string tag;
    std::string text;
};

// Bounded so that a long-running process (the tool's live mode) does not grow without end.
constexpr size_t kMaxCaptured = 100000;

std::mutex g_logMutex;
std::deque<Line> g_lines;

constexpr const char* kLevelNames = "verbose, debug, info, warn, error, fatal or silent";

// A level as ORVEX_HOST_LOG_LEVEL gives it: a name or its number; -1 when it is neither.
int parseLevel(const char* s) {
    static const struct {
        const char* name;
        int prio;
    } names[] = {{"verbose", DLOG_VERBOSE}, {"debug", DLOG_DEBUG}, {"info", DLOG_INFO},
                 {"warn", DLOG_WARN},       {"error", DLOG_ERROR}, {"fatal", DLOG_FATAL},
                 {"silent", DLOG_SILENT},   {"none", DLOG_SILENT}};
    for (const auto& n : names)
        if (strcasecmp(s, n.name) == 0) return n.prio;
    char* end = nullptr;
    long v = strtol(s, &end, 10);
    return (*s && *end == '\0' && v >= DLOG_VERBOSE && v <= DLOG_SILENT) ? static_cast<int>(v) : -1;
}

std::string levelProblem() {
    const char* env = getenv("ORVEX_HOST_LOG_LEVEL");
    if (!env || parseLevel(env) >= 0) return "";
    return std::string("ORVEX_HOST_LOG_LEVEL is '") + env + "', not a log level (" + kLevelNames +
           ")";
}

[[maybe_unused]] const bool g_check = orvex_host::addConfigCheck(&levelProblem);

// Lines go to the system log, as a service's do, until a level for stderr is asked for
// (ORVEX_HOST_LOG_LEVEL or orvex_host_log_set_stderr_threshold()): a program that links the
// library must not find the library's diagnostics on its own stderr.
constexpr int kSystemLog = DLOG_DEFAULT;

int& threshold() {
    static int t = [] {
        const char* env = getenv("ORVEX_HOST_LOG_LEVEL");
        int level = env ? parseLevel(env) : -1;
        if (level >= 0) return level;
        if (env) syslog(LOG_ERR, "ORVEX_HOST: %s", levelProblem().c_str());
        return kSystemLog;
    }();
    return t;
}

int syslogPriority(int prio) {
    if (prio >= DLOG_FATAL) return LOG_CRIT;
    if (prio == DLOG_ERROR) return LOG_ERR;
    if (prio == DLOG_WARN) return LOG_WARNING;
    if (prio == DLOG_INFO) return LOG_INFO;
    return LOG_DEBUG;
}

// The library's colour wrappers are for terminals; a system log shows them as escape codes.
std::string withoutColour(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\033' && i + 1 < text.size() && text[i + 1] == '[') {
            size_t end = text.find('m', i + 2);
            if (end != std::string::npos) {
                i = end;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

const char* prioLetter(int prio) {
    static const char* letters = "??VDIWEFS";
    static thread_local char buf[2];
    buf[0] = (prio >= 0 && prio < DLOG_PRIO_MAX) ? letters[prio] : '?';
    buf[1] = '\0';
    return buf;
}

void clearCapture() {
    std::lock_guard<std::mutex> lock(g_logMutex);
    g_lines.clear();
}

[[maybe_unused]] const bool g_registered = orvex_host::onReset(&clearCapture);

}  // namespace

extern "C" int __dlog_print(log_id_t log_id, int prio, const char* tag, const char* fmt, ...) {
    if (log_id < LOG_ID_MAIN || log_id >= LOG_ID_MAX || !tag || !fmt)
        return DLOG_ERROR_INVALID_PARAMETER;
    ORVEX_HOST_FAULT_RETURN("__dlog_print");

    // Most lines fit the stack buffer and are formatted once.
    char buffer[512];
    va_list ap;
    va_start(ap, fmt);
    va_list copy;
    va_copy(copy, ap);
    int n = vsnprintf(buffer, sizeof buffer, fmt, copy);
    va_end(copy);
    std::string text;
    if (n > 0 && static_cast<size_t>(n) < sizeof buffer) {
        text.assign(buffer, static_cast<size_t>(n));
    } else if (n > 0) {
        text.resize(static_cast<size_t>(n));
        vsnprintf(text.data(), text.size() + 1, fmt, ap);
    }
    va_end(ap);

    std::lock_guard<std::mutex> lock(g_logMutex);
    if (threshold() == kSystemLog) {
        if (prio >= DLOG_INFO)
            syslog(syslogPriority(prio), "%s: %s", tag, withoutColour(text).c_str());
    } else if (prio >= threshold() && threshold() < DLOG_SILENT) {
        fprintf(stderr, "%s/%s: %s\n", prioLetter(prio), tag, text.c_str());
    }
    if (g_lines.size() >= kMaxCaptured) g_lines.pop_front();
    g_lines.push_back(Line{prio, tag, std::move(text)});
    return n;
}

extern "C" void orvex_host_log_set_stderr_threshold(int prio) {
    std::lock_guard<std::mutex> lock(g_logMutex);
    threshold() = prio;
}

extern "C" size_t orvex_host_log_count(void) {
    std::lock_guard<std::mutex> lock(g_logMutex);
    return g_lines.size();
}

extern "C" char* orvex_host_log_line(size_t i, int* prio, char** tag) {
    std::lock_guard<std::mutex> lock(g_logMutex);
    if (i >= g_lines.size()) return nullptr;
    const Line& l = g_lines[i];
    if (prio) *prio = l.prio;
    if (tag) *tag = strdup(l.tag.c_str());
    return strdup(l.text.c_str());
}

extern "C" void orvex_host_log_clear(void) { clearCapture(); }
