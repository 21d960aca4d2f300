// The nesting limit every JSON text from outside passes before it is parsed.
#include <gtest/gtest.h>

#include <string>

#include "core/json_guard.h"

namespace {

std::string nested(int levels, const char* open = "[", const char* close = "]") {
    std::string text;
    for (int i = 0; i < levels; ++i) text += open;
    for (int i = 0; i < levels; ++i) text += close;
    return text;
}

TEST(JsonGuardTest, CountsOnlyTheBracketsThatNest) {
    const int limit = ORVEX_HOST_JSON_MAX_DEPTH;
    const struct {
        const char* name;
        std::string text;
        bool ok;
    } cases[] = {
        {"at the limit", nested(limit), true},
        {"one level more", nested(limit + 1), false},
        {"objects count as arrays do", nested(limit + 1, "{\"a\":", "}"), false},
        {"siblings do not add up", nested(limit) + nested(limit), true},
        {"brackets in a string", "[\"" + std::string(200, '[') + "\"]", true},
        {"an escaped quote keeps the string open", "[\"\\\"" + std::string(200, '{') + "\"]", true},
        {"stray closers do not lower the count", std::string(10, ']') + nested(limit + 1), false},
        {"a body cut short", std::string(1 << 20, '['), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.ok, orvex_host_json_depth_ok(c.text.data(), c.text.size()));
    }
}

}  // namespace
