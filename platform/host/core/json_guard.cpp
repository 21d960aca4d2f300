// The nesting limit of JSON from outside, checked without parsing.
#include "core/json_guard.h"

bool orvex_host_json_depth_ok(const char* data, size_t length) {
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < length; ++i) {
        const char c = data[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > ORVEX_HOST_JSON_MAX_DEPTH) return false;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return true;
}
