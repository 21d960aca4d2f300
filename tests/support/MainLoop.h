// Drives the default GLib main context the way the application's main loop would.
#ifndef ORVEX_TEST_MAIN_LOOP_H
#define ORVEX_TEST_MAIN_LOOP_H

#include <functional>

namespace orvex_test {

// Iterates the default main context until cond() holds or timeoutMs passes; returns cond().
bool runUntil(const std::function<bool()>& cond, int timeoutMs = 5000);

// Dispatches whatever is ready now without blocking.
void drainPending();

}  // namespace orvex_test

#endif
