/* Key storage: secrets (API keys) kept by the platform under aliases. */
#ifndef PLATFORM_KEY_STORAGE_H
#define PLATFORM_KEY_STORAGE_H

#include <platform/platform_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    KEY_STORAGE_ERROR_NONE = PLATFORM_ERROR_NONE,
    KEY_STORAGE_ERROR_INVALID_PARAMETER = PLATFORM_ERROR_INVALID_PARAMETER,
    KEY_STORAGE_ERROR_OUT_OF_MEMORY = PLATFORM_ERROR_OUT_OF_MEMORY,
    KEY_STORAGE_ERROR_PERMISSION_DENIED = PLATFORM_ERROR_PERMISSION_DENIED,
    KEY_STORAGE_ERROR_IO_ERROR = PLATFORM_ERROR_IO_ERROR,
    KEY_STORAGE_ERROR_NO_SUCH_ALIAS = -0x01FA0001,
} key_storage_error_e;

/*
 * Hands out a newly allocated copy of the secret stored under alias in *data (free it with free())
 * and returns 0, or returns a negative error and leaves *data alone.
 */
int key_storage_get(const char* alias, char** data);

#ifdef __cplusplus
}
#endif

#endif
