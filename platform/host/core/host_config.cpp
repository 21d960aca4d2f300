// Host configuration: stored settings that the environment overrides, read with their types.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/host_internal.h"
#include "orvex_host/control.h"

namespace orvex_host {
namespace {

// Bumped by every change of the configuration this process makes and whenever the store closes.
std::atomic<unsigned long long> g_configEdits{0};
std::atomic<long long> g_dataVersion{-1};  // as the last configStamp() read it

std::vector<std::string (*)()>& checks() {
    static std::vector<std::string (*)()> list;
    return list;
}

// Where a value came from, for messages: the environment variable when it is set.
std::string sourceOf(const std::string& key) {
    std::string env = configEnvName(key);
    return getenv(env.c_str()) ? env : "the stored " + key;
}

template <typename T>
Setting<T> refused(const std::string& key, const std::string& text, const std::string& wanted) {
    Setting<T> s;
    s.problem = sourceOf(key) + " is '" + text + "', not " + wanted;
    return s;
}

std::string number(double v) {
    char buf[32];
    snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

}  // namespace

std::string configEnvName(const std::string& key) {
    std::string env = "ORVEX_HOST_" + key;
    std::transform(env.begin(), env.end(), env.begin(),
                   [](unsigned char c) { return std::isalnum(c) ? std::toupper(c) : '_'; });
    return env;
}

std::optional<std::string> config(const std::string& key) {
    if (const char* v = getenv(configEnvName(key).c_str())) return std::string(v);
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    sqlite3* db = store();
    if (!db) return std::nullopt;
    Stmt st(storeStatements(), db, "SELECT value FROM host_config WHERE key=?");
    st.bind(1, key);
    if (st.step() != SQLITE_ROW) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(sqlite3_column_text(st.get(), 0)));
}

int saveConfig(const std::string& key, const std::optional<std::string>& value) {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    sqlite3* db = store();
    if (!db) return -EIO;
    configChanged();
    if (!value) {
        Stmt st(storeStatements(), db, "DELETE FROM host_config WHERE key=?");
        return st.bind(1, key).step() == SQLITE_DONE ? 0 : -EIO;
    }
    Stmt st(storeStatements(), db, "INSERT OR REPLACE INTO host_config(key, value) VALUES(?, ?)");
    return st.bind(1, key).bind(2, *value).step() == SQLITE_DONE ? 0 : -EIO;
}

int saveConfig(const std::string& key, const char* value) {
    return saveConfig(key, value ? std::optional<std::string>(value) : std::nullopt);
}

Setting<long long> configInt(const std::string& key, long long min, long long max) {
    auto text = config(key);
    if (!text) return {};
    char* end = nullptr;
    errno = 0;
    long long v = strtoll(text->c_str(), &end, 10);
    if (text->empty() || *end != '\0' || errno == ERANGE || v < min || v > max)
        return refused<long long>(
            key, *text,
            "a whole number from " + std::to_string(min) + " to " + std::to_string(max));
    return {v, ""};
}

Setting<double> configDouble(const std::string& key, double min, double max) {
    auto text = config(key);
    if (!text) return {};
    char* end = nullptr;
    double v = strtod(text->c_str(), &end);
    if (text->empty() || *end != '\0' || !std::isfinite(v) || v < min || v > max)
        return refused<double>(key, *text, "a number from " + number(min) + " to " + number(max));
    return {v, ""};
}

Setting<std::string> configString(const std::string& key) {
    auto text = config(key);
    if (!text) return {};
    return {*text, ""};
}

Setting<bool> configBool(const std::string& key) {
    auto text = config(key);
    if (!text) return {};
    if (*text != "0" && *text != "1") return refused<bool>(key, *text, "0 or 1");
    return {*text == "1", ""};
}

bool addConfigCheck(std::string (*check)()) {
    checks().push_back(check);
    return true;
}

void configChanged() { ++g_configEdits; }

ConfigStamp configStamp() {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    // The data version read last, with the store's version at that moment: while the store has not
    // changed, neither has its data version, and asking SQLite again would cost a read lock.
    static StoreVersion seen;
    static unsigned long long seenEdits = ~0ull;
    ConfigStamp stamp;
    sqlite3* db = store();
    stamp.edits = g_configEdits.load();
    if (!db) {
        g_dataVersion = -1;
        return stamp;
    }
    StoreVersion now = storeVersion(db);
    if (now == seen && stamp.edits == seenEdits) {
        stamp.dataVersion = g_dataVersion;
        return stamp;
    }
    // Changes whenever another connection (another process) has committed to the store.
    Stmt st(storeStatements(), db, "PRAGMA data_version");
    if (st.step() == SQLITE_ROW) stamp.dataVersion = sqlite3_column_int64(st.get(), 0);
    g_dataVersion = stamp.dataVersion;
    seen = now;
    seenEdits = stamp.edits;
    return stamp;
}

ConfigStamp lastConfigStamp() {
    ConfigStamp stamp;
    stamp.edits = g_configEdits.load();
    stamp.dataVersion = g_dataVersion.load();
    return stamp;
}

const char* lendProblem(std::string& slot, std::string text) {
    slot = std::move(text);
    return slot.empty() ? nullptr : slot.c_str();
}

}  // namespace orvex_host

extern "C" const char* orvex_host_config_problem(void) {
    static thread_local std::string slot;
    std::string problem;
    for (auto check : orvex_host::checks()) {
        problem = check();
        if (!problem.empty()) break;
    }
    return orvex_host::lendProblem(slot, problem);
}
