// A fresh host platform per test, and what the library logged.
#include "HostFixture.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <new>

#include "OrvexStorageMgr.h"

namespace orvex_test {
namespace {

std::string g_root;
std::atomic<bool> g_failNothrow{false};
std::atomic<int> g_nothrowAllowed{0};

void removeRoot() {
    if (!g_root.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(g_root, ec);
    }
}

}  // namespace

void useScratchRoot() {
    char templ[] = "/tmp/orvex-tests-XXXXXX";
    if (!mkdtemp(templ)) return;
    g_root = templ;
    setenv("TMPDIR", g_root.c_str(), 1);
    // Nothing a test does may touch the user's own data directory.
    setenv("ORVEX_HOST_HOME", (g_root + "/home").c_str(), 1);
    atexit(removeRoot);
}

std::vector<LogLine> logLines() {
    std::vector<LogLine> lines;
    size_t n = orvex_host_log_count();
    for (size_t i = 0; i < n; ++i) {
        int prio = 0;
        char* tag = nullptr;
        char* text = orvex_host_log_line(i, &prio, &tag);
        if (!text) break;
        lines.push_back(LogLine{prio, tag ? tag : "", text});
        free(tag);
        free(text);
    }
    return lines;
}

std::string adopt(char* text) {
    std::string out = text ? text : "";
    free(text);
    return out;
}

void clearLog() { orvex_host_log_clear(); }

namespace {

// Without the "file: function(line) > " prefix and the colour wrapper.
std::string messageOf(std::string text) {
    const std::string tail = "\033[0;m";
    size_t prefix = text.find(") > ");
    if (prefix != std::string::npos) text.erase(0, prefix + 4);
    for (const std::string head : {"\033[0;31m* Critical * ", "\033[0;32m"})
        if (text.rfind(head, 0) == 0) text.erase(0, head.size());
    if (text.size() >= tail.size() && text.rfind(tail) == text.size() - tail.size())
        text.resize(text.size() - tail.size());
    return text;
}

std::vector<std::string> messages(int prio) {
    std::vector<std::string> out;
    for (const auto& l : logLines())
        if (l.prio == prio) out.push_back(messageOf(l.text));
    return out;
}

}  // namespace

std::vector<std::string> errors() { return messages(DLOG_ERROR); }
std::vector<std::string> infos() { return messages(DLOG_INFO); }

bool logged(int prio, const std::string& message) {
    auto all = messages(prio);
    return std::find(all.begin(), all.end(), message) != all.end();
}

std::string fill(const std::string& pattern, const char* name) {
    size_t at = pattern.find("%s");
    return name && at != std::string::npos ? pattern.substr(0, at) + name + pattern.substr(at + 2)
                                           : pattern;
}

std::string errorText(const std::string& message) {
    return "\033[0;31m* Critical * " + message + "\033[0;m";
}

std::string infoText(const std::string& message) { return "\033[0;32m" + message + "\033[0;m"; }

FailNothrowNew::FailNothrowNew(int allowed) {
    g_nothrowAllowed = allowed;
    g_failNothrow = true;
}
FailNothrowNew::~FailNothrowNew() { g_failNothrow = false; }

void HostTest::SetUp() { ASSERT_EQ(0, orvex_host_reset()); }

void HostTest::TearDown() { orvex_host_clear_faults(); }

void StoreTest::SetUp() {
    HostTest::SetUp();
    store = OrvexStorageMgr::getInstance();
    store->initStorage();
    clearLog();
}

void StoreTest::TearDown() {
    OrvexStorageMgr::deleteInstance();
    HostTest::TearDown();
}

}  // namespace orvex_test

// Replaces the non-throwing allocation of the whole test process, the library's included, so that
// a test can make it fail.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (orvex_test::g_failNothrow && orvex_test::g_nothrowAllowed.fetch_sub(1) <= 0) return nullptr;
    try {
        return ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}
