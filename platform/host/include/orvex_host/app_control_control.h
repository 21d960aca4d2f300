/*
 * Control interface of the host's application control and message ports (tests and the tool
 * only). The weather agent has its own: agent_control.h.
 */
#ifndef ORVEX_HOST_APP_CONTROL_CONTROL_H
#define ORVEX_HOST_APP_CONTROL_CONTROL_H

#include <platform/bundle.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Launch requests accepted since the last reset. */
int orvex_host_app_launch_count(void);

/* Local ports registered now. */
int orvex_host_message_port_count(void);

/*
 * Sends a copy of message to the local port named port_name as if remote_app_id had sent it;
 * delivered on the main loop. MESSAGE_PORT_ERROR_PORT_NOT_FOUND when no such port exists.
 */
int orvex_host_message_port_post(const char* port_name, const char* remote_app_id, bundle* message);

#ifdef __cplusplus
}
#endif

#endif
