/*
 * Control interface of the host location service (tests and the tool only).
 *
 * Back ends of the position (host configuration "location_backend", environment variable
 * ORVEX_HOST_LOCATION_BACKEND, which wins):
 *   fixed  (default) the configured position;
 *   track  replay of the track file "location_track" (GPX or CSV);
 *   gpsd   the fixes of a gpsd daemon at "location_gpsd_host":"location_gpsd_port" (default
 *          localhost:2947). The service comes up with the first fix and goes down when the fix
 *          is lost; until then get_position answers LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE.
 */
#ifndef ORVEX_HOST_LOCATION_CONTROL_H
#define ORVEX_HOST_LOCATION_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The configured position (degrees, metres), persisted. Until one is set the host stands at
 * 47.2692 N, 11.4041 E, 574 m.
 */
int orvex_host_location_set_position(double latitude, double longitude, double altitude);
/*
 * Replays a track instead (back end "track"): a GPX 1.0/1.1 file of track points with ele and
 * time, or a CSV file of "seconds,latitude,longitude,altitude" rows (a header line and # comments
 * allowed), followed from the moment a manager starts on the points' own times; the last point
 * holds after the end. -EINVAL, with the choice unchanged, for a file that is not such a track.
 * NULL goes back to the configured position (back end "fixed").
 */
int orvex_host_location_set_track(const char* path);
/*
 * Why the file is not a usable track, as one line naming the file (and the line in it); NULL when
 * it is one. Owned as control.h says of failure texts.
 */
const char* orvex_host_location_track_problem(const char* path);
/*
 * "fixed", "track" or "gpsd"; NULL returns to the default. -EINVAL for another name, -ENOENT for
 * "track" before a track was set.
 */
int orvex_host_location_set_backend(const char* name);
/* The back end in use, the environment variable included. */
const char* orvex_host_location_backend(void);
/* Where gpsd listens; NULL host or port 0 return to localhost and 2947. Persisted. */
int orvex_host_location_set_gpsd(const char* host, int port);
/*
 * Why the back end has no position now (gpsd unreachable or without a fix, track unreadable);
 * NULL when it has one or needs none. Owned as control.h says of failure texts.
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
