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
// False with errno set when it cannot.
bool ensurePrivateFile(const std::string& path);

// ---- Durable stores ----

// Opens the SQLite database at path the one way every store of the host is opened: created 0600
// when missing, WAL with full sync (every write is one durable transaction, so a killed writer
// leaves each value old or new, and another process can read while one writes), a busy time-out,
// then `schema` run on it. A file that is not a database, or a damaged one, is never rebuilt:
// nullptr, with *problem saying "<path> is corrupt"; any other failure is described likewise.
sqlite3* openDurable(const std::string& path, const char* schema, std::string* problem);

// One line on why an operation on the store at path failed: "<path> is corrupt", "cannot write
// <path>: the disk is full", "cannot use <path>: Permission denied", ...
std::string describeFailure(const std::string& path, int sqliteCode, int systemErrno);

// Why the last statement run through a Stmt on the store at path failed; empty when none did
// since the last write that went through.
std::string lastFailure(const std::string& path);

// The host store, a SQLite database in the data directory, opened on first use. Every statement
// runs under storeMutex(); nullptr when the store cannot be opened (storeProblem() says why).
sqlite3* store();
std::string storeProblem();
// Registers CREATE statements that run whenever a store is opened. Meant for static initialisers,
// like onReset().
bool addSchema(const char* sql);
std::recursive_mutex& storeMutex();
// Runs one or more statements without results; returns the SQLite result code.
int storeExec(const char* sql);
// Closes the host store (under storeMutex()) and runs the onStoresClose() hooks.
void closeStore();

// What the host store held when a StoreVersion was taken, comparable without a system call: equal
// versions mean no commit of any connection (another process's included) and no change through
// ours in between. A version that is not `valid` equals none.
struct StoreVersion {
    bool valid = false;
    sqlite3* db = nullptr;
    long long changes = 0;
    unsigned char walHeader[48] = {};
    bool operator==(const StoreVersion& o) const;
};
// Under storeMutex(), on the open store.
StoreVersion storeVersion(sqlite3* db);

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

// ---- Host configuration ----

// Small text settings of the host layer itself, persisted in the store. An environment variable
// "ORVEX_HOST_" + upper-case key, when set, wins over the stored value.
std::optional<std::string> config(const std::string& key);
// The name of the environment variable of a key: "location_gpsd_port" gives
// "ORVEX_HOST_LOCATION_GPSD_PORT".
std::string configEnvName(const std::string& key);
// Stores the value, or clears the key for std::nullopt: 0, or -EIO when the store refuses. (Named
// apart from the bool-returning setter it replaced, so that no `? 0 : -EIO` is left inverted.)
int saveConfig(const std::string& key, const std::optional<std::string>& value);
int saveConfig(const std::string& key, const char* value);  // NULL clears

// A configuration value read with its type: the value when it is set and usable; otherwise
// `problem` says why not in one line naming where it came from ("ORVEX_HOST_LOCATION_GPSD_PORT is
// '296110', not a whole number from 1 to 65535"), or both are empty when it is not set.
template <typename T>
struct Setting {
    std::optional<T> value;
    std::string problem;
    T valueOr(const T& fallback) const { return value ? *value : fallback; }
};
Setting<long long> configInt(const std::string& key, long long min, long long max);
Setting<double> configDouble(const std::string& key, double min, double max);
Setting<std::string> configString(const std::string& key);  // any text, the empty one included
Setting<bool> configBool(const std::string& key);           // "1" or "0"

// Registers a check of environment values, asked by orvex_host_config_problem(): it returns the
// problem of the first refused value, or "". Like onReset().
bool addConfigCheck(std::string (*check)());

// Equal stamps: the stored configuration has not changed in between (no saveConfig here, no commit
// of another process to the store, the same store). Costs no system call while nothing changed.
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
// Counts a change of the configuration made in this process (saveConfig does).
void configChanged();

// ---- Failure texts ----

// Hands a failure text out as control.h says *_problem() functions do: NULL for an empty text,
// otherwise a pointer into `slot`, which each function keeps as its own `static thread_local
// std::string`.
const char* lendProblem(std::string& slot, std::string text);

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
    // SQLITE_ROW, SQLITE_DONE or an error, which lastFailure() then describes. The fault
    // "sqlite3_step" makes it fail with the injected SQLite code (SQLITE_FULL: a full disk).
    int step();
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
