/* Location manager: position from the platform's location methods. */
#ifndef PLATFORM_LOCATION_MANAGER_H
#define PLATFORM_LOCATION_MANAGER_H

#include <stdbool.h>
#include <time.h>

#include <platform/platform_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    LOCATIONS_ERROR_NONE = PLATFORM_ERROR_NONE,
    LOCATIONS_ERROR_OUT_OF_MEMORY = PLATFORM_ERROR_OUT_OF_MEMORY,
    LOCATIONS_ERROR_INVALID_PARAMETER = PLATFORM_ERROR_INVALID_PARAMETER,
    LOCATIONS_ERROR_ACCESSIBILITY_NOT_ALLOWED = PLATFORM_ERROR_PERMISSION_DENIED,
    LOCATIONS_ERROR_NOT_SUPPORTED = -1073741822, /* 0xC0000002 */
    LOCATIONS_ERROR_INCORRECT_METHOD = -0x02C20001,
    LOCATIONS_ERROR_NETWORK_FAILED = -0x02C20002,
    LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE = -0x02C20003,
    LOCATIONS_ERROR_GPS_SETTING_OFF = -0x02C20004,
} location_error_e;

typedef enum {
    LOCATIONS_METHOD_NONE = -1,
    LOCATIONS_METHOD_HYBRID = 0,
    LOCATIONS_METHOD_GPS = 1,
    LOCATIONS_METHOD_WPS = 2,
} location_method_e;

typedef enum {
    LOCATIONS_SERVICE_DISABLED = 0,
    LOCATIONS_SERVICE_ENABLED = 1,
} location_service_state_e;

typedef enum {
    LOCATIONS_DEVICE_UNKNOWN = 0,
    LOCATIONS_DEVICE_WATCH = 1,
} location_device_e;

typedef enum {
    LOCATIONS_ENABLE_METHOD_RESULT_REFUSED = 0,
    LOCATIONS_ENABLE_METHOD_RESULT_ACCEPTED = 1,
} location_enable_method_result_e;

/* How closely the position is known, from a country down to a point. */
typedef enum {
    LOCATIONS_ACCURACY_NONE = 0,
    LOCATIONS_ACCURACY_COUNTRY,
    LOCATIONS_ACCURACY_REGION,
    LOCATIONS_ACCURACY_POSTALCODE,
    LOCATIONS_ACCURACY_STREET,
    LOCATIONS_ACCURACY_DETAILED,
} location_accuracy_level_e;

typedef struct location_manager_s* location_manager_h;

typedef void (*location_service_state_changed_cb)(location_service_state_e state, void* user_data);
typedef void (*location_setting_changed_cb)(location_method_e method, bool enable, void* user_data);
typedef void (*location_enabling_method_result_cb)(location_method_e method,
                                                   location_device_e device,
                                                   location_enable_method_result_e result,
                                                   void* user_data);
typedef void (*location_position_updated_cb)(double latitude, double longitude, double altitude,
                                             time_t timestamp, void* user_data);

bool location_manager_is_supported_method(location_method_e method);
int location_manager_is_enabled_method(location_method_e method, bool* enable);
/* Asks for the method to be switched on or off; the outcome arrives as an enabling result. */
int location_manager_enable_method(location_method_e method, bool enable);
int location_manager_set_enabling_method_result_cb(location_method_e method,
                                                   location_enabling_method_result_cb callback,
                                                   void* user_data);
int location_manager_unset_enabling_method_result_cb(location_method_e method);
int location_manager_set_setting_changed_cb(location_method_e method,
                                            location_setting_changed_cb callback, void* user_data);
int location_manager_unset_setting_changed_cb(location_method_e method);

int location_manager_create(location_method_e method, location_manager_h* manager);
int location_manager_destroy(location_manager_h manager);
int location_manager_start(location_manager_h manager);
int location_manager_stop(location_manager_h manager);
int location_manager_set_service_state_changed_cb(location_manager_h manager,
                                                  location_service_state_changed_cb callback,
                                                  void* user_data);
int location_manager_unset_service_state_changed_cb(location_manager_h manager);
int location_manager_set_position_updated_cb(location_manager_h manager,
                                             location_position_updated_cb callback, int interval,
                                             void* user_data);
int location_manager_unset_position_updated_cb(location_manager_h manager);
/* The position now; fails with LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE while not started. */
int location_manager_get_position(location_manager_h manager, double* altitude, double* latitude,
                                  double* longitude, time_t* timestamp);
/* The last position any manager obtained. */
int location_manager_get_last_position(location_manager_h manager, double* altitude,
                                       double* latitude, double* longitude, time_t* timestamp);
/*
 * The altitude is NAN where the position has none (a fix without height, a 2D fix). The accuracy
 * and velocity below belong to the position get_position gives now and fail as it does; a figure
 * the source does not report is NAN.
 */
/* Horizontal and vertical error in metres. */
int location_manager_get_accuracy(location_manager_h manager, location_accuracy_level_e* level,
                                  double* horizontal, double* vertical);
/* Climb in m/s (positive up), direction of travel in degrees from true north, speed in m/s. */
int location_manager_get_velocity(location_manager_h manager, double* climb, double* direction,
                                  double* speed);

#ifdef __cplusplus
}
#endif

#endif
