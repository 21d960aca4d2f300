/* System settings (key-value). */
#ifndef PLATFORM_VCONF_H
#define PLATFORM_VCONF_H

#ifdef __cplusplus
extern "C" {
#endif

#define VCONF_OK 0
#define VCONF_ERROR (-1)

/* Returns VCONF_OK and fills *val, or VCONF_ERROR. */
int vconf_get_int(const char* in_key, int* val);
/* Returns a newly allocated string the caller frees, or NULL when the key has no text value. */
char* vconf_get_str(const char* in_key);

#ifdef __cplusplus
}
#endif

#endif
