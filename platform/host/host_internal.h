// Shared plumbing of the host platform services: the data directory and its SQLite store, fault
// injection, reset hooks and host configuration. Only platform/host includes this.
#ifndef ORVEX_HOST_INTERNAL_H
#define ORVEX_HOST_INTERNAL_H

#include <sqlite3.h>

#include <mutex>
#include <optional>
#include <string>

namespace orvex_host {

// True when the call of `function` must fail; *code is then the injected result.
bool fault(const char* function, int* code);

// Registers a function that orvex_host_reset() calls to put a service back into its initial state.
// Meant for static initialisers: `static const bool registered = orvex_host::onReset(&resetX);`
bool onReset(void (*hook)());

std::string dataDir();
std::string dataPath(const char* name);

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

// Host configuration (small text settings of the host layer itself), persisted in the store. An
// environment variable "ORVEX_HOST_" + upper-case key, when set, wins over the stored value.
std::optional<std::string> config(const std::string& key);
bool setConfig(const std::string& key, const std::optional<std::string>& value);

// A prepared statement that finalises itself.
class Stmt {
public:
    Stmt(sqlite3* db, const char* sql);
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
};

}  // namespace orvex_host

#define ORVEX_HOST_FAULT_RETURN(name)                                          \
    do {                                                                       \
        int injected_code_;                                                    \
        if (orvex_host::fault((name), &injected_code_)) return injected_code_; \
    } while (0)

#endif
