/*
 * Control of the host's sensor service and recorder, for tests and the host tool.
 *
 * Back ends of the pressure sensor (host configuration "sensor_backend", environment variable
 * ORVEX_HOST_SENSOR_BACKEND):
 *   sim    (default) a walker's altitude profile under the shared simulated weather, with a little
 *          seeded noise ("sensor_seed");
 *   iio    a Linux IIO barometer under "sensor_iio_root" (default /sys/bus/iio/devices);
 *   trace  replay of the CSV file "sensor_trace", looping unless "sensor_trace_loop" is 0.
 */
#ifndef ORVEX_HOST_SENSOR_CONTROL_H
#define ORVEX_HOST_SENSOR_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Back end ---- */

/* "sim", "iio" or "trace"; NULL returns to the default. -EINVAL for another name. */
int orvex_host_sensor_set_backend(const char* name);
/* The back end in use: "sim", "iio" or "trace". */
const char* orvex_host_sensor_backend(void);
/* Why the back end cannot deliver pressure (no device, unreadable trace...); NULL when it can. */
const char* orvex_host_sensor_backend_problem(void);
/* 1 once the back end has delivered all it had and sends nothing more (a trace that does not loop,
 * after its last row); 0 otherwise. */
int orvex_host_sensor_ended(void);
int orvex_host_sensor_set_seed(unsigned int seed);
int orvex_host_sensor_set_trace(const char* path, int loop);
/* Why the file cannot be replayed as a trace ("FILE:LINE: ..."); NULL when it can. The text stays
 * valid until the next call on the same thread. */
const char* orvex_host_sensor_trace_problem(const char* path);
int orvex_host_sensor_set_iio_root(const char* path);

/*
 * Pins the sensors' clock at t seconds since the epoch, so that the sim and trace back ends give
 * reproducible readings; t <= 0 returns to the real clock.
 */
void orvex_host_sensor_set_clock(double t);
double orvex_host_sensor_now(void);

/* Stops (0) or restarts (1) the back end's own events; injected events still arrive. */
void orvex_host_sensor_set_generating(int enabled);

/* ---- The sim back end's truth ---- */

/* The simulated walker's true altitude (m) and the pressure (hPa, without noise) at time t. */
double orvex_host_sensor_sim_altitude(double t);
double orvex_host_sensor_sim_pressure(double t);

/* ---- Events ---- */

/*
 * Delivers one event with the given values (count <= 16) to every started listener of the type
 * that has a callback, on the main loop. Returns the number of listeners it is queued for.
 */
int orvex_host_sensor_inject(int type, const float* values, int count);

typedef struct {
    int created;              /* listeners created since the last reset */
    int live;                 /* not yet destroyed */
    int started;              /* live and started */
    int with_callback;        /* live with an event callback */
    unsigned int interval_ms; /* of the newest live listener */
    int option;               /* of the newest live listener */
    int events;               /* events delivered since the last reset */
} orvex_host_sensor_listener_info;

int orvex_host_sensor_listener_info_get(int type, orvex_host_sensor_listener_info* info);
/* The last value written to an attribute of the newest listener of the type (live or not);
 * -ENOENT when none was written. */
int orvex_host_sensor_listener_attribute(int type, int attribute, int* value);

/* ---- Recorder ---- */

/* Adds a recorded sample as if the recorder had taken it. */
int orvex_host_sensor_record_insert(int type, long long time, double value);
/* Number of stored samples of the type in [from, to]. */
int orvex_host_sensor_record_count(int type, long long from, long long to);
/* Whether the type is being recorded, and the retention in hours. */
int orvex_host_sensor_recorder_state(int type, int* started, int* retention_hours);
/* Takes one sample of every recorded type now, as the recorder's timer does. */
int orvex_host_sensor_recorder_sample_now(void);

typedef struct {
    int type;
    long long start, end, anchor; /* -1 when the query did not set it */
    int interval;                 /* minutes; -1 when not set */
    int records;                  /* records the read found */
} orvex_host_sensor_read_info;

/* The last read the recorder accepted; -ENOENT when none since the last reset. */
int orvex_host_sensor_recorder_last_read(orvex_host_sensor_read_info* info);

#ifdef __cplusplus
}
#endif

#endif
