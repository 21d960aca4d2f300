// Key storage: secrets in their own SQLite file, readable by the owner only. A store that others
// can read is treated as compromised and refused.
#include "platform/key_storage.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "host_internal.h"
#include "orvex_host/key_storage_control.h"

namespace {

// Opened per call: secrets are read rarely, and a long-lived handle would outlive permission
// changes of the file.
sqlite3* openKeys(bool create, int* error) {
    std::string path = orvex_host::dataPath("keys.db");
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        if (!create) {
            *error = KEY_STORAGE_ERROR_NO_SUCH_ALIAS;
            return nullptr;
        }
        if (!orvex_host::ensurePrivateFile(path)) {
            *error = KEY_STORAGE_ERROR_IO_ERROR;
            return nullptr;
        }
    } else if (st.st_mode & 077) {
        *error = KEY_STORAGE_ERROR_PERMISSION_DENIED;
        return nullptr;
    }
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        sqlite3_close_v2(db);
        *error = KEY_STORAGE_ERROR_IO_ERROR;
        return nullptr;
    }
    sqlite3_busy_timeout(db, 5000);
    sqlite3_exec(db, "CREATE TABLE IF NOT EXISTS secret(alias TEXT PRIMARY KEY, value TEXT NOT NULL)",
                 nullptr, nullptr, nullptr);
    return db;
}

}  // namespace

extern "C" int key_storage_get(const char* alias, char** data) {
    ORVEX_HOST_FAULT_RETURN("key_storage_get");
    if (!alias || !*alias || !data) return KEY_STORAGE_ERROR_INVALID_PARAMETER;
    int error = 0;
    sqlite3* db = openKeys(false, &error);
    if (!db) return error;
    int rc = KEY_STORAGE_ERROR_NO_SUCH_ALIAS;
    {
        orvex_host::Stmt st(db, "SELECT value FROM secret WHERE alias=?");
        if (st.bind(1, alias).step() == SQLITE_ROW) {
            const unsigned char* v = sqlite3_column_text(st.get(), 0);
            char* copy = strdup(v ? reinterpret_cast<const char*>(v) : "");
            if (copy) {
                *data = copy;
                rc = KEY_STORAGE_ERROR_NONE;
            } else {
                rc = KEY_STORAGE_ERROR_OUT_OF_MEMORY;
            }
        }
    }
    sqlite3_close_v2(db);
    return rc;
}

extern "C" int orvex_host_key_set(const char* alias, const char* value) {
    if (!alias || !*alias) return KEY_STORAGE_ERROR_INVALID_PARAMETER;
    int error = 0;
    sqlite3* db = openKeys(true, &error);
    if (!db) return error;
    int rc;
    {
        orvex_host::Stmt st(db, value ? "INSERT OR REPLACE INTO secret(alias, value) VALUES(?, ?)"
                                      : "DELETE FROM secret WHERE alias=?");
        st.bind(1, alias);
        if (value) st.bind(2, value);
        rc = st.step() == SQLITE_DONE ? 0 : KEY_STORAGE_ERROR_IO_ERROR;
    }
    sqlite3_close_v2(db);
    return rc;
}

extern "C" char* orvex_host_key_aliases(void) {
    int error = 0;
    sqlite3* db = openKeys(false, &error);
    if (!db) return error == KEY_STORAGE_ERROR_NO_SUCH_ALIAS ? strdup("") : nullptr;
    std::string out;
    {
        orvex_host::Stmt st(db, "SELECT alias FROM secret ORDER BY alias");
        while (st.step() == SQLITE_ROW)
            out += std::string(reinterpret_cast<const char*>(sqlite3_column_text(st.get(), 0))) +
                   "\n";
    }
    sqlite3_close_v2(db);
    return strdup(out.c_str());
}
