// The longest time the main loop went without running its sources, as the benchmarks measure it.
#ifndef ORVEX_BENCH_BLOCK_METER_H
#define ORVEX_BENCH_BLOCK_METER_H

#include <glib.h>

namespace orvex_bench {

inline double nowMs() { return g_get_monotonic_time() / 1000.0; }

// The longest gap between two ticks of a 1 ms timer on the main loop.
struct BlockMeter {
    double last = nowMs(), longest = 0;
    guint source = g_timeout_add(1, &BlockMeter::tick, this);
    static gboolean tick(gpointer data) {
        auto* m = static_cast<BlockMeter*>(data);
        double t = nowMs();
        if (t - m->last > m->longest) m->longest = t - m->last;
        m->last = t;
        return G_SOURCE_CONTINUE;
    }
    ~BlockMeter() { g_source_remove(source); }
};

}  // namespace orvex_bench

#endif
