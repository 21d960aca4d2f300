// Data directory, store, faults, reset and host configuration.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "host_internal.h"
#include "orvex_host/control.h"

namespace orvex_host {
namespace {

struct Fault {
    int skip;       // calls that still succeed before the failures start
    int remaining;  // -1: until cleared
    int code;
};

std::mutex g_faultMutex;
std::map<std::string, Fault> g_faults;
// Every platform call asks whether it must fail; almost always nothing is armed, and the answer
// then needs neither the lock nor a lookup.
std::atomic<bool> g_faultsArmed{false};

std::mutex g_dirMutex;
std::string g_dataDir;  // empty: not resolved yet

sqlite3* g_store = nullptr;

std::vector<const char*>& schemas() {
    static std::vector<const char*> list;
    return list;
}

std::vector<void (*)()>& resetHooks() {
    static std::vector<void (*)()> hooks;
    return hooks;
}

std::string defaultDataDir() {
    if (const char* home = getenv("ORVEX_HOST_HOME"); home && *home) return home;
    if (const char* xdg = getenv("XDG_DATA_HOME"); xdg && *xdg) return std::string(xdg) + "/orvex";
    const char* home = getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/.local/share/orvex";
}

int makeDirs(const std::string& path) {
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        partial = path.substr(0, pos);
        if (partial.empty()) continue;
        if (mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return -errno;
    }
    // A directory we created keeps 0700 even under a permissive umask; an existing one is
    // tightened.
    if (chmod(path.c_str(), 0700) != 0) return -errno;
    return 0;
}

void closeStoreLocked() {
    if (g_store) {
        sqlite3_close_v2(g_store);
        g_store = nullptr;
    }
}

}  // namespace

bool fault(const char* function, int* code) {
    if (!g_faultsArmed.load(std::memory_order_acquire)) return false;
    std::lock_guard<std::mutex> lock(g_faultMutex);
    auto it = g_faults.find(function);
    if (it == g_faults.end()) return false;
    if (it->second.skip > 0) {
        --it->second.skip;
        return false;
    }
    *code = it->second.code;
    if (it->second.remaining > 0 && --it->second.remaining == 0) {
        g_faults.erase(it);
        g_faultsArmed.store(!g_faults.empty(), std::memory_order_release);
    }
    return true;
}

bool onReset(void (*hook)()) {
    resetHooks().push_back(hook);
    return true;
}

bool addSchema(const char* sql) {
    schemas().push_back(sql);
    return true;
}

std::string dataDir() {
    std::lock_guard<std::mutex> lock(g_dirMutex);
    if (g_dataDir.empty()) {
        g_dataDir = defaultDataDir();
        makeDirs(g_dataDir);
    }
    return g_dataDir;
}

std::string dataPath(const char* name) { return dataDir() + "/" + name; }

bool ensurePrivateFile(const std::string& path) {
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    close(fd);
    return true;
}

std::recursive_mutex& storeMutex() {
    static std::recursive_mutex m;
    return m;
}

sqlite3* store() {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    if (g_store) return g_store;
    std::string path = dataPath("host.db");
    if (!ensurePrivateFile(path)) return nullptr;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX,
                        nullptr) != SQLITE_OK) {
        sqlite3_close_v2(db);
        return nullptr;
    }
    sqlite3_busy_timeout(db, 5000);
    // WAL with full sync: every write is one durable transaction, so a killed writer leaves each
    // value old or new, and another process (the tool) can read while we write.
    sqlite3_exec(
        db,
        "PRAGMA journal_mode=WAL;"
        "PRAGMA synchronous=FULL;"
        "CREATE TABLE IF NOT EXISTS host_config(key TEXT PRIMARY KEY, value TEXT NOT NULL);",
        nullptr, nullptr, nullptr);
    for (const char* sql : schemas()) sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
    g_store = db;
    return g_store;
}

int storeExec(const char* sql) {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    sqlite3* db = store();
    if (!db) return SQLITE_CANTOPEN;
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
}

std::optional<std::string> config(const std::string& key) {
    std::string env = "ORVEX_HOST_" + key;
    std::transform(env.begin(), env.end(), env.begin(),
                   [](unsigned char c) { return std::isalnum(c) ? std::toupper(c) : '_'; });
    if (const char* v = getenv(env.c_str())) return std::string(v);
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    sqlite3* db = store();
    if (!db) return std::nullopt;
    Stmt st(db, "SELECT value FROM host_config WHERE key=?");
    st.bind(1, key);
    if (st.step() != SQLITE_ROW) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(sqlite3_column_text(st.get(), 0)));
}

bool setConfig(const std::string& key, const std::optional<std::string>& value) {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    sqlite3* db = store();
    if (!db) return false;
    if (!value) {
        Stmt st(db, "DELETE FROM host_config WHERE key=?");
        return st.bind(1, key).step() == SQLITE_DONE;
    }
    Stmt st(db, "INSERT OR REPLACE INTO host_config(key, value) VALUES(?, ?)");
    return st.bind(1, key).bind(2, *value).step() == SQLITE_DONE;
}

Stmt::Stmt(sqlite3* db, const char* sql) {
    if (db && sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) {
        sqlite3_finalize(stmt_);
        stmt_ = nullptr;
    }
}

Stmt::~Stmt() { sqlite3_finalize(stmt_); }

Stmt& Stmt::bind(int i, int v) {
    if (stmt_) sqlite3_bind_int(stmt_, i, v);
    return *this;
}

Stmt& Stmt::bind(int i, long long v) {
    if (stmt_) sqlite3_bind_int64(stmt_, i, v);
    return *this;
}

Stmt& Stmt::bind(int i, double v) {
    if (stmt_) sqlite3_bind_double(stmt_, i, v);
    return *this;
}

Stmt& Stmt::bind(int i, const char* v) {
    if (stmt_) {
        if (v)
            sqlite3_bind_text(stmt_, i, v, -1, SQLITE_TRANSIENT);
        else
            sqlite3_bind_null(stmt_, i);
    }
    return *this;
}

Stmt& Stmt::bind(int i, const std::string& v) {
    if (stmt_) sqlite3_bind_text(stmt_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    return *this;
}

int Stmt::step() { return stmt_ ? sqlite3_step(stmt_) : SQLITE_MISUSE; }

}  // namespace orvex_host

using namespace orvex_host;

extern "C" const char* orvex_host_data_dir(void) {
    static thread_local std::string copy;
    copy = dataDir();
    return copy.c_str();
}

extern "C" int orvex_host_set_data_dir(const char* path) {
    if (path && !*path) return -EINVAL;
    if (path) {
        if (int rc = makeDirs(path); rc != 0) return rc;
    }
    std::lock_guard<std::recursive_mutex> storeLock(storeMutex());
    closeStoreLocked();
    std::lock_guard<std::mutex> lock(g_dirMutex);
    g_dataDir = path ? path : "";
    return 0;
}

extern "C" int orvex_host_reset(void) {
    const char* tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/orvex-host-XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) return -errno;
    if (int rc = orvex_host_set_data_dir(buf.data()); rc != 0) return rc;
    orvex_host_clear_faults();
    for (auto hook : resetHooks()) hook();
    return 0;
}

extern "C" void orvex_host_fail_next(const char* function, int count, int code) {
    orvex_host_fail_after(function, 0, count, code);
}

extern "C" void orvex_host_fail_after(const char* function, int skip, int count, int code) {
    if (!function || count == 0) return;
    std::lock_guard<std::mutex> lock(g_faultMutex);
    g_faults[function] = Fault{skip > 0 ? skip : 0, count < 0 ? -1 : count, code};
    g_faultsArmed.store(true, std::memory_order_release);
}

extern "C" void orvex_host_clear_faults(void) {
    std::lock_guard<std::mutex> lock(g_faultMutex);
    g_faults.clear();
    g_faultsArmed.store(false, std::memory_order_release);
}
