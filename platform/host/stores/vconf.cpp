// System settings: host-derived defaults with persistent overrides from the control interface.
#include "platform/vconf.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "core/host_internal.h"
#include "orvex_host/control.h"

namespace {

[[maybe_unused]] const bool g_schema = orvex_host::addSchema(
    "CREATE TABLE IF NOT EXISTS vconf_override("
    " key TEXT PRIMARY KEY, is_int INTEGER NOT NULL, ival INTEGER, sval TEXT);");

// The locale name the host runs in, as a user would see it (en_US.UTF-8); empty for C/POSIX.
std::string hostLocale() {
    for (const char* var : {"LC_ALL", "LC_MEASUREMENT", "LANG"}) {
        const char* v = getenv(var);
        if (v && *v) {
            std::string s(v);
            return (s == "C" || s == "POSIX" || s.rfind("C.", 0) == 0) ? std::string() : s;
        }
    }
    return std::string();
}

// "en_US.UTF-8" and "de_DE@euro" give "US" and "DE"; a locale without a territory gives nothing.
std::optional<std::string> hostCountry() {
    std::string loc = hostLocale();
    size_t us = loc.find('_');
    if (us == std::string::npos) return std::nullopt;
    std::string country = loc.substr(us + 1, loc.find_first_of(".@", us + 1) - us - 1);
    if (country.empty()) return std::nullopt;
    return country;
}

struct Override {
    bool isInt;
    int ival;
    std::optional<std::string> sval;
};

// The key's override; false when the store cannot say (an override may hide there, so the host
// default would be a guess).
bool findOverride(const char* key, std::optional<Override>* found) {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    orvex_host::Stmt st(orvex_host::store(),
                        "SELECT is_int, ival, sval FROM vconf_override WHERE key=?");
    int rc = st.ok() ? st.bind(1, key).step() : SQLITE_CANTOPEN;
    if (rc != SQLITE_ROW) return rc == SQLITE_DONE;
    Override o{sqlite3_column_int(st.get(), 0) != 0, sqlite3_column_int(st.get(), 1), std::nullopt};
    if (const unsigned char* s = sqlite3_column_text(st.get(), 2))
        o.sval = std::string(reinterpret_cast<const char*>(s));
    *found = o;
    return true;
}

int writeOverride(const char* key, bool isInt, int ival, const char* sval) {
    if (!key || !*key) return -EINVAL;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    orvex_host::Stmt st(orvex_host::store(),
                        "INSERT OR REPLACE INTO vconf_override(key, is_int, ival, sval)"
                        " VALUES(?, ?, ?, ?)");
    st.bind(1, key).bind(2, isInt ? 1 : 0).bind(3, ival).bind(4, sval);
    return st.step() == SQLITE_DONE ? 0 : -EIO;
}

}  // namespace

extern "C" int vconf_get_int(const char* in_key, int* val) {
    ORVEX_HOST_FAULT_RETURN("vconf_get_int");
    if (!in_key || !val) return VCONF_ERROR;
    std::optional<Override> o;
    if (!findOverride(in_key, &o)) return VCONF_ERROR;
    if (o) {
        if (!o->isInt) return VCONF_ERROR;
        *val = o->ival;
        return VCONF_OK;
    }
    if (strcmp(in_key, "db/retailmode/enabled") == 0) {
        *val = 0;
        return VCONF_OK;
    }
    return VCONF_ERROR;
}

extern "C" char* vconf_get_str(const char* in_key) {
    int code;
    if (orvex_host::fault("vconf_get_str", &code) || !in_key) return nullptr;
    std::optional<std::string> value;
    std::optional<Override> o;
    if (!findOverride(in_key, &o)) return nullptr;
    if (o) {
        if (o->isInt) return nullptr;
        value = o->sval;
    } else if (strcmp(in_key, "db/csc/country_iso") == 0) {
        value = hostCountry();
    } else if (strcmp(in_key, "db/menu_widget/regionformat") == 0) {
        std::string loc = hostLocale();
        if (!loc.empty()) value = loc;
    }
    return value ? strdup(value->c_str()) : nullptr;
}

extern "C" int orvex_host_vconf_set_int(const char* key, int value) {
    return writeOverride(key, true, value, nullptr);
}

extern "C" int orvex_host_vconf_set_str(const char* key, const char* value) {
    return writeOverride(key, false, 0, value);
}

extern "C" int orvex_host_vconf_unset(const char* key) {
    if (!key || !*key) return -EINVAL;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    orvex_host::Stmt st(orvex_host::store(), "DELETE FROM vconf_override WHERE key=?");
    return st.bind(1, key).step() == SQLITE_DONE ? 0 : -EIO;
}
