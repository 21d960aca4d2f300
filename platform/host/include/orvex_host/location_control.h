/* Control interface of the host location service (tests and the tool only). */
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
 * Replays a track instead: a CSV file of "seconds,latitude,longitude,altitude" rows (a header line
 * and # comments allowed), followed from the moment a manager starts; the last row holds after
 * the end. NULL goes back to the configured position.
 */
int orvex_host_location_set_track(const char* path);
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
