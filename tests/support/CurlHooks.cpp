// libcurl calls wrapped for the tests: the test CA, local URLs, recorded options, failures.
#define CURL_DISABLE_TYPECHECK 1
#include "CurlHooks.h"

#include <curl/curl.h>
#include <dlfcn.h>

#include <cstdarg>
#include <map>
#include <mutex>
#include <utility>

#include "TestHttpServer.h"

namespace orvex_test {
namespace {

std::mutex g_mutex;
std::string g_caFile;
std::vector<std::pair<std::string, std::string>> g_redirects;
std::map<std::string, std::pair<int, int>> g_failures;  // function -> (remaining, code)
std::vector<CurlOptionCall> g_calls;

// The code of an armed fault of the function, used up by one call; none: false.
bool failing(const std::string& function, int* code) {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = g_failures.find(function);
    if (it == g_failures.end()) return false;
    *code = it->second.second;
    if (--it->second.first <= 0) g_failures.erase(it);
    return true;
}

template <typename Fn>
Fn real(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void curlOverrideCaFile(const std::string& path) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_caFile = path;
}

void curlFailNext(const std::string& function, int count, int code) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_failures[function] = {count, code};
}

std::vector<CurlOptionCall> curlOptionCalls() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_calls;
}

void curlRedirect(const std::string& from, const std::string& to) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_redirects.emplace_back(from, to);
}

void curlHooksReset() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_redirects.clear();
    g_caFile.clear();
    g_failures.clear();
    g_calls.clear();
}

TrustTestCa::TrustTestCa() { curlOverrideCaFile(TestHttpServer::caFile()); }
TrustTestCa::~TrustTestCa() { curlHooksReset(); }

}  // namespace orvex_test

using orvex_test::failing;

extern "C" {

CURL* curl_easy_init(void) {
    int code;
    if (failing("curl_easy_init", &code)) return nullptr;
    static auto fn = orvex_test::real<CURL* (*)(void)>("curl_easy_init");
    return fn();
}

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    va_list ap;
    va_start(ap, option);
    // Every option the library sets takes one word: a long or a pointer.
    void* value = va_arg(ap, void*);
    va_end(ap);
    const bool text = option == CURLOPT_URL || option == CURLOPT_PROXY ||
                      option == CURLOPT_CAINFO || option == CURLOPT_REDIR_PROTOCOLS_STR;
    {
        std::lock_guard<std::mutex> lock(orvex_test::g_mutex);
        orvex_test::g_calls.push_back({handle, option,
                                       text && value ? static_cast<const char*>(value)
                                       : option < CURLOPTTYPE_OBJECTPOINT
                                           ? std::to_string(reinterpret_cast<long>(value))
                                           : ""});
        // libcurl copies strings: these copies only have to outlive the call.
        static thread_local std::string replaced;
        if (option == CURLOPT_URL && value) {
            std::string url = static_cast<const char*>(value);
            for (const auto& [from, to] : orvex_test::g_redirects) {
                if (url.rfind(from, 0) == 0) {
                    replaced = to + url.substr(from.size());
                    value = replaced.data();
                    break;
                }
            }
        }
        if (option == CURLOPT_CAINFO && !orvex_test::g_caFile.empty()) {
            replaced = orvex_test::g_caFile;
            value = replaced.data();
        }
    }
    static auto fn = orvex_test::real<CURLcode (*)(CURL*, CURLoption, ...)>("curl_easy_setopt");
    return fn(handle, option, value);
}

CURLM* curl_multi_init(void) {
    int code;
    if (failing("curl_multi_init", &code)) return nullptr;
    static auto fn = orvex_test::real<CURLM* (*)(void)>("curl_multi_init");
    return fn();
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy) {
    int code;
    if (failing("curl_multi_add_handle", &code)) return static_cast<CURLMcode>(code);
    static auto fn = orvex_test::real<CURLMcode (*)(CURLM*, CURL*)>("curl_multi_add_handle");
    return fn(multi, easy);
}

}  // extern "C"
