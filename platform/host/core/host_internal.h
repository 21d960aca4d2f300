// Shared plumbing of the host platform services: the data directory and its SQLite store, fault
// injection, reset hooks and host configuration. Only platform/host includes this.
#ifndef ORVEX_HOST_INTERNAL_H
#define ORVEX_HOST_INTERNAL_H

#include <sqlite3.h>

#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvex_host {

// True when the call of `function` must fail; *code is then the injected result.
bool fault(const char* function, int* code);

// Registers a function that orvex_host_reset() calls to put a service back into its initial state.
// Meant for static initialisers: `static const bool registered = orvex_host::onReset(&resetX);`
bool onReset(void (*hook)());

// Registers a function that runs whenever the stores close (the data directory changes or the
// host is reset): a service with a connection of its own closes it there. Like onReset().
bool onStoresClose(void (*hook)());

// The data directory, created 0700 if missing. An existing one is used as it is, but refused when
// group or others can write to it: dataDirProblem() then says why and no store opens.
std::string dataDir();
std::string dataPath(const char* name);
std::string dataDirProblem();

// Creates the file 0600 if missing, so that SQLite (and its -wal and -shm companions) inherit it.
bool ensurePrivateFile(const std::string& path);

// The host store, a SQLite database in the data directory, opened on first use. Every statement
// runs under storeMutex(); nullptr when the store cannot be opened.
sqlite3* store();
// Registers CREATE statements that run whenever a store is opened. Meant for static initialisers,
// like onReset().
bool addSchema(const char* sql);
std::recursive_mutex& storeMutex();
// Runs one or more statements without results; returns the SQLite result code.
int storeExec(const char* sql);

// Statements prepared once on a connection and kept for reuse until clear() (the connection's
// close). Callers serialise their use, as they do the connection's.
class StmtCache {
public:
    StmtCache() = default;
    ~StmtCache() { clear(); }
    StmtCache(const StmtCache&) = delete;
    StmtCache& operator=(const StmtCache&) = delete;

    sqlite3_stmt* get(sqlite3* db, const char* sql);  // nullptr when it does not prepare
    void clear();

private:
    sqlite3* db_ = nullptr;
    std::vector<std::pair<std::string, sqlite3_stmt*>> list_;
};

// The kept statements of the host store.
StmtCache& storeStatements();

// Host configuration (small text settings of the host layer itself), persisted in the store. An
// environment variable "ORVEX_HOST_" + upper-case key, when set, wins over the stored value.
std::optional<std::string> config(const std::string& key);
bool setConfig(const std::string& key, const std::optional<std::string>& value);

// Equal stamps: the stored configuration has not changed in between (no setConfig here, no commit
// of another process to the store, the same store). Costs one small read of the store.
struct ConfigStamp {
    unsigned long long edits = ~0ull;
    long long dataVersion = -1;
    bool operator==(const ConfigStamp& o) const {
        return edits == o.edits && dataVersion == o.dataVersion;
    }
};
ConfigStamp configStamp();
// The stamp as the last configStamp() saw it, with this process's changes since: no store access,
// for code that runs right after a configStamp() of the same operation.
ConfigStamp lastConfigStamp();

// The shared weather's sea-level pressure at t, as orvex_host_weather_slp() but on
// lastConfigStamp(): for the sensor back ends, whose chooser has just looked.
double weatherSlp(double t);

// A prepared statement that finalises itself, or one borrowed from a StmtCache that is reset and
// unbound when the Stmt goes (ending its read transaction).
class Stmt {
public:
    Stmt(sqlite3* db, const char* sql);
    Stmt(StmtCache& cache, sqlite3* db, const char* sql);
    ~Stmt();
    Stmt(const Stmt&) = delete;
    Stmt& operator=(const Stmt&) = delete;

    bool ok() const { return stmt_ != nullptr; }
    Stmt& bind(int i, int v);
    Stmt& bind(int i, long long v);
    Stmt& bind(int i, double v);
    Stmt& bind(int i, const char* v);  // NULL binds SQL NULL
    Stmt& bind(int i, const std::string& v);
    int step();  // SQLITE_ROW, SQLITE_DONE or an error
    sqlite3_stmt* get() { return stmt_; }

private:
    sqlite3_stmt* stmt_ = nullptr;
    bool kept_ = false;
};

}  // namespace orvex_host

#define ORVEX_HOST_FAULT_RETURN(name)                                          \
    do {                                                                       \
        int injected_code_;                                                    \
        if (orvex_host::fault((name), &injected_code_)) return injected_code_; \
    } while (0)

#endif
