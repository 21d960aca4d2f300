// Application preference store: typed values in the host store, one row per key.
#include "platform/app_preference.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "core/host_internal.h"

namespace {

enum ValueType { kInt = 1, kDouble = 2, kString = 3 };

[[maybe_unused]] const bool g_schema = orvex_host::addSchema(
    "CREATE TABLE IF NOT EXISTS preference("
    " key TEXT PRIMARY KEY, type INTEGER NOT NULL, ival INTEGER, dval REAL, sval TEXT);");

sqlite3* prefs() { return orvex_host::store(); }

// Statements of the store are prepared once and kept: a read is then a bind and a step.
orvex_host::StmtCache& kept() { return orvex_host::storeStatements(); }

template <typename Bind>
int setValue(const char* key, ValueType type, Bind bindValue) {
    if (!key || !*key) return PREFERENCE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    sqlite3* db = prefs();
    if (!db) return PREFERENCE_ERROR_IO_ERROR;
    orvex_host::Stmt st(kept(), db,
                        "INSERT OR REPLACE INTO preference(key, type, ival, dval, sval)"
                        " VALUES(?1, ?2, ?3, ?4, ?5)");
    st.bind(1, key).bind(2, static_cast<int>(type));
    bindValue(st);
    return st.step() == SQLITE_DONE ? PREFERENCE_ERROR_NONE : PREFERENCE_ERROR_IO_ERROR;
}

// A key as the store last answered for it.
struct Row {
    int rc = PREFERENCE_ERROR_NO_KEY;  // PREFERENCE_ERROR_NONE when found
    int type = 0;
    int ival = 0;
    double dval = 0;
    std::string sval;
};

Row failed() {
    Row row;
    row.rc = PREFERENCE_ERROR_IO_ERROR;
    return row;
}

constexpr const char* kSelect = "SELECT type, ival, dval, sval FROM preference WHERE key=?";
constexpr size_t kMaxCached = 64;

// Answers read since the store last changed. The application reads the same few keys over and
// over (the sea-level pressure with every reading); while no connection has committed, asking
// SQLite again would only take and drop a read lock for the same answer.
std::map<std::string, Row> g_cache;
orvex_host::StoreVersion g_cacheVersion;

void dropCache() {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    g_cache.clear();
    g_cacheVersion = {};
}

[[maybe_unused]] const bool g_closeHook = orvex_host::onStoresClose(&dropCache);

// The key's row; rc is an I/O error when the store cannot answer. Under storeMutex().
Row lookUp(const char* key) {
    sqlite3* db = prefs();
    if (!db) return failed();
    orvex_host::StoreVersion version = orvex_host::storeVersion(db);
    if (!(version == g_cacheVersion)) {
        g_cache.clear();
        g_cacheVersion = version;
    }
    if (auto it = g_cache.find(key); it != g_cache.end()) return it->second;
    orvex_host::Stmt st(kept(), db, kSelect);
    if (!st.ok()) return failed();
    int rc = st.bind(1, key).step();
    Row row;
    if (rc == SQLITE_ROW) {
        row.rc = PREFERENCE_ERROR_NONE;
        row.type = sqlite3_column_int(st.get(), 0);
        row.ival = sqlite3_column_int(st.get(), 1);
        row.dval = sqlite3_column_double(st.get(), 2);
        const unsigned char* text = sqlite3_column_text(st.get(), 3);
        row.sval = text ? reinterpret_cast<const char*>(text) : "";
    } else if (rc != SQLITE_DONE) {
        return failed();
    }
    if (version.valid) {
        if (g_cache.size() >= kMaxCached) g_cache.clear();
        g_cache[key] = row;
    }
    return row;
}

// The key's row when it holds a value of the wanted type; otherwise rc says why not.
Row find(const char* key, ValueType type) {
    Row row = lookUp(key);
    if (row.rc == PREFERENCE_ERROR_NONE && row.type != type)
        row.rc = PREFERENCE_ERROR_TYPE_MISMATCH;
    return row;
}

}  // namespace

extern "C" int preference_set_int(const char* key, int value) {
    ORVEX_HOST_FAULT_RETURN("preference_set_int");
    return setValue(key, kInt, [&](orvex_host::Stmt& st) { st.bind(3, value); });
}

extern "C" int preference_set_double(const char* key, double value) {
    ORVEX_HOST_FAULT_RETURN("preference_set_double");
    return setValue(key, kDouble, [&](orvex_host::Stmt& st) { st.bind(4, value); });
}

extern "C" int preference_set_string(const char* key, const char* value) {
    ORVEX_HOST_FAULT_RETURN("preference_set_string");
    if (!value) return PREFERENCE_ERROR_INVALID_PARAMETER;
    return setValue(key, kString, [&](orvex_host::Stmt& st) { st.bind(5, value); });
}

extern "C" int preference_get_int(const char* key, int* value) {
    ORVEX_HOST_FAULT_RETURN("preference_get_int");
    if (!key || !*key || !value) return PREFERENCE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Row row = find(key, kInt);
    if (row.rc == PREFERENCE_ERROR_NONE) *value = row.ival;
    return row.rc;
}

extern "C" int preference_get_double(const char* key, double* value) {
    ORVEX_HOST_FAULT_RETURN("preference_get_double");
    if (!key || !*key || !value) return PREFERENCE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Row row = find(key, kDouble);
    if (row.rc == PREFERENCE_ERROR_NONE) *value = row.dval;
    return row.rc;
}

extern "C" int preference_get_string(const char* key, char** value) {
    ORVEX_HOST_FAULT_RETURN("preference_get_string");
    if (!key || !*key || !value) return PREFERENCE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Row row = find(key, kString);
    if (row.rc != PREFERENCE_ERROR_NONE) return row.rc;
    char* copy = strdup(row.sval.c_str());
    if (!copy) return PREFERENCE_ERROR_OUT_OF_MEMORY;
    *value = copy;
    return PREFERENCE_ERROR_NONE;
}

extern "C" int preference_remove(const char* key) {
    ORVEX_HOST_FAULT_RETURN("preference_remove");
    if (!key || !*key) return PREFERENCE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    sqlite3* db = prefs();
    if (!db) return PREFERENCE_ERROR_IO_ERROR;
    orvex_host::Stmt st(kept(), db, "DELETE FROM preference WHERE key=?");
    if (st.bind(1, key).step() != SQLITE_DONE) return PREFERENCE_ERROR_IO_ERROR;
    return sqlite3_changes(db) > 0 ? PREFERENCE_ERROR_NONE : PREFERENCE_ERROR_NO_KEY;
}

extern "C" int preference_is_existing(const char* key, bool* existing) {
    ORVEX_HOST_FAULT_RETURN("preference_is_existing");
    if (!key || !*key || !existing) return PREFERENCE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Row row = lookUp(key);
    if (row.rc == PREFERENCE_ERROR_IO_ERROR) return row.rc;
    *existing = row.rc == PREFERENCE_ERROR_NONE;
    return PREFERENCE_ERROR_NONE;
}
