// Data directory, host store, reset and host configuration.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/host_internal.h"
#include "orvex_host/control.h"

namespace orvex_host {
namespace {

std::mutex g_dirMutex;
std::string g_dataDir;  // empty: not resolved yet
std::string g_dirProblem;

sqlite3* g_store = nullptr;
// Bumped by every change of the configuration this process makes and whenever the store closes.
std::atomic<unsigned long long> g_configEdits{0};
std::atomic<long long> g_dataVersion{-1};  // as the last configStamp() read it

std::vector<const char*>& schemas() {
    static std::vector<const char*> list;
    return list;
}

std::vector<void (*)()>& resetHooks() {
    static std::vector<void (*)()> hooks;
    return hooks;
}

std::vector<void (*)()>& closeHooks() {
    static std::vector<void (*)()> hooks;
    return hooks;
}

std::string defaultDataDir() {
    if (const char* home = getenv("ORVEX_HOST_HOME"); home && *home) return home;
    if (const char* xdg = getenv("XDG_DATA_HOME"); xdg && *xdg) return std::string(xdg) + "/orvex";
    const char* home = getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/.local/share/orvex";
}

// Creates what is missing of path, 0700. A directory that already exists keeps its mode: it is the
// user's, and refused rather than changed when group or others can write to it.
int makeDirs(const std::string& path, std::string* problem) {
    bool created = false;
    for (size_t pos = 0; pos != std::string::npos;) {
        pos = path.find('/', pos + 1);
        std::string partial = path.substr(0, pos);
        if (partial.empty()) continue;
        created = mkdir(partial.c_str(), 0700) == 0;
        if (!created && errno != EEXIST) {
            int err = errno;
            *problem = "cannot create the data directory " + path + ": " + strerror(err);
            return -err;
        }
    }
    // Under a umask that takes the owner's bits, a directory we made would be unusable.
    if (created && chmod(path.c_str(), 0700) != 0) {
        int err = errno;
        *problem = "cannot make the data directory " + path + " private: " + strerror(err);
        return -err;
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *problem = "the data directory " + path + " is not a directory";
        return -ENOTDIR;
    }
    if (st.st_mode & (S_IWGRP | S_IWOTH)) {
        *problem = "the data directory " + path + " is writable by group or others; refused";
        return -EPERM;
    }
    return 0;
}

void closeStoreLocked() {
    storeStatements().clear();
    if (g_store) {
        sqlite3_close_v2(g_store);
        g_store = nullptr;
    }
    ++g_configEdits;
    for (auto hook : closeHooks()) hook();
}

}  // namespace

bool onReset(void (*hook)()) {
    resetHooks().push_back(hook);
    return true;
}

bool onStoresClose(void (*hook)()) {
    closeHooks().push_back(hook);
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
        // Said at once and whatever the log level: nothing the host keeps can be stored.
        if (makeDirs(g_dataDir, &g_dirProblem) != 0)
            fprintf(stderr, "orvex host: %s\n", g_dirProblem.c_str());
    }
    return g_dataDir;
}

std::string dataDirProblem() {
    dataDir();
    std::lock_guard<std::mutex> lock(g_dirMutex);
    return g_dirProblem;
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

StmtCache& storeStatements() {
    static StmtCache cache;
    return cache;
}

sqlite3* store() {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    if (g_store) return g_store;
    std::string path = dataPath("host.db");
    if (!dataDirProblem().empty() || !ensurePrivateFile(path)) return nullptr;
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
    Stmt st(storeStatements(), db, "SELECT value FROM host_config WHERE key=?");
    st.bind(1, key);
    if (st.step() != SQLITE_ROW) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(sqlite3_column_text(st.get(), 0)));
}

bool setConfig(const std::string& key, const std::optional<std::string>& value) {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    sqlite3* db = store();
    if (!db) return false;
    ++g_configEdits;
    if (!value) {
        Stmt st(storeStatements(), db, "DELETE FROM host_config WHERE key=?");
        return st.bind(1, key).step() == SQLITE_DONE;
    }
    Stmt st(storeStatements(), db, "INSERT OR REPLACE INTO host_config(key, value) VALUES(?, ?)");
    return st.bind(1, key).bind(2, *value).step() == SQLITE_DONE;
}

ConfigStamp configStamp() {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    ConfigStamp stamp;
    sqlite3* db = store();
    stamp.edits = g_configEdits.load();
    if (!db) {
        g_dataVersion = -1;
        return stamp;
    }
    // Changes whenever another connection (another process) has committed to the store.
    Stmt st(storeStatements(), db, "PRAGMA data_version");
    if (st.step() == SQLITE_ROW) stamp.dataVersion = sqlite3_column_int64(st.get(), 0);
    g_dataVersion = stamp.dataVersion;
    return stamp;
}

ConfigStamp lastConfigStamp() {
    ConfigStamp stamp;
    stamp.edits = g_configEdits.load();
    stamp.dataVersion = g_dataVersion.load();
    return stamp;
}

sqlite3_stmt* StmtCache::get(sqlite3* db, const char* sql) {
    if (db != db_) {
        clear();
        db_ = db;
    }
    for (const auto& [text, stmt] : list_)
        if (text == sql) return stmt;
    sqlite3_stmt* stmt = nullptr;
    if (!db ||
        sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr) != SQLITE_OK) {
        sqlite3_finalize(stmt);
        return nullptr;
    }
    list_.emplace_back(sql, stmt);
    return stmt;
}

void StmtCache::clear() {
    for (const auto& entry : list_) sqlite3_finalize(entry.second);
    list_.clear();
    db_ = nullptr;
}

Stmt::Stmt(sqlite3* db, const char* sql) {
    if (db && sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) {
        sqlite3_finalize(stmt_);
        stmt_ = nullptr;
    }
}

Stmt::Stmt(StmtCache& cache, sqlite3* db, const char* sql)
    : stmt_(cache.get(db, sql)), kept_(true) {}

Stmt::~Stmt() {
    if (!kept_) {
        sqlite3_finalize(stmt_);
    } else if (stmt_) {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
    }
}

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

extern "C" const char* orvex_host_data_dir_problem(void) {
    static thread_local std::string copy;
    copy = dataDirProblem();
    return copy.empty() ? nullptr : copy.c_str();
}

extern "C" int orvex_host_set_data_dir(const char* path) {
    if (path && !*path) return -EINVAL;
    std::string problem;
    if (path) {
        if (int rc = makeDirs(path, &problem); rc != 0) return rc;
    }
    std::lock_guard<std::recursive_mutex> storeLock(storeMutex());
    closeStoreLocked();
    std::lock_guard<std::mutex> lock(g_dirMutex);
    g_dataDir = path ? path : "";
    g_dirProblem.clear();
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
