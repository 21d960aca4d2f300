// Application preference store: typed values in the host store, one row per key.
#include "platform/app_preference.h"

#include <cstdlib>
#include <cstring>

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

// Looks the key up; on success the statement stands on its row, which has the wanted type.
int findValue(orvex_host::Stmt& st, const char* key, ValueType type) {
    if (!st.ok()) return PREFERENCE_ERROR_IO_ERROR;
    st.bind(1, key);
    int rc = st.step();
    if (rc == SQLITE_DONE) return PREFERENCE_ERROR_NO_KEY;
    if (rc != SQLITE_ROW) return PREFERENCE_ERROR_IO_ERROR;
    if (sqlite3_column_int(st.get(), 0) != type) return PREFERENCE_ERROR_TYPE_MISMATCH;
    return PREFERENCE_ERROR_NONE;
}

constexpr const char* kSelect = "SELECT type, ival, dval, sval FROM preference WHERE key=?";

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
    orvex_host::Stmt st(kept(), prefs(), kSelect);
    int rc = findValue(st, key, kInt);
    if (rc == PREFERENCE_ERROR_NONE) *value = sqlite3_column_int(st.get(), 1);
    return rc;
}

extern "C" int preference_get_double(const char* key, double* value) {
    ORVEX_HOST_FAULT_RETURN("preference_get_double");
    if (!key || !*key || !value) return PREFERENCE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    orvex_host::Stmt st(kept(), prefs(), kSelect);
    int rc = findValue(st, key, kDouble);
    if (rc == PREFERENCE_ERROR_NONE) *value = sqlite3_column_double(st.get(), 2);
    return rc;
}

extern "C" int preference_get_string(const char* key, char** value) {
    ORVEX_HOST_FAULT_RETURN("preference_get_string");
    if (!key || !*key || !value) return PREFERENCE_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    orvex_host::Stmt st(kept(), prefs(), kSelect);
    int rc = findValue(st, key, kString);
    if (rc != PREFERENCE_ERROR_NONE) return rc;
    const unsigned char* text = sqlite3_column_text(st.get(), 3);
    char* copy = strdup(text ? reinterpret_cast<const char*>(text) : "");
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
    orvex_host::Stmt st(kept(), prefs(), "SELECT 1 FROM preference WHERE key=?");
    if (!st.ok()) return PREFERENCE_ERROR_IO_ERROR;
    int rc = st.bind(1, key).step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) return PREFERENCE_ERROR_IO_ERROR;
    *existing = (rc == SQLITE_ROW);
    return PREFERENCE_ERROR_NONE;
}
