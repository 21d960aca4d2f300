/* Network connection service: the system's network settings as applications see them. */
#ifndef PLATFORM_CONNECTION_H
#define PLATFORM_CONNECTION_H

#include "platform_error.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct connection_s* connection_h;

typedef enum {
    CONNECTION_ADDRESS_FAMILY_IPV4 = 0,
    CONNECTION_ADDRESS_FAMILY_IPV6 = 1
} connection_address_family_e;

typedef enum {
    CONNECTION_ERROR_NONE = PLATFORM_ERROR_NONE,
    CONNECTION_ERROR_INVALID_PARAMETER = PLATFORM_ERROR_INVALID_PARAMETER,
    CONNECTION_ERROR_OUT_OF_MEMORY = PLATFORM_ERROR_OUT_OF_MEMORY,
    CONNECTION_ERROR_INVALID_OPERATION = PLATFORM_ERROR_IO_ERROR,
    CONNECTION_ERROR_NOT_SUPPORTED = PLATFORM_ERROR_NOT_SUPPORTED
} connection_error_e;

/* Opens a handle on the connection service; release it with connection_destroy(). */
int connection_create(connection_h* connection);

/* Releases a handle from connection_create(). */
int connection_destroy(connection_h connection);

/*
 * The system proxy for the address family, as "host:port" or "scheme://host:port". *proxy is a
 * new string the caller frees with free(), or NULL when no proxy is configured.
 */
int connection_get_proxy(connection_h connection, connection_address_family_e family, char** proxy);

#ifdef __cplusplus
}
#endif

#endif
