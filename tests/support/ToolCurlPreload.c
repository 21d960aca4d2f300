/* Preloaded into the orvex tool by its tests (LD_PRELOAD): the tool is a process of its own, so the
 * in-process curl hooks cannot reach it. Points URLs that start with $ORVEX_TEST_URL_FROM at
 * $ORVEX_TEST_URL_TO instead and verifies TLS against $ORVEX_TEST_CA_FILE. */
#define _GNU_SOURCE
#define CURL_DISABLE_TYPECHECK 1
#include <curl/curl.h>
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    typedef CURLcode (*setopt_fn)(CURL*, CURLoption, ...);
    static setopt_fn real_setopt;
    if (!real_setopt) real_setopt = (setopt_fn)dlsym(RTLD_NEXT, "curl_easy_setopt");
    va_list ap;
    va_start(ap, option);
    /* Every option value the library passes is one word: a long, a pointer or a curl_off_t. */
    void* value = va_arg(ap, void*);
    va_end(ap);
    const char* from = getenv("ORVEX_TEST_URL_FROM");
    const char* to = getenv("ORVEX_TEST_URL_TO");
    char url[4096]; /* libcurl keeps a copy */
    if (option == CURLOPT_URL && value && from && to && strncmp(value, from, strlen(from)) == 0) {
        snprintf(url, sizeof url, "%s%s", to, (const char*)value + strlen(from));
        value = url;
    }
    if (option == CURLOPT_CAINFO && getenv("ORVEX_TEST_CA_FILE"))
        value = getenv("ORVEX_TEST_CA_FILE");
    return real_setopt(handle, option, value);
}
