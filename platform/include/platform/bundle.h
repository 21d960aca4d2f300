/* Bundles: small dictionaries of string entries passed between applications. */
#ifndef PLATFORM_BUNDLE_H
#define PLATFORM_BUNDLE_H

#include <platform/platform_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _bundle_t bundle;

typedef enum {
    BUNDLE_ERROR_NONE = PLATFORM_ERROR_NONE,
    BUNDLE_ERROR_OUT_OF_MEMORY = PLATFORM_ERROR_OUT_OF_MEMORY,
    BUNDLE_ERROR_INVALID_PARAMETER = PLATFORM_ERROR_INVALID_PARAMETER,
    BUNDLE_ERROR_KEY_NOT_AVAILABLE = -ENOKEY,
    BUNDLE_ERROR_KEY_EXISTS = -EEXIST,
} bundle_error_e;

typedef void (*bundle_iterator_t)(const char* key, const char* val, void* data);

bundle* bundle_create(void);
int bundle_free(bundle* b);
bundle* bundle_dup(bundle* b_from);
/* Adds a string entry; an existing key is refused with BUNDLE_ERROR_KEY_EXISTS. */
int bundle_add_str(bundle* b, const char* key, const char* str);
/* *str points into the bundle and stays valid until the entry or the bundle goes. */
int bundle_get_str(bundle* b, const char* key, char** str);
int bundle_del(bundle* b, const char* key);
int bundle_get_count(bundle* b);
/* Calls iter for every string entry in the order the entries were added. */
void bundle_iterate(bundle* b, bundle_iterator_t iter, void* data);

#ifdef __cplusplus
}
#endif

#endif
