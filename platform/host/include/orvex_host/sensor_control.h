/*
 * Control of the host's sensor service and recorder, for tests and the host tool.
 *
 * The pressure sensor reads from one of the back ends listed by orvex_host_sensor_backend_name()
 * (host configuration "sensor_backend", environment variable ORVEX_HOST_SENSOR_BACKEND). Their
 * settings: "sensor_seed" (the simulated walk), "sensor_iio_root" (where the IIO devices are,
 * default /sys/bus/iio/devices), "sensor_trace" and "sensor_trace_loop" (the CSV file a trace
 * replays, and whether it starts again after its last row).
 *
 * A reading passes only when it is a plausible pressure at the sensor (orvex_host/plausible.h);
 * any other is an event that says the sensor is not working, and the recorder does not keep it.
 */
#ifndef ORVEX_HOST_SENSOR_CONTROL_H
#define ORVEX_HOST_SENSOR_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Back end ---- */

/* The back ends, the default first: the name of the index-th and one line on what it reads;
 * NULL past the last. */
const char* orvex_host_sensor_backend_name(int index);
const char* orvex_host_sensor_backend_summary(int index);
/* Why name is not a back end ("unknown sensor back end 'x' (" and the names ")"); NULL when it
 * is one. The text stays valid until the next call. */
const char* orvex_host_sensor_backend_refusal(const char* name);
/* One of the back ends' names; NULL returns to the default. -EINVAL for another name. */
int orvex_host_sensor_set_backend(const char* name);
/* The back end in use, as configured. */
const char* orvex_host_sensor_backend(void);
/* Why the back end cannot deliver pressure (no device, unreadable trace...); NULL when it can. */
const char* orvex_host_sensor_backend_problem(void);
/* Why the newest reading failed (a device file that is not a regular file or holds no number, a
 * value that is not a plausible pressure...); NULL when it did not. The text stays valid until
 * the next call. */
const char* orvex_host_sensor_reading_problem(void);
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
/* Recorder queries created and not yet destroyed, in this process. */
int orvex_host_sensor_recorder_queries(void);

#ifdef __cplusplus
}
#endif

#endif
