// Test-side hooks on libcurl. A test executable that uses anything from this header defines a few
// libcurl entry points itself (curl_easy_init, curl_easy_setopt, curl_multi_init,
// curl_multi_add_handle); the library's calls resolve to them, and they pass straight through to
// libcurl unless a test arranges otherwise. That is how tests reach the library's libcurl failure
// paths, see which options it set, and let it verify the local HTTPS servers without changing the
// CA file the library is built with.
#ifndef ORVEX_TEST_CURL_HOOKS_H
#define ORVEX_TEST_CURL_HOOKS_H

#include <string>
#include <vector>

namespace orvex_test {

struct CurlOptionCall {
    void* handle;
    int option;  // the CURLoption
    // A long option's value in decimal, the text of URL, PROXY, CAINFO and REDIR_PROTOCOLS_STR;
    // empty for other pointers.
    std::string value;
};

// Replaces every CURLOPT_CAINFO the library sets with `path` (an empty path stops replacing).
void curlOverrideCaFile(const std::string& path);

// Rewrites every CURLOPT_URL that starts with `from` (for example "https://api.weather.com") to
// start with `to` (for example a local server's "https://localhost:PORT") instead, so that requests
// to the weather services reach a local server; TLS is still verified, against the host in `to`.
void curlRedirect(const std::string& from, const std::string& to);

// Makes the next `count` calls of a hooked function fail: curl_easy_init and curl_multi_init
// return NULL, the others return `code`.
void curlFailNext(const std::string& function, int count, int code = 1);

// Options set through curl_easy_setopt since the last curlHooksReset(), in call order.
std::vector<CurlOptionCall> curlOptionCalls();

// Drops faults, the recorded options and the CA override.
void curlHooksReset();

// For the duration of a test: trust the local HTTPS servers' CA, and reset the hooks on exit.
class TrustTestCa {
public:
    TrustTestCa();
    ~TrustTestCa();
};

}  // namespace orvex_test

#endif
