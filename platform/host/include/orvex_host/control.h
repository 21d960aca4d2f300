/*
 * Control interface of the host platform. Tests and the host tool use it to put the platform into a
 * known state, to inject faults and events and to read what the library logged. The library itself
 * never includes this header.
 */
#ifndef ORVEX_HOST_CONTROL_H
#define ORVEX_HOST_CONTROL_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Data directory and reset ---- */

/*
 * The directory that holds the host's stores: $ORVEX_HOST_HOME, else $XDG_DATA_HOME/orvex, else
 * ~/.local/share/orvex, unless orvex_host_set_data_dir() chose another. Created 0700 on first use;
 * an existing directory keeps its mode.
 */
const char* orvex_host_data_dir(void);

/*
 * Why the data directory cannot be used (it cannot be created, or group or others can write to an
 * existing one); NULL when it can. No store opens in a refused directory.
 */
const char* orvex_host_data_dir_problem(void);

/*
 * Uses path as the data directory from now on (closing the stores of the previous one). NULL goes
 * back to the directory the environment names, resolved again on next use. A directory that cannot
 * be used is refused with a negative errno (-EPERM when group or others can write to it), and the
 * previous one stays.
 */
int orvex_host_set_data_dir(const char* path);

/*
 * Starts afresh: a new empty data directory under the system's temporary directory, no faults, an
 * empty log capture and every service back in its initial state. Returns 0 or a negative errno.
 */
int orvex_host_reset(void);

/* ---- Fault injection ---- */

/*
 * Makes the next `count` calls of the named platform function (for example "preference_get_int")
 * fail with `code` instead of doing their work. A count of -1 fails every call until cleared.
 */
void orvex_host_fail_next(const char* function, int count, int code);
/* The same after letting `skip` calls of the function succeed first. */
void orvex_host_fail_after(const char* function, int skip, int count, int code);
void orvex_host_clear_faults(void);

/* ---- Log ---- */

/* Lines of at least this priority also go to stderr (default DLOG_ERROR, or $ORVEX_HOST_LOG_LEVEL).
 */
void orvex_host_log_set_stderr_threshold(int prio);
/* Number of lines captured since the last reset or clear. */
size_t orvex_host_log_count(void);
/* Copies captured line i (its message as formatted, without tag) into a new string; NULL past the
 * end. */
char* orvex_host_log_line(size_t i, int* prio, char** tag);
void orvex_host_log_clear(void);

/* ---- Bundles ---- */

/* Bundles created (or duplicated) and not yet freed, in this process. */
int orvex_host_bundle_count(void);

/* ---- System settings ---- */

/* Overrides a system setting; persisted in the data directory. */
int orvex_host_vconf_set_int(const char* key, int value);
/* A NULL value makes vconf_get_str() answer NULL for the key. */
int orvex_host_vconf_set_str(const char* key, const char* value);
/* Drops an override, so the key reads its host default again. */
int orvex_host_vconf_unset(const char* key);

/* ---- Shared weather model ---- */

/*
 * The true sea-level pressure (hPa) of the host's simulated weather at time t (seconds since the
 * epoch). The simulated pressure sensor and the weather-agent simulator both read it, so that a
 * calibration from the agent brings the computed altitude to the simulated true altitude.
 */
double orvex_host_weather_slp(double t);
/* Pins the simulated weather to a fixed sea-level pressure; a value <= 0 returns to the model. */
int orvex_host_weather_set_slp(double slp);

#ifdef __cplusplus
}
#endif

#endif
