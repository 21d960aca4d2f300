// Runs the default main context until a condition holds or a deadline passes.
#include "MainLoop.h"

#include <glib.h>

namespace orvex_test {
namespace {

gboolean markExpired(gpointer data) {
    *static_cast<bool*>(data) = true;
    return G_SOURCE_REMOVE;
}

// A short periodic wake-up, so that a condition changed by another thread is seen promptly even
// when nothing on the context fires.
gboolean tick(gpointer) { return G_SOURCE_CONTINUE; }

}  // namespace

bool runUntil(const std::function<bool()>& cond, int timeoutMs) {
    bool expired = false;
    guint deadline = g_timeout_add(static_cast<guint>(workMs(timeoutMs)), markExpired, &expired);
    guint ticker = g_timeout_add(5, tick, nullptr);
    while (!cond() && !expired) g_main_context_iteration(nullptr, TRUE);
    g_source_remove(ticker);
    if (!expired) g_source_remove(deadline);
    return cond();
}

void drainPending() {
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

}  // namespace orvex_test
