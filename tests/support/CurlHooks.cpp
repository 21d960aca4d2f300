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

bool take(std::map<std::string, std::pair<int, int>>& table, const std::string& key, int* code) {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = table.find(key);
    if (it == table.end()) return false;
    *code = it->second.second;
    if (--it->second.first <= 0) table.erase(it);
    return true;
}

template <typename Fn>
Fn real(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

bool isStringOption(int option) {
    switch (option) {
        case CURLOPT_URL:
        case CURLOPT_PROXY:
        case CURLOPT_SSL_CIPHER_LIST:
        case CURLOPT_POSTFIELDS:
        case CURLOPT_ACCEPT_ENCODING:
        case CURLOPT_CAINFO:
        case CURLOPT_REDIR_PROTOCOLS_STR:
            return true;
        default:
            return false;
    }
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

std::vector<int> curlOptionsOf(void* handle) {
    std::vector<int> out;
    for (const auto& c : curlOptionCalls())
        if (c.handle == handle) out.push_back(c.option);
    return out;
}

void curlRedirect(const std::string& from, const std::string& to) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (from.empty())
        g_redirects.clear();
    else
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

using orvex_test::take;

extern "C" {

CURL* curl_easy_init(void) {
    int code;
    if (take(orvex_test::g_failures, "curl_easy_init", &code)) return nullptr;
    static auto fn = orvex_test::real<CURL* (*)(void)>("curl_easy_init");
    return fn();
}

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    va_list ap;
    va_start(ap, option);
    orvex_test::CurlOptionCall call{handle, option, 0, std::string(), false};
    long number = 0;
    void* pointer = nullptr;
    curl_off_t offset = 0;
    bool isLong = option < CURLOPTTYPE_OBJECTPOINT;
    bool isOffset = option >= CURLOPTTYPE_OFF_T && option < CURLOPTTYPE_BLOB;
    if (isLong)
        number = va_arg(ap, long);
    else if (isOffset)
        offset = va_arg(ap, curl_off_t);
    else
        pointer = va_arg(ap, void*);
    va_end(ap);

    call.number = number;
    if (orvex_test::isStringOption(option) && pointer) {
        call.text = static_cast<const char*>(pointer);
        call.hasText = true;
    }
    {
        std::lock_guard<std::mutex> lock(orvex_test::g_mutex);
        orvex_test::g_calls.push_back(call);
        if (option == CURLOPT_URL && pointer) {
            std::string url = static_cast<const char*>(pointer);
            for (const auto& [from, to] : orvex_test::g_redirects) {
                if (url.rfind(from, 0) == 0) {
                    // libcurl copies the string; this copy only has to outlive the call.
                    static thread_local std::string rewritten;
                    rewritten = to + url.substr(from.size());
                    pointer = const_cast<char*>(rewritten.c_str());
                    break;
                }
            }
        }
        if (option == CURLOPT_CAINFO && !orvex_test::g_caFile.empty()) {
            static std::string path;
            path = orvex_test::g_caFile;  // libcurl copies it
            pointer = const_cast<char*>(path.c_str());
        }
    }
    using Fn = CURLcode (*)(CURL*, CURLoption, ...);
    static auto fn = orvex_test::real<Fn>("curl_easy_setopt");
    if (isLong) return fn(handle, option, number);
    if (isOffset) return fn(handle, option, offset);
    return fn(handle, option, pointer);
}

CURLM* curl_multi_init(void) {
    int code;
    if (take(orvex_test::g_failures, "curl_multi_init", &code)) return nullptr;
    static auto fn = orvex_test::real<CURLM* (*)(void)>("curl_multi_init");
    return fn();
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy) {
    int code;
    if (take(orvex_test::g_failures, "curl_multi_add_handle", &code))
        return static_cast<CURLMcode>(code);
    static auto fn = orvex_test::real<CURLMcode (*)(CURLM*, CURL*)>("curl_multi_add_handle");
    return fn(multi, easy);
}

}  // extern "C"
