// libcurl's verbose output routed to the platform log, with the weather services' keys and any
// credentials taken out first. Internal to the library: not part of its exported interface.
#ifndef ORVEX_CURL_VERBOSE_LOG_H
#define ORVEX_CURL_VERBOSE_LOG_H

#include <curl/curl.h>

#include <cstddef>
#include <string>

namespace orvex_net {

// Returns false, leaving `out` alone, for a line that carries no secret (the common case, logged
// without a copy); otherwise `out` is the line with each secret replaced by "<redacted>".
__attribute__((visibility("hidden"))) bool redactSecrets(const char* line, size_t length,
                                                         std::string& out);

// A CURLOPT_DEBUGFUNCTION: header and informational lines go to the log one by one, redacted;
// bodies and TLS records are not logged.
__attribute__((visibility("hidden"))) int curlVerboseToLog(CURL* handle, curl_infotype type,
                                                           char* data, size_t size, void* user);

}  // namespace orvex_net

#endif
