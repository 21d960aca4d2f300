/*
 * Control interface of the host's application control, message ports and weather-agent
 * simulator (tests and the tool only).
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

/*
 * The weather-agent simulator ("com.marveno.weather-agent"). On "GET_CURRENT_WEATHER_INFO" it
 * answers on the port named by "PORT_ID" with "refreshedTime" (seconds since the epoch, minus the
 * configured age) and "pressure" (the simulated weather's sea-level pressure at that time, or the
 * configured text). The settings persist in the data directory, so the tool's choices hold for
 * later runs.
 */
/* Text sent as "pressure" (for example "9999"); NULL goes back to the weather model. */
int orvex_host_agent_set_pressure(const char* text);
/* How many seconds old the observation is. */
int orvex_host_agent_set_age(long long seconds);
/* Leaves the entry ("refreshedTime" or "pressure") out of the answer; NULL leaves nothing out. */
int orvex_host_agent_set_missing(const char* key);
/* Sends the entry with an empty value; NULL sends every entry filled. */
int orvex_host_agent_set_empty(const char* key);
/* Non-zero: the agent takes requests but never answers. */
int orvex_host_agent_set_silent(int silent);
/* Back to the defaults: model pressure, fresh, complete, answering. */
int orvex_host_agent_reset(void);
/* Requests the agent received since the last reset. */
int orvex_host_agent_request_count(void);

/*
 * Where the agent's answers come from (host configuration "agent_backend", environment variable
 * ORVEX_HOST_AGENT_BACKEND):
 *   sim         (default) the simulator above;
 *   open-meteo  the current mean sea-level pressure at the location service's position from the
 *               Open-Meteo forecast API over HTTPS, fetched on the main loop. A failed fetch
 *               answers nothing, as a silent agent, and orvex_host_agent_problem() says why.
 * NULL returns to the default; -EINVAL for another name.
 */
int orvex_host_agent_set_backend(const char* name);
/* The back end chosen now (the environment's choice included). */
const char* orvex_host_agent_backend(void);
/* Base URL of the API ("agent_url", default "https://api.open-meteo.com"); NULL: the default. */
int orvex_host_agent_set_url(const char* base_url);
const char* orvex_host_agent_url(void);
/* CA bundle that verifies the server ("agent_ca_file"); NULL: libcurl's, the host's bundle. */
int orvex_host_agent_set_ca_file(const char* path);
/* Time-out of one fetch in milliseconds ("agent_timeout_ms", default 10000); <= 0: the default. */
int orvex_host_agent_set_timeout_ms(long ms);
/* Why the last request got no answer; NULL while it is under way or when it was answered. */
const char* orvex_host_agent_problem(void);
/* Calls callback on the main loop whenever a request ends without an answer; NULL: no longer. */
void orvex_host_agent_on_problem(void (*callback)(const char* why, void* data), void* data);
/* Fetches under way. */
int orvex_host_agent_fetches(void);

#ifdef __cplusplus
}
#endif

#endif
