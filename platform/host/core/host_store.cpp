// The durable SQLite stores: how one is opened, how its failures are told, and the host store.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>

#include "core/host_internal.h"

namespace orvex_host {
namespace {

sqlite3* g_store = nullptr;
bool g_storeWal = false;     // the host store is in WAL mode, so its WAL index tells its version
std::string g_storeProblem;  // why the last open of the host store failed

std::mutex g_failureMutex;
std::map<std::string, std::string> g_failures;  // by database path
// Almost every statement succeeds while nothing failed; the answer then needs no lock.
std::atomic<bool> g_anyFailure{false};

std::vector<const char*>& schemas() {
    static std::vector<const char*> list;
    return list;
}

std::vector<void (*)()>& closeHooks() {
    static std::vector<void (*)()> hooks;
    return hooks;
}

std::string pathOf(sqlite3* db) {
    const char* name = db ? sqlite3_db_filename(db, "main") : nullptr;
    return name ? name : "";
}

void noteResult(sqlite3* db, sqlite3_stmt* stmt, int rc, int systemErrno) {
    if (rc == SQLITE_ROW || rc == SQLITE_DONE) {
        if (!g_anyFailure.load(std::memory_order_relaxed) || sqlite3_stmt_readonly(stmt)) return;
        std::lock_guard<std::mutex> lock(g_failureMutex);
        g_failures.erase(pathOf(db));
        g_anyFailure = !g_failures.empty();
        return;
    }
    std::string path = pathOf(db);
    std::string text = describeFailure(path, rc, systemErrno);
    std::lock_guard<std::mutex> lock(g_failureMutex);
    g_failures[path] = text;
    g_anyFailure = true;
}

bool corrupt(int rc) {
    rc &= 0xff;
    return rc == SQLITE_CORRUPT || rc == SQLITE_NOTADB;
}

}  // namespace

bool ensurePrivateFile(const std::string& path) {
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    close(fd);
    return true;
}

std::string describeFailure(const std::string& path, int sqliteCode, int systemErrno) {
    if (corrupt(sqliteCode)) return path + " is corrupt";
    if ((sqliteCode & 0xff) == SQLITE_FULL || systemErrno == ENOSPC || systemErrno == EDQUOT)
        return "cannot write " + path + ": the disk is full";
    if ((sqliteCode & 0xff) == SQLITE_BUSY)
        return path + " is locked by another process for too long";
    if (systemErrno != 0) return "cannot use " + path + ": " + strerror(systemErrno);
    return "cannot use " + path + ": " + sqlite3_errstr(sqliteCode);
}

sqlite3* openDurable(const std::string& path, const char* schema, std::string* problem) {
    if (!ensurePrivateFile(path)) {
        *problem = "cannot create " + path + ": " + strerror(errno);
        return nullptr;
    }
    sqlite3* db = nullptr;
    int rc =
        sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (rc == SQLITE_OK) {
        sqlite3_extended_result_codes(db, 1);
        sqlite3_busy_timeout(db, 5000);
        // The first statement reads the file's header: a file that is not a database stops here,
        // before anything is written to it.
        rc = sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", nullptr, nullptr,
                          nullptr);
        if (rc == SQLITE_OK && schema) rc = sqlite3_exec(db, schema, nullptr, nullptr, nullptr);
    }
    if (rc == SQLITE_OK) return db;
    *problem = describeFailure(path, rc, db ? sqlite3_system_errno(db) : 0);
    sqlite3_close_v2(db);
    return nullptr;
}

std::string lastFailure(const std::string& path) {
    if (!g_anyFailure.load()) return "";
    std::lock_guard<std::mutex> lock(g_failureMutex);
    auto it = g_failures.find(path);
    return it == g_failures.end() ? "" : it->second;
}

std::recursive_mutex& storeMutex() {
    static std::recursive_mutex m;
    return m;
}

StmtCache& storeStatements() {
    static StmtCache cache;
    return cache;
}

bool onStoresClose(void (*hook)()) {
    closeHooks().push_back(hook);
    return true;
}

bool addSchema(const char* sql) {
    schemas().push_back(sql);
    return true;
}

sqlite3* store() {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    if (g_store) return g_store;
    g_storeProblem = dataDirProblem();
    if (!g_storeProblem.empty()) return nullptr;
    std::string schema =
        "CREATE TABLE IF NOT EXISTS host_config(key TEXT PRIMARY KEY, value TEXT NOT NULL);";
    for (const char* sql : schemas()) schema += sql;
    g_store = openDurable(dataPath("host.db"), schema.c_str(), &g_storeProblem);
    Stmt mode(g_store, "PRAGMA journal_mode");
    g_storeWal =
        mode.step() == SQLITE_ROW &&
        strcmp(reinterpret_cast<const char*>(sqlite3_column_text(mode.get(), 0)), "wal") == 0;
    return g_store;
}

std::string storeProblem() {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    sqlite3* db = store();
    if (!db) return g_storeProblem;
    // Opening reads only the header; damaged pages show when they are read.
    Stmt probe(db, "PRAGMA quick_check(1)");
    int rc = probe.step();
    if (rc != SQLITE_ROW) return describeFailure(pathOf(db), rc, sqlite3_system_errno(db));
    const unsigned char* verdict = sqlite3_column_text(probe.get(), 0);
    if (!verdict || strcmp(reinterpret_cast<const char*>(verdict), "ok") != 0)
        return describeFailure(pathOf(db), SQLITE_CORRUPT, 0);
    return lastFailure(pathOf(db));
}

int storeExec(const char* sql) {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    sqlite3* db = store();
    if (!db) return SQLITE_CANTOPEN;
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
}

void closeStore() {
    std::lock_guard<std::recursive_mutex> lock(storeMutex());
    storeStatements().clear();
    if (g_store) {
        sqlite3_close_v2(g_store);
        g_store = nullptr;
    }
    configChanged();
    for (auto hook : closeHooks()) hook();
}

bool StoreVersion::operator==(const StoreVersion& o) const {
    return valid && o.valid && db == o.db && changes == o.changes &&
           memcmp(walHeader, o.walHeader, sizeof walHeader) == 0;
}

// Every commit, of any connection in any process, rewrites the WAL index header that SQLite keeps
// in the shared memory of the -shm file: its change counter, frame count and salts. Reading it as
// SQLite itself does before it takes a read lock (the two copies must agree, or a writer is half
// way through and the version is not valid) tells whether the store changed without a lock or a
// system call. Its layout is fixed by the WAL file format, which every SQLite sharing a database
// relies on.
StoreVersion storeVersion(sqlite3* db) {
    StoreVersion v;
    sqlite3_file* file = nullptr;
    if (!db || db != g_store || !g_storeWal ||
        sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK || !file ||
        !file->pMethods || file->pMethods->iVersion < 2 || !file->pMethods->xShmMap ||
        !file->pMethods->xShmBarrier)
        return v;
    volatile void* region = nullptr;
    if (file->pMethods->xShmMap(file, 0, 32768, 0, &region) != SQLITE_OK || !region) return v;
    const volatile unsigned char* shm = static_cast<const volatile unsigned char*>(region);
    unsigned char second[sizeof v.walHeader];
    for (size_t i = 0; i < sizeof v.walHeader; ++i) v.walHeader[i] = shm[i];
    file->pMethods->xShmBarrier(file);  // the barrier SQLite itself puts between the two reads
    for (size_t i = 0; i < sizeof second; ++i) second[i] = shm[sizeof v.walHeader + i];
    constexpr size_t kIsInit = 12;
    if (memcmp(v.walHeader, second, sizeof second) != 0 || v.walHeader[kIsInit] == 0) return v;
    v.db = db;
    v.changes = sqlite3_total_changes64(db);
    v.valid = true;
    return v;
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
        noteResult(db, nullptr, sqlite3_extended_errcode(db), sqlite3_system_errno(db));
    }
}

Stmt::Stmt(StmtCache& cache, sqlite3* db, const char* sql)
    : stmt_(cache.get(db, sql)), kept_(true) {
    if (db && !stmt_)
        noteResult(db, nullptr, sqlite3_extended_errcode(db), sqlite3_system_errno(db));
}

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

int Stmt::step() {
    if (!stmt_) return SQLITE_MISUSE;
    sqlite3* db = sqlite3_db_handle(stmt_);
    int rc;
    if (fault("sqlite3_step", &rc)) {
        noteResult(db, stmt_, rc, 0);
        return rc;
    }
    rc = sqlite3_step(stmt_);
    noteResult(db, stmt_, rc, rc == SQLITE_ROW || rc == SQLITE_DONE ? 0 : sqlite3_system_errno(db));
    return rc;
}

}  // namespace orvex_host
