/* Provisioning of the host key storage (tests and the tool only). Values are never printed. */
#ifndef ORVEX_HOST_KEY_STORAGE_CONTROL_H
#define ORVEX_HOST_KEY_STORAGE_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/* Stores value under alias in keys.db (0600) in the data directory; NULL removes the alias. */
int orvex_host_key_set(const char* alias, const char* value);
/* The aliases stored, one per line, sorted (a new string); NULL when the store cannot be read. */
char* orvex_host_key_aliases(void);
/*
 * Why keys.db cannot be used now ("<path> is corrupt", "<path> is readable by others; refused",
 * ...) or why its last write failed; NULL when it can, or when there is none yet. Owned as
 * control.h says of failure texts.
 */
const char* orvex_host_key_storage_problem(void);

#ifdef __cplusplus
}
#endif

#endif
