// Drives the default GLib main context the way the application's main loop would.
#ifndef ORVEX_TEST_MAIN_LOOP_H
#define ORVEX_TEST_MAIN_LOOP_H

#include <functional>

namespace orvex_test {

// A time the work under test really takes (a TLS handshake, a process starting) in milliseconds,
// stretched where the suite runs under emulation, which does that work several times slower.
// Deadlines of the waits below are stretched the same way.
constexpr int workMs(int ms) { return ms * ORVEX_TEST_TIME_SCALE; }

// Iterates the default main context until cond() holds or workMs(timeoutMs) passes; returns
// cond().
bool runUntil(const std::function<bool()>& cond, int timeoutMs = 5000);

// Dispatches whatever is ready now without blocking.
void drainPending();

}  // namespace orvex_test

#endif
