// Network connection service: the host's proxy settings.
#include "platform/connection.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "core/host_internal.h"
#include "orvex_host/connection_control.h"

struct connection_s {
    int magic;
};

namespace {

constexpr int kMagic = 0x636f6e6e;

std::mutex g_mutex;
std::optional<std::string> g_proxyOverride;
std::set<connection_h> g_handles;

void resetConnection() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_proxyOverride.reset();
    // Handles a test leaked stay valid memory but no longer count as open.
    g_handles.clear();
}

[[maybe_unused]] const bool g_registered = orvex_host::onReset(&resetConnection);

// The proxy a command-line HTTPS client on this host would use.
std::string hostProxy() {
    for (const char* var : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
        const char* v = getenv(var);
        if (v && *v) return v;
    }
    return std::string();
}

}  // namespace

extern "C" int connection_create(connection_h* connection) {
    if (!connection) return CONNECTION_ERROR_INVALID_PARAMETER;
    ORVEX_HOST_FAULT_RETURN("connection_create");
    auto* h = new (std::nothrow) connection_s{kMagic};
    if (!h) return CONNECTION_ERROR_OUT_OF_MEMORY;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_handles.insert(h);
    *connection = h;
    return CONNECTION_ERROR_NONE;
}

extern "C" int connection_destroy(connection_h connection) {
    if (!connection || connection->magic != kMagic) return CONNECTION_ERROR_INVALID_PARAMETER;
    ORVEX_HOST_FAULT_RETURN("connection_destroy");
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_handles.erase(connection);
    }
    connection->magic = 0;
    delete connection;
    return CONNECTION_ERROR_NONE;
}

extern "C" int connection_get_proxy(connection_h connection, connection_address_family_e family,
                                    char** proxy) {
    if (!connection || connection->magic != kMagic || !proxy ||
        (family != CONNECTION_ADDRESS_FAMILY_IPV4 && family != CONNECTION_ADDRESS_FAMILY_IPV6))
        return CONNECTION_ERROR_INVALID_PARAMETER;
    ORVEX_HOST_FAULT_RETURN("connection_get_proxy");
    std::string value;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        value = g_proxyOverride ? *g_proxyOverride : hostProxy();
    }
    if (value.empty()) {
        *proxy = nullptr;
        return CONNECTION_ERROR_NONE;
    }
    *proxy = strdup(value.c_str());
    return *proxy ? CONNECTION_ERROR_NONE : CONNECTION_ERROR_OUT_OF_MEMORY;
}

extern "C" int orvex_host_connection_set_proxy(const char* proxy) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (proxy)
        g_proxyOverride = std::string(proxy);
    else
        g_proxyOverride.reset();
    return 0;
}

extern "C" int orvex_host_connection_open_handles(void) {
    std::lock_guard<std::mutex> lock(g_mutex);
    return static_cast<int>(g_handles.size());
}
