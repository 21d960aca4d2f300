/*
 * Control interface of the host platform. Tests and the host tool use it to put the platform into a
 * known state, to inject faults and events and to read what the library logged. The library itself
 * never includes this header.
 *
 * Failure texts: every orvex_host_*_problem() function answers NULL when there is no problem and
 * otherwise one line of text that the host owns. The caller neither frees nor keeps it: it stays
 * valid in the calling thread until that thread calls the same function again (each thread has
 * its own copy, so threads do not overwrite each other's answers).
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
 * Why the data directory cannot be used (it cannot be created or written to, group or others can
 * write to an existing one, or $ORVEX_HOST_HOME is not an absolute path); NULL when it can. No
 * store opens in a refused directory.
 */
const char* orvex_host_data_dir_problem(void);

/*
 * Why the host store (host.db, which holds the preferences, system-setting overrides, recorder
 * samples and host configuration) cannot be used now, or why its last write failed: "<path> is
 * corrupt", "cannot write <path>: the disk is full", ... NULL when it opens, reads back whole and
 * its last write went through. A corrupt store is never rebuilt: what it holds stays for the user
 * to rescue.
 */
const char* orvex_host_store_problem(void);

/*
 * Why a host setting given in the environment (ORVEX_HOST_*) is refused, in one line naming the
 * variable and what it must be; NULL when every one that is set is usable. A refused value is
 * treated as not set.
 */
const char* orvex_host_config_problem(void);

/*
 * Uses path as the data directory from now on (closing the stores of the previous one). NULL goes
 * back to the directory the environment names, resolved again on next use. A directory that cannot
 * be used is refused with a negative errno (-EINVAL for a relative path, -EPERM when group or
 * others can write to it, -EACCES or -EROFS when it cannot be written), and the previous one stays.
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
 * "sqlite3_step" makes the host's own statements on its stores fail with `code` as a SQLite
 * result code (SQLITE_FULL for a full disk, SQLITE_IOERR for a failing one), so that the platform
 * functions answer as they would on such a disk.
 */
void orvex_host_fail_next(const char* function, int count, int code);
/* The same after letting `skip` calls of the function succeed first. */
void orvex_host_fail_after(const char* function, int skip, int count, int code);
void orvex_host_clear_faults(void);

/* ---- Log ---- */

/*
 * Where the log's lines go, besides the capture that tests read: by default to the system log
 * (syslog(3), which the journal collects), information and above. Once a level for stderr is asked
 * for, by $ORVEX_HOST_LOG_LEVEL (verbose, debug, info, warn, error, fatal, silent, or the
 * priority's number) or by this call, lines of at least that priority go to stderr instead, and
 * DLOG_SILENT sends them nowhere. DLOG_DEFAULT goes back to the system log.
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
/*
 * Pins the simulated weather to a fixed sea-level pressure, one a pressure sensor can report (260
 * to 1260 hPa, else -EINVAL); a value <= 0 returns to the model. $ORVEX_HOST_WEATHER_SLP wins.
 */
int orvex_host_weather_set_slp(double slp);

#ifdef __cplusplus
}
#endif

#endif
