/* Control interface of the host's network connection service (tests and the host tool only). */
#ifndef ORVEX_HOST_CONNECTION_CONTROL_H
#define ORVEX_HOST_CONNECTION_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Makes connection_get_proxy() answer `proxy` (an empty string: no proxy) instead of the host's
 * https_proxy / HTTPS_PROXY / all_proxy environment. NULL drops the override. Not persisted;
 * orvex_host_reset() drops it too.
 */
int orvex_host_connection_set_proxy(const char* proxy);

/* Number of handles created by connection_create() and not yet destroyed. */
int orvex_host_connection_open_handles(void);

#ifdef __cplusplus
}
#endif

#endif
