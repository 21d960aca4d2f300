// Key storage: secrets in their own SQLite file, readable by the owner only. A store that others
// can read is treated as compromised and refused.
#include "platform/key_storage.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "core/host_internal.h"
#include "orvex_host/key_storage_control.h"

namespace {

// One connection, kept open with its statements; the file itself is looked at on every call, so
// that a store made readable to others is refused at once and a replaced one is opened again.
std::mutex g_keyMutex;
sqlite3* g_keys = nullptr;
std::string g_keysPath;
dev_t g_keysDev = 0;
ino_t g_keysIno = 0;
orvex_host::StmtCache g_statements;
std::string g_openProblem;  // why the store could not be opened last time

void closeKeysLocked() {
    g_statements.clear();
    if (g_keys) sqlite3_close_v2(g_keys);
    g_keys = nullptr;
    g_keysPath.clear();
}

void closeKeys() {
    std::lock_guard<std::mutex> lock(g_keyMutex);
    closeKeysLocked();
}

[[maybe_unused]] const bool g_closeHook = orvex_host::onStoresClose(&closeKeys);

// The open store under g_keyMutex; created (0600) when missing if `create`.
sqlite3* openKeys(bool create, int* error) {
    g_openProblem = orvex_host::dataDirProblem();
    if (!g_openProblem.empty()) {
        *error = KEY_STORAGE_ERROR_IO_ERROR;
        return nullptr;
    }
    std::string path = orvex_host::dataPath("keys.db");
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        closeKeysLocked();
        if (!create) {
            *error = KEY_STORAGE_ERROR_NO_SUCH_ALIAS;
            return nullptr;
        }
        if (!orvex_host::ensurePrivateFile(path) || stat(path.c_str(), &st) != 0) {
            g_openProblem = "cannot create " + path + ": " + strerror(errno);
            *error = KEY_STORAGE_ERROR_IO_ERROR;
            return nullptr;
        }
    } else if (st.st_mode & 077) {
        closeKeysLocked();
        g_openProblem = path + " is readable by others; refused";
        *error = KEY_STORAGE_ERROR_PERMISSION_DENIED;
        return nullptr;
    }
    if (g_keys && path == g_keysPath && st.st_dev == g_keysDev && st.st_ino == g_keysIno)
        return g_keys;
    closeKeysLocked();
    sqlite3* db = orvex_host::openDurable(
        path, "CREATE TABLE IF NOT EXISTS secret(alias TEXT PRIMARY KEY, value TEXT NOT NULL)",
        &g_openProblem);
    if (!db) {
        *error = KEY_STORAGE_ERROR_IO_ERROR;
        return nullptr;
    }
    g_openProblem.clear();
    g_keys = db;
    g_keysPath = path;
    g_keysDev = st.st_dev;
    g_keysIno = st.st_ino;
    return g_keys;
}

}  // namespace

extern "C" int key_storage_get(const char* alias, char** data) {
    ORVEX_HOST_FAULT_RETURN("key_storage_get");
    if (!alias || !*alias || !data) return KEY_STORAGE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::mutex> lock(g_keyMutex);
    int error = 0;
    sqlite3* db = openKeys(false, &error);
    if (!db) return error;
    orvex_host::Stmt st(g_statements, db, "SELECT value FROM secret WHERE alias=?");
    int rc = st.bind(1, alias).step();
    if (rc == SQLITE_DONE) return KEY_STORAGE_ERROR_NO_SUCH_ALIAS;
    if (rc != SQLITE_ROW) return KEY_STORAGE_ERROR_IO_ERROR;
    const unsigned char* v = sqlite3_column_text(st.get(), 0);
    char* copy = strdup(v ? reinterpret_cast<const char*>(v) : "");
    if (!copy) return KEY_STORAGE_ERROR_OUT_OF_MEMORY;
    *data = copy;
    return KEY_STORAGE_ERROR_NONE;
}

extern "C" int orvex_host_key_set(const char* alias, const char* value) {
    if (!alias || !*alias) return KEY_STORAGE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::mutex> lock(g_keyMutex);
    int error = 0;
    sqlite3* db = openKeys(true, &error);
    if (!db) return error;
    orvex_host::Stmt st(g_statements, db,
                        value ? "INSERT OR REPLACE INTO secret(alias, value) VALUES(?, ?)"
                              : "DELETE FROM secret WHERE alias=?");
    st.bind(1, alias);
    if (value) st.bind(2, value);
    return st.step() == SQLITE_DONE ? KEY_STORAGE_ERROR_NONE : KEY_STORAGE_ERROR_IO_ERROR;
}

extern "C" char* orvex_host_key_aliases(void) {
    std::lock_guard<std::mutex> lock(g_keyMutex);
    int error = 0;
    sqlite3* db = openKeys(false, &error);
    if (!db) return error == KEY_STORAGE_ERROR_NO_SUCH_ALIAS ? strdup("") : nullptr;
    std::string out;
    orvex_host::Stmt st(g_statements, db, "SELECT alias FROM secret ORDER BY alias");
    int rc;
    while ((rc = st.step()) == SQLITE_ROW)
        out += std::string(reinterpret_cast<const char*>(sqlite3_column_text(st.get(), 0))) + "\n";
    return rc == SQLITE_DONE ? strdup(out.c_str()) : nullptr;
}

extern "C" const char* orvex_host_key_storage_problem(void) {
    static thread_local std::string slot;
    std::lock_guard<std::mutex> lock(g_keyMutex);
    int error = 0;
    sqlite3* db = openKeys(false, &error);
    if (!db)
        return orvex_host::lendProblem(
            slot, error == KEY_STORAGE_ERROR_NO_SUCH_ALIAS ? "" : g_openProblem);
    return orvex_host::lendProblem(slot, orvex_host::lastFailure(g_keysPath));
}
