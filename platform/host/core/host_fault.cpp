// Fault injection: named platform functions made to fail on demand.
#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "core/host_internal.h"
#include "orvex_host/control.h"

namespace orvex_host {
namespace {

struct Fault {
    int skip;       // calls that still succeed before the failures start
    int remaining;  // -1: until cleared
    int code;
};

std::mutex g_faultMutex;
std::map<std::string, Fault> g_faults;
// Every platform call asks whether it must fail; almost always nothing is armed, and the answer
// then needs neither the lock nor a lookup.
std::atomic<bool> g_faultsArmed{false};

}  // namespace

bool fault(const char* function, int* code) {
    if (!g_faultsArmed.load(std::memory_order_acquire)) return false;
    std::lock_guard<std::mutex> lock(g_faultMutex);
    auto it = g_faults.find(function);
    if (it == g_faults.end()) return false;
    if (it->second.skip > 0) {
        --it->second.skip;
        return false;
    }
    *code = it->second.code;
    if (it->second.remaining > 0 && --it->second.remaining == 0) {
        g_faults.erase(it);
        g_faultsArmed.store(!g_faults.empty(), std::memory_order_release);
    }
    return true;
}

}  // namespace orvex_host

using orvex_host::g_faultMutex;
using orvex_host::g_faults;
using orvex_host::g_faultsArmed;

extern "C" void orvex_host_fail_next(const char* function, int count, int code) {
    orvex_host_fail_after(function, 0, count, code);
}

extern "C" void orvex_host_fail_after(const char* function, int skip, int count, int code) {
    if (!function || count == 0) return;
    std::lock_guard<std::mutex> lock(g_faultMutex);
    g_faults[function] = orvex_host::Fault{skip > 0 ? skip : 0, count < 0 ? -1 : count, code};
    g_faultsArmed.store(true, std::memory_order_release);
}

extern "C" void orvex_host_clear_faults(void) {
    std::lock_guard<std::mutex> lock(g_faultMutex);
    g_faults.clear();
    g_faultsArmed.store(false, std::memory_order_release);
}
