// Arbitrary bytes as a weather-service answer: every reader must cope without crashing, leaking
// or tripping GLib's checks.
#include <glib.h>
#include <orvex_host/control.h>
#include <platform/dlog.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "WeatherParser.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR |
                                                       G_LOG_LEVEL_WARNING));
    orvex_host_log_set_stderr_threshold(DLOG_SILENT);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Any length the parser's int can carry: deep nesting needs long bodies to show.
    if (size > static_cast<size_t>(INT_MAX)) return 0;
    std::vector<char> body(data, data + size);
    WeatherParser parser;
    parser.Parse(body.empty() ? nullptr : body.data(), static_cast<int>(body.size()));
    parser.GetLocationID();
    parser.GetWeatherData();
    parser.GetTWCWeatherData();
    parser.GetAtmPressure();
    orvex_host_log_clear();
    return 0;
}
