/*
 * Control interface of the host's weather agent ("com.marveno.weather-agent"): its back ends, the
 * simulator's answers and why a request got none (tests and the tool only).
 */
#ifndef ORVEX_HOST_AGENT_CONTROL_H
#define ORVEX_HOST_AGENT_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The agent answers "GET_CURRENT_WEATHER_INFO" on the port named by "PORT_ID" with
 * "refreshedTime" (seconds since the epoch) and "pressure" (sea-level pressure in hPa), taken from
 * the back end chosen (host configuration "agent_backend", environment variable
 * ORVEX_HOST_AGENT_BACKEND). The settings persist in the data directory, so the tool's choices hold
 * for later runs.
 */

/* One back end as orvex_host_agent_backend_info_get() describes it. */
typedef struct {
    const char* name;    /* as orvex_host_agent_set_backend() takes it */
    const char* summary; /* one line, for a usage text */
    int fetches;         /* non-zero: it fetches from the server at orvex_host_agent_url() */
} orvex_host_agent_backend_info;

/*
 * The back end at index (0 is the default), for listing them all: 0, or -ERANGE past the last.
 * The texts are static.
 */
int orvex_host_agent_backend_info_get(int index, orvex_host_agent_backend_info* info);
/* Chooses a back end by name; NULL returns to the default; -EINVAL for a name not listed. */
int orvex_host_agent_set_backend(const char* name);
/* The back end chosen now (the environment's choice included). */
const char* orvex_host_agent_backend(void);
/* Requests the agent received since the last reset. */
int orvex_host_agent_request_count(void);
/* Why the last request got no answer; NULL while it is under way or when it was answered. */
const char* orvex_host_agent_problem(void);
/* Calls callback on the main loop whenever a request ends without an answer; NULL: no longer. */
void orvex_host_agent_on_problem(void (*callback)(const char* why, void* data), void* data);

/*
 * The simulator ("sim", the default): the simulated weather's sea-level pressure at the time of
 * the observation, which is now minus the configured age, or the configured text.
 */
/* Text sent as "pressure" (for example "9999"), sent as it is; NULL goes back to the weather model.
 */
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

/*
 * Open-Meteo ("open-meteo"): the current mean sea-level pressure at the location service's position
 * from the Open-Meteo forecast API over HTTPS, fetched on the main loop. Only a plausible pressure
 * and time are passed on; a failed fetch, or an answer that is too large, too deep, or holds an
 * implausible value, answers nothing, as a silent agent, and orvex_host_agent_problem() says why.
 */
/* Base URL of the API ("agent_url", default "https://api.open-meteo.com"); NULL: the default. */
int orvex_host_agent_set_url(const char* base_url);
const char* orvex_host_agent_url(void);
/* CA bundle that verifies the server ("agent_ca_file"); NULL: libcurl's, the host's bundle. */
int orvex_host_agent_set_ca_file(const char* path);
/* Time-out of one fetch in milliseconds ("agent_timeout_ms", default 10000, at most a day);
 * <= 0: the default. More than a day is refused with -EINVAL. */
int orvex_host_agent_set_timeout_ms(long ms);
/* Fetches under way. */
int orvex_host_agent_fetches(void);

#ifdef __cplusplus
}
#endif

#endif
