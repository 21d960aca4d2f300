/* Application control: launch requests to other applications, with extra data. */
#ifndef PLATFORM_APP_CONTROL_H
#define PLATFORM_APP_CONTROL_H

#include <platform/platform_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct app_control_s* app_control_h;

typedef enum {
    APP_CONTROL_ERROR_NONE = PLATFORM_ERROR_NONE,
    APP_CONTROL_ERROR_INVALID_PARAMETER = PLATFORM_ERROR_INVALID_PARAMETER,
    APP_CONTROL_ERROR_OUT_OF_MEMORY = PLATFORM_ERROR_OUT_OF_MEMORY,
    APP_CONTROL_ERROR_APP_NOT_FOUND = -0x01100021,
    APP_CONTROL_ERROR_KEY_NOT_FOUND = -0x01100022,
    APP_CONTROL_ERROR_LAUNCH_REJECTED = -0x01100023,
    APP_CONTROL_ERROR_LAUNCH_FAILED = -0x01100024,
} app_control_error_e;

typedef enum {
    APP_CONTROL_RESULT_SUCCEEDED = 0,
    APP_CONTROL_RESULT_FAILED = -1,
    APP_CONTROL_RESULT_CANCELED = -2,
} app_control_result_e;

typedef void (*app_control_reply_cb)(app_control_h request, app_control_h reply,
                                     app_control_result_e result, void* user_data);

int app_control_create(app_control_h* app_control);
int app_control_destroy(app_control_h app_control);
int app_control_set_app_id(app_control_h app_control, const char* app_id);
int app_control_get_app_id(app_control_h app_control, char** app_id);
/* Adds or replaces a string entry. */
int app_control_add_extra_data(app_control_h app_control, const char* key, const char* value);
/* *value is a newly allocated copy the caller frees. */
int app_control_get_extra_data(app_control_h app_control, const char* key, char** value);
/*
 * Launches the application the request names. The application receives the request on the main
 * loop, after this call has returned. Fails with APP_CONTROL_ERROR_APP_NOT_FOUND for an unknown id.
 */
int app_control_send_launch_request(app_control_h app_control, app_control_reply_cb callback,
                                    void* user_data);

#ifdef __cplusplus
}
#endif

#endif
