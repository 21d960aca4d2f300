/* The maker's usage-log client: inserts bundles of fields at a content URI. */
#ifndef PLATFORM_MARVENO_LOG_CLIENT_H
#define PLATFORM_MARVENO_LOG_CLIENT_H

#include <platform/bundle.h>
#include <platform/platform_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct marveno_log_manager_s* marveno_log_manager_h;

typedef enum {
    MARVENO_LOG_ERROR_NONE = PLATFORM_ERROR_NONE,
    MARVENO_LOG_ERROR_INVALID_PARAMETER = PLATFORM_ERROR_INVALID_PARAMETER,
    MARVENO_LOG_ERROR_OUT_OF_MEMORY = PLATFORM_ERROR_OUT_OF_MEMORY,
    MARVENO_LOG_ERROR_IO_ERROR = PLATFORM_ERROR_IO_ERROR,
    MARVENO_LOG_ERROR_PERMISSION_DENIED = PLATFORM_ERROR_PERMISSION_DENIED,
} marveno_log_error_e;

/* Called on the main loop when an insert has been stored (result 0) or not. */
typedef void (*marveno_log_insert_cb)(int request_id, int result, void* user_data);

int marveno_log_manager_create(marveno_log_manager_h* manager);
/*
 * Inserts the bundle's string fields at uri ("content://AUTHORITY/PATH"). callback may be NULL;
 * request_id, when not NULL, receives the insert's id.
 */
int marveno_log_manager_insert(marveno_log_manager_h manager, const char* uri, bundle* data,
                               marveno_log_insert_cb callback, void* user_data, int* request_id);
int marveno_log_manager_destroy(marveno_log_manager_h manager);

#ifdef __cplusplus
}
#endif

#endif
