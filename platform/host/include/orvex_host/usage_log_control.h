/* Control interface of the host usage-log client (tests and the tool only). */
#ifndef ORVEX_HOST_USAGE_LOG_CONTROL_H
#define ORVEX_HOST_USAGE_LOG_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/* Inserts kept in the store, oldest first. */
int orvex_host_usage_log_count(void);
/* The URI of insert i (a new string), and its time in seconds since the epoch; NULL past the end.
 */
char* orvex_host_usage_log_uri(int i, long long* time);
/* The fields of insert i, "key=value" lines in the order they were added (a new string). */
char* orvex_host_usage_log_fields(int i);
/* Client handles that exist now. */
int orvex_host_usage_log_open_clients(void);

#ifdef __cplusplus
}
#endif

#endif
