// Log service: stderr above a priority threshold, plus an in-memory capture for tests.
#include "platform/dlog.h"

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

int parseThreshold(const char* s) {
    if (!s || !*s) return DLOG_ERROR;
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
    return (end && *end == '\0') ? static_cast<int>(v) : DLOG_ERROR;
}

int& threshold() {
    static int t = parseThreshold(getenv("ORVEX_HOST_LOG_LEVEL"));
    return t;
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
    if (prio >= threshold() && threshold() < DLOG_SILENT)
        fprintf(stderr, "%s/%s: %s\n", prioLetter(prio), tag, text.c_str());
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
