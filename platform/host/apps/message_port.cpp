// Message ports: local ports registered by name, bundles delivered on the main loop.
#include "platform/message_port.h"

#include <glib.h>

#include <map>
#include <memory>
#include <string>

#include "apps/app_registry.h"
#include "core/host_internal.h"
#include "orvex_host/app_control_control.h"

namespace {

struct Port {
    std::string name;
    message_port_message_cb callback;
    void* userData;
};

std::map<int, Port> g_ports;
int g_nextId = 1;

struct Delivery {
    std::string portName;
    std::string remoteAppId;
    bundle* message;
    ~Delivery() { bundle_free(message); }
};

gboolean deliver(gpointer data) {
    // Owned here, so that a callback that throws leaks neither the delivery nor its bundle.
    std::unique_ptr<Delivery> d(static_cast<Delivery*>(data));
    // The port may have gone between posting and delivery: the message is then dropped.
    for (const auto& [id, port] : g_ports) {
        if (port.name == d->portName) {
            port.callback(id, d->remoteAppId.c_str(), nullptr, false, d->message, port.userData);
            break;
        }
    }
    return G_SOURCE_REMOVE;
}

void resetPorts() {
    g_ports.clear();
    g_nextId = 1;
}

[[maybe_unused]] const bool g_registered = orvex_host::onReset(&resetPorts);

}  // namespace

extern "C" int message_port_register_local_port(const char* local_port,
                                                message_port_message_cb callback, void* user_data) {
    ORVEX_HOST_FAULT_RETURN("message_port_register_local_port");
    if (!local_port || !*local_port || !callback) return MESSAGE_PORT_ERROR_INVALID_PARAMETER;
    // Registering a name again takes the port over under the same id.
    for (auto& [id, port] : g_ports) {
        if (port.name == local_port) {
            port.callback = callback;
            port.userData = user_data;
            return id;
        }
    }
    int id = g_nextId++;
    g_ports[id] = Port{local_port, callback, user_data};
    return id;
}

extern "C" int message_port_unregister_local_port(int local_port_id) {
    ORVEX_HOST_FAULT_RETURN("message_port_unregister_local_port");
    return g_ports.erase(local_port_id) ? MESSAGE_PORT_ERROR_NONE
                                        : MESSAGE_PORT_ERROR_PORT_NOT_FOUND;
}

int orvex_host::postToLocalPort(const char* portName, const char* remoteAppId, bundle* message) {
    if (!portName || !message) return MESSAGE_PORT_ERROR_INVALID_PARAMETER;
    bool found = false;
    for (const auto& entry : g_ports) found |= entry.second.name == portName;
    if (!found) return MESSAGE_PORT_ERROR_PORT_NOT_FOUND;
    bundle* copy = bundle_dup(message);
    if (!copy) return MESSAGE_PORT_ERROR_OUT_OF_MEMORY;
    g_idle_add(deliver, new Delivery{portName, remoteAppId ? remoteAppId : "", copy});
    return MESSAGE_PORT_ERROR_NONE;
}

extern "C" int orvex_host_message_port_post(const char* port_name, const char* remote_app_id,
                                            bundle* message) {
    return orvex_host::postToLocalPort(port_name, remote_app_id, message);
}

extern "C" int orvex_host_message_port_count(void) { return static_cast<int>(g_ports.size()); }
