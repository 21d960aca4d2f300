/* Message ports: named endpoints that receive bundles from other applications. */
#ifndef PLATFORM_MESSAGE_PORT_H
#define PLATFORM_MESSAGE_PORT_H

#include <stdbool.h>

#include <platform/bundle.h>
#include <platform/platform_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    MESSAGE_PORT_ERROR_NONE = PLATFORM_ERROR_NONE,
    MESSAGE_PORT_ERROR_IO_ERROR = PLATFORM_ERROR_IO_ERROR,
    MESSAGE_PORT_ERROR_OUT_OF_MEMORY = PLATFORM_ERROR_OUT_OF_MEMORY,
    MESSAGE_PORT_ERROR_INVALID_PARAMETER = PLATFORM_ERROR_INVALID_PARAMETER,
    MESSAGE_PORT_ERROR_PORT_NOT_FOUND = -0x01130001,
    MESSAGE_PORT_ERROR_MAX_EXCEEDED = -0x01130003,
} message_port_error_e;

/* Called on the main loop for every bundle sent to the port; the bundle is valid during the call.
 */
typedef void (*message_port_message_cb)(int local_port_id, const char* remote_app_id,
                                        const char* remote_port, bool trusted_remote_port,
                                        bundle* message, void* user_data);

/* Returns a non-negative port id, or a negative error. */
int message_port_register_local_port(const char* local_port, message_port_message_cb callback,
                                     void* user_data);
int message_port_unregister_local_port(int local_port_id);

#ifdef __cplusplus
}
#endif

#endif
