/*
 * Control interface of the host location service (tests and the tool only).
 *
 * Back ends of the position (host configuration "location_backend", environment variable
 * ORVEX_HOST_LOCATION_BACKEND, which wins), listed by orvex_host_location_backend_name():
 *   fixed  (default) the configured position;
 *   track  replay of the track file "location_track" (GPX or CSV);
 *   gpsd   the fixes of a gpsd daemon at "location_gpsd_host":"location_gpsd_port" (default
 *          localhost:2947). The service comes up with the first fix and goes down when the fix
 *          is lost; until then get_position answers LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE. Only
 *          a 3D fix has an altitude: altMSL, else altHAE - geoidSep, else an older gpsd's alt;
 *          a 2D fix, or a height outside -500..9000 m, gives the altitude NAN.
 *
 * Every ORVEX_HOST_LOCATION_* variable is checked as the setter of the same setting checks it. A
 * value refused there makes the service unusable (location_manager_start answers
 * LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE and the host log says why, once) rather than fall back
 * to a default.
 */
#ifndef ORVEX_HOST_LOCATION_CONTROL_H
#define ORVEX_HOST_LOCATION_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The configured position (degrees, metres), persisted. Until one is set the host stands at
 * 47.2692 N, 11.4041 E, 574 m. -EINVAL for a latitude outside -90..90, a longitude outside
 * -180..180 or an altitude outside -500..9000 m.
 */
int orvex_host_location_set_position(double latitude, double longitude, double altitude);
/*
 * Replays a track instead (back end "track"): a GPX 1.0/1.1 file of track points with a time
 * (ele optional: a point without one, or with <fix>2d</fix>, has the altitude NAN), or a CSV file
 * of "seconds,latitude,longitude,altitude" rows (a header line and # comments allowed), followed
 * from the moment a manager starts on the points' own times; the last point holds after the end.
 * A step back in time of less than a second is clock jitter, taken as no step. Only a regular
 * file of at most 64 MiB and a million points is read, once per version of it (path, inode,
 * modification time, size), and on the main loop in slices of at most 20 ms. -EINVAL, with the
 * choice unchanged, for a file that is not such a track. NULL goes back to the default back end.
 */
int orvex_host_location_set_track(const char* path);
/*
 * Why the file is not a usable track, as one line naming the file (and the line in it); NULL
 * when it is one. Reads the whole file now. Failure texts are lent as control.h says.
 */
const char* orvex_host_location_track_problem(const char* path);
/*
 * A back end by name; NULL returns to the default. -EINVAL for an unknown name, -ENOENT for
 * "track" before a track was set.
 */
int orvex_host_location_set_backend(const char* name);
/* The back end in use, the environment variable included; NULL when that names none. */
const char* orvex_host_location_backend(void);
/* The name and a one-line summary of back end i (0 is the default); NULL past the last. */
const char* orvex_host_location_backend_name(int i);
const char* orvex_host_location_backend_summary(int i);
/*
 * Why VALUE is refused for the setting KEY (the host configuration key: "location_backend",
 * "location_position" as "LAT,LON,ALT", "location_track", "location_gpsd_host",
 * "location_gpsd_port", "location_enabled", ...), one line; NULL when it is fine. The
 * environment is checked with the same words.
 */
const char* orvex_host_location_setting_problem(const char* key, const char* value);
/*
 * Why the ORVEX_HOST_LOCATION_* environment cannot be used, one line naming the variable; NULL
 * when it can.
 */
const char* orvex_host_location_config_problem(void);
/*
 * Where gpsd listens; NULL host or port 0 return to localhost and 2947. Persisted. -EINVAL for an
 * empty host or a port outside 0..65535. A line longer than 64 KiB, or nested deeper than 64
 * levels, ends the connection; a connection that ends before it lasted 30 s
 * is retried after a pause doubling from 1 s up to 30 s.
 */
int orvex_host_location_set_gpsd(const char* host, int port);
/*
 * Why the back end has no position now (the settings, gpsd unreachable or without a fix, a track
 * unreadable or still being read); NULL when it has one or needs none.
 */
const char* orvex_host_location_problem(void);
/* "HOST:PORT" of gpsd as configured, in a new string for g_free(). */
char* orvex_host_location_gpsd_address(void);
/* Whether the hybrid method is supported (default 1), persisted. */
int orvex_host_location_set_supported(int supported);
/* The location setting (default on), persisted. */
int orvex_host_location_set_enabled(int enabled);
/* The user's answer to an enabling request: 1 accept (default), 0 refuse. Persisted. */
int orvex_host_location_set_enable_answer(int accept);
/* Delivers a service-state event to every started manager on the main loop. */
void orvex_host_location_inject_state(int state);
/* Managers that exist now. */
int orvex_host_location_manager_count(void);
/* Whether callbacks of the hybrid method are registered. */
int orvex_host_location_has_enabling_result_cb(void);
int orvex_host_location_has_setting_changed_cb(void);

#ifdef __cplusplus
}
#endif

#endif
