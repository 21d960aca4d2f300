// The nesting limit every JSON text from outside passes before json-glib parses it.
#ifndef ORVEX_HOST_JSON_GUARD_H
#define ORVEX_HOST_JSON_GUARD_H

#include <cstddef>

// Real answers nest a few levels deep. json-glib descends one stack frame per level, so a hostile
// text of nothing but brackets would exhaust the stack long before the parser notices anything.
constexpr int ORVEX_HOST_JSON_MAX_DEPTH = 64;

// False when the text opens more than ORVEX_HOST_JSON_MAX_DEPTH arrays or objects at once.
// Brackets inside strings do not count; the scan stops at the first level too many.
bool orvex_host_json_depth_ok(const char* data, size_t length);

#endif
