/*
 * Sensor service and sensor recorder.
 *
 * Live data: get a sensor of a type, create a listener on it, give the listener an event callback
 * and an interval, and start it; events arrive on the default GLib main context. The recorder
 * keeps samples of a sensor type in the background and answers range queries, record by record.
 */
#ifndef PLATFORM_SENSOR_H
#define PLATFORM_SENSOR_H

#include <errno.h>
#include <stdbool.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    SENSOR_ERROR_NONE = 0,
    SENSOR_ERROR_IO_ERROR = -EIO,
    SENSOR_ERROR_INVALID_PARAMETER = -EINVAL,
    SENSOR_ERROR_NOT_SUPPORTED = -ENOTSUP,
    SENSOR_ERROR_PERMISSION_DENIED = -EACCES,
    SENSOR_ERROR_OUT_OF_MEMORY = -ENOMEM,
    SENSOR_ERROR_NO_DATA = -ENODATA,
    SENSOR_ERROR_OPERATION_FAILED = -0x0243FFFA, /* 0xFDBC0006 */
    SENSOR_ERROR_ALREADY_STARTED = -0x0243FFF9, /* 0xFDBC0007: recording of the type runs already */
} sensor_error_e;

typedef enum {
    SENSOR_ALL = -1,
    SENSOR_ACCELEROMETER = 0,
    SENSOR_PRESSURE = 9,            /* values: hPa, hPa/h, deg C, status (0.0: not working) */
    SENSOR_PRESSURE_TREND = 0x200A, /* values: change over the trend window (hPa), tendency */
} sensor_type_e;

typedef enum {
    SENSOR_OPTION_DEFAULT = 0, /* events only while the display is on */
    SENSOR_OPTION_ON_IN_SCREEN_OFF = 1,
    SENSOR_OPTION_ON_IN_POWERSAVE_MODE = 2,
    SENSOR_OPTION_ALWAYS_ON = 3,
} sensor_option_e;

/* Attributes of the trend sensor's listener; the host keeps them and reports them back. */
typedef enum {
    SENSOR_ATTRIBUTE_TREND_WINDOW = 0x200A81, /* 0: the default window of three hours */
    SENSOR_ATTRIBUTE_TREND_FLUSH = 0x200A82,  /* written when the listener is about to go */
    SENSOR_ATTRIBUTE_TREND_ALERT = 0x200A83,  /* 0: no tendency alerts */
} sensor_attribute_e;

typedef enum {
    SENSOR_DATA_ACCURACY_UNDEFINED = -1,
    SENSOR_DATA_ACCURACY_BAD = 0,
    SENSOR_DATA_ACCURACY_NORMAL = 1,
    SENSOR_DATA_ACCURACY_GOOD = 2,
    SENSOR_DATA_ACCURACY_VERYGOOD = 3,
} sensor_data_accuracy_e;

#define SENSOR_EVENT_MAX_VALUES 16

typedef struct {
    int accuracy;                 /* sensor_data_accuracy_e */
    unsigned long long timestamp; /* microseconds since the epoch */
    int value_count;
    float values[SENSOR_EVENT_MAX_VALUES];
} sensor_event_s;

typedef void* sensor_h;
typedef struct sensor_listener_s* sensor_listener_h;

typedef void (*sensor_event_cb)(sensor_h sensor, sensor_event_s* event, void* user_data);

int sensor_is_supported(sensor_type_e type, bool* supported);
int sensor_get_default_sensor(sensor_type_e type, sensor_h* sensor);
int sensor_create_listener(sensor_h sensor, sensor_listener_h* listener);
int sensor_destroy_listener(sensor_listener_h listener);
int sensor_listener_start(sensor_listener_h listener);
int sensor_listener_stop(sensor_listener_h listener);
/* An interval of 0 asks for the sensor's own rate (one event a second on the host). */
int sensor_listener_set_event_cb(sensor_listener_h listener, unsigned int interval_ms,
                                 sensor_event_cb callback, void* user_data);
int sensor_listener_unset_event_cb(sensor_listener_h listener);
int sensor_listener_set_option(sensor_listener_h listener, sensor_option_e option);
int sensor_listener_set_attribute_int(sensor_listener_h listener, sensor_attribute_e attribute,
                                      int value);
/* The current reading, without waiting for an event. */
int sensor_listener_read_data(sensor_listener_h listener, sensor_event_s* event);

/* ---- Recorder ---- */

typedef void* sensor_recorder_option_h;
typedef void* sensor_recorder_query_h;
typedef void* sensor_recorder_data_h;

typedef enum {
    SENSOR_RECORDER_OPTION_RETENTION_PERIOD = 0, /* hours */
    SENSOR_RECORDER_OPTION_INTERVAL = 1,         /* minutes between samples */
} sensor_recorder_option_e;

typedef enum {
    SENSOR_RECORDER_QUERY_START_TIME = 0, /* seconds since the epoch */
    SENSOR_RECORDER_QUERY_END_TIME = 1,
    SENSOR_RECORDER_QUERY_ANCHOR_TIME = 2,   /* records are aligned to it */
    SENSOR_RECORDER_QUERY_TIME_INTERVAL = 3, /* minutes per record; 0: one record per sample */
} sensor_recorder_query_e;

typedef enum {
    SENSOR_RECORDER_DATA_PRESSURE = 48, /* mean over the record's range, hPa */
    SENSOR_RECORDER_DATA_MIN_PRESSURE = 49,
    SENSOR_RECORDER_DATA_MAX_PRESSURE = 50,
} sensor_recorder_data_e;

/* Called once per record on the main loop; `remains` counts the records still to come. Returning
 * false ends the read. */
typedef bool (*sensor_recorder_data_cb)(sensor_type_e type, sensor_recorder_data_h data,
                                        int remains, sensor_error_e error, void* user_data);

int sensor_recorder_is_supported(sensor_type_e type, bool* supported);
/* SENSOR_ERROR_ALREADY_STARTED when the type is being recorded already (options unchanged). */
int sensor_recorder_start(sensor_type_e type, sensor_recorder_option_h option);
int sensor_recorder_stop(sensor_type_e type);
int sensor_recorder_create_option(sensor_recorder_option_h* option);
int sensor_recorder_destroy_option(sensor_recorder_option_h option);
int sensor_recorder_option_set_int(sensor_recorder_option_h option,
                                   sensor_recorder_option_e attribute, int value);
int sensor_recorder_create_query(sensor_recorder_query_h* query);
int sensor_recorder_destroy_query(sensor_recorder_query_h query);
int sensor_recorder_query_set_time(sensor_recorder_query_h query, sensor_recorder_query_e attribute,
                                   time_t t);
int sensor_recorder_query_set_int(sensor_recorder_query_h query, sensor_recorder_query_e attribute,
                                  int value);
/* Accepts the query and delivers its records later; a query that finds nothing delivers nothing. */
int sensor_recorder_read(sensor_type_e type, sensor_recorder_query_h query,
                         sensor_recorder_data_cb callback, void* user_data);
int sensor_recorder_data_get_time(sensor_recorder_data_h data, time_t* start_time,
                                  time_t* end_time);
int sensor_recorder_data_get_double(sensor_recorder_data_h data, sensor_recorder_data_e attribute,
                                    double* value);

#ifdef __cplusplus
}
#endif

#endif
