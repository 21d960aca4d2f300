// Bundles: ordered string dictionaries.
#include "platform/bundle.h"

#include <atomic>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "core/host_internal.h"
#include "orvex_host/control.h"

namespace {
std::atomic<int> g_live{0};
}

struct _bundle_t {
    _bundle_t() { ++g_live; }
    _bundle_t(const _bundle_t& other) : entries(other.entries) { ++g_live; }
    ~_bundle_t() { --g_live; }

    std::vector<std::pair<std::string, std::string>> entries;

    std::vector<std::pair<std::string, std::string>>::iterator find(const char* key) {
        for (auto it = entries.begin(); it != entries.end(); ++it)
            if (it->first == key) return it;
        return entries.end();
    }
};

extern "C" bundle* bundle_create(void) {
    int code;
    if (orvex_host::fault("bundle_create", &code)) return nullptr;
    return new (std::nothrow) _bundle_t();
}

extern "C" int bundle_free(bundle* b) {
    if (!b) return BUNDLE_ERROR_INVALID_PARAMETER;
    delete b;
    return BUNDLE_ERROR_NONE;
}

extern "C" bundle* bundle_dup(bundle* b_from) {
    if (!b_from) return nullptr;
    return new (std::nothrow) _bundle_t(*b_from);
}

extern "C" int bundle_add_str(bundle* b, const char* key, const char* str) {
    ORVEX_HOST_FAULT_RETURN("bundle_add_str");
    if (!b || !key || !*key || !str) return BUNDLE_ERROR_INVALID_PARAMETER;
    if (b->find(key) != b->entries.end()) return BUNDLE_ERROR_KEY_EXISTS;
    b->entries.emplace_back(key, str);
    return BUNDLE_ERROR_NONE;
}

extern "C" int bundle_get_str(bundle* b, const char* key, char** str) {
    ORVEX_HOST_FAULT_RETURN("bundle_get_str");
    if (!b || !key) return BUNDLE_ERROR_INVALID_PARAMETER;
    auto it = b->find(key);
    if (it == b->entries.end()) return BUNDLE_ERROR_KEY_NOT_AVAILABLE;
    if (str) *str = it->second.data();
    return BUNDLE_ERROR_NONE;
}

extern "C" int bundle_del(bundle* b, const char* key) {
    if (!b || !key) return BUNDLE_ERROR_INVALID_PARAMETER;
    auto it = b->find(key);
    if (it == b->entries.end()) return BUNDLE_ERROR_KEY_NOT_AVAILABLE;
    b->entries.erase(it);
    return BUNDLE_ERROR_NONE;
}

extern "C" int bundle_get_count(bundle* b) { return b ? static_cast<int>(b->entries.size()) : 0; }

extern "C" void bundle_iterate(bundle* b, bundle_iterator_t iter, void* data) {
    if (!b || !iter) return;
    for (const auto& e : b->entries) iter(e.first.c_str(), e.second.c_str(), data);
}

extern "C" int orvex_host_bundle_count(void) { return g_live.load(); }
