// The library's one way to log: every diagnostic is a single __dlog_print on the main buffer with
// the "ORVEX" tag, prefixed with the source file's base name, the function and the line.
#ifndef ORVEX_LOG_H
#define ORVEX_LOG_H

#include <platform/dlog.h>

namespace orvex {

constexpr const char* baseName(const char* path) {
    const char* base = path;
    for (const char* p = path; *p; ++p)
        if (*p == '/') base = p + 1;
    return base;
}

}  // namespace orvex

#define ORVEX_LOG_TAG "ORVEX"

#define ORVEX_LOG_AT_(prio, func, fmt, ...)                               \
    __dlog_print(LOG_ID_MAIN, (prio), ORVEX_LOG_TAG, "%s: %s(%d) > " fmt, \
                 ::orvex::baseName(__FILE__), (func), __LINE__, ##__VA_ARGS__)
#define ORVEX_LOG_(prio, fmt, ...) ORVEX_LOG_AT_(prio, __func__, fmt, ##__VA_ARGS__)

// Errors are shown red and marked critical; information green.
#define ORVEX_LOGE(fmt, ...) \
    ORVEX_LOG_(DLOG_ERROR, "\033[0;31m* Critical * " fmt "\033[0;m", ##__VA_ARGS__)
// An error reported on behalf of another function (a helper that works for it).
#define ORVEX_LOGE_IN(func, fmt, ...) \
    ORVEX_LOG_AT_(DLOG_ERROR, func, "\033[0;31m* Critical * " fmt "\033[0;m", ##__VA_ARGS__)
#define ORVEX_LOGI(fmt, ...) ORVEX_LOG_(DLOG_INFO, "\033[0;32m" fmt "\033[0;m", ##__VA_ARGS__)
#define ORVEX_LOGI_IN(func, fmt, ...) \
    ORVEX_LOG_AT_(DLOG_INFO, func, "\033[0;32m" fmt "\033[0;m", ##__VA_ARGS__)

#endif
