// The usage-log client: every insert is kept in the host store with its URI, fields and time.
#include <glib.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include "core/host_internal.h"
#include "orvex_host/usage_log_control.h"
#include "platform/marveno_log_client.h"

struct marveno_log_manager_s {
    int unused;
};

namespace {

[[maybe_unused]] const bool g_schema = orvex_host::addSchema(
    "CREATE TABLE IF NOT EXISTS usage_log("
    " id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, uri TEXT NOT NULL,"
    " fields TEXT NOT NULL);");

int g_open = 0;
int g_nextRequest = 1;

void resetClients() {
    g_open = 0;
    g_nextRequest = 1;
}

[[maybe_unused]] const bool g_reset = orvex_host::onReset(&resetClients);

struct Completion {
    marveno_log_insert_cb callback;
    int requestId;
    void* userData;
};

gboolean complete(gpointer data) {
    auto* c = static_cast<Completion*>(data);
    c->callback(c->requestId, MARVENO_LOG_ERROR_NONE, c->userData);
    delete c;
    return G_SOURCE_REMOVE;
}

}  // namespace

extern "C" int marveno_log_manager_create(marveno_log_manager_h* manager) {
    ORVEX_HOST_FAULT_RETURN("marveno_log_manager_create");
    if (!manager) return MARVENO_LOG_ERROR_INVALID_PARAMETER;
    *manager = new (std::nothrow) marveno_log_manager_s();
    if (!*manager) return MARVENO_LOG_ERROR_OUT_OF_MEMORY;
    ++g_open;
    return MARVENO_LOG_ERROR_NONE;
}

extern "C" int marveno_log_manager_destroy(marveno_log_manager_h manager) {
    ORVEX_HOST_FAULT_RETURN("marveno_log_manager_destroy");
    if (!manager) return MARVENO_LOG_ERROR_INVALID_PARAMETER;
    delete manager;
    --g_open;
    return MARVENO_LOG_ERROR_NONE;
}

extern "C" int marveno_log_manager_insert(marveno_log_manager_h manager, const char* uri,
                                          bundle* data, marveno_log_insert_cb callback,
                                          void* user_data, int* request_id) {
    ORVEX_HOST_FAULT_RETURN("marveno_log_manager_insert");
    if (!manager || !uri || !data) return MARVENO_LOG_ERROR_INVALID_PARAMETER;
    std::string fields;
    bundle_iterate(
        data,
        [](const char* k, const char* v, void* out) {
            *static_cast<std::string*>(out) += std::string(k) + "=" + v + "\n";
        },
        &fields);
    {
        std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
        orvex_host::Stmt st(orvex_host::store(),
                            "INSERT INTO usage_log(time, uri, fields) VALUES(?, ?, ?)");
        st.bind(1, static_cast<long long>(time(nullptr))).bind(2, uri).bind(3, fields);
        if (st.step() != SQLITE_DONE) return MARVENO_LOG_ERROR_IO_ERROR;
    }
    int id = g_nextRequest++;
    if (request_id) *request_id = id;
    if (callback) g_idle_add(complete, new Completion{callback, id, user_data});
    return MARVENO_LOG_ERROR_NONE;
}

namespace {

char* column(int i, int col, long long* time) {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    orvex_host::Stmt st(orvex_host::store(),
                        "SELECT time, uri, fields FROM usage_log ORDER BY id LIMIT 1 OFFSET ?");
    if (st.bind(1, i).step() != SQLITE_ROW) return nullptr;
    if (time) *time = sqlite3_column_int64(st.get(), 0);
    const unsigned char* text = sqlite3_column_text(st.get(), col);
    return strdup(text ? reinterpret_cast<const char*>(text) : "");
}

}  // namespace

extern "C" int orvex_host_usage_log_count(void) {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    orvex_host::Stmt st(orvex_host::store(), "SELECT COUNT(*) FROM usage_log");
    return st.step() == SQLITE_ROW ? sqlite3_column_int(st.get(), 0) : 0;
}

extern "C" char* orvex_host_usage_log_uri(int i, long long* time) { return column(i, 1, time); }

extern "C" char* orvex_host_usage_log_fields(int i) { return column(i, 2, nullptr); }

extern "C" int orvex_host_usage_log_open_clients(void) { return g_open; }
