/* Per-application preference store: typed values under string keys, kept across runs. */
#ifndef PLATFORM_APP_PREFERENCE_H
#define PLATFORM_APP_PREFERENCE_H

#include <stdbool.h>

#include <platform/platform_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    PREFERENCE_ERROR_NONE = PLATFORM_ERROR_NONE,
    PREFERENCE_ERROR_INVALID_PARAMETER = PLATFORM_ERROR_INVALID_PARAMETER,
    PREFERENCE_ERROR_OUT_OF_MEMORY = PLATFORM_ERROR_OUT_OF_MEMORY,
    PREFERENCE_ERROR_NO_KEY = -0x01100030,
    PREFERENCE_ERROR_IO_ERROR = PLATFORM_ERROR_IO_ERROR,
    PREFERENCE_ERROR_TYPE_MISMATCH = -0x01100031,
} preference_error_e;

int preference_set_int(const char* key, int value);
int preference_get_int(const char* key, int* value);
int preference_set_double(const char* key, double value);
int preference_get_double(const char* key, double* value);
int preference_set_string(const char* key, const char* value);
/* On success *value is a newly allocated copy that the caller frees with free(). */
int preference_get_string(const char* key, char** value);
int preference_remove(const char* key);
int preference_is_existing(const char* key, bool* existing);

#ifdef __cplusplus
}
#endif

#endif
