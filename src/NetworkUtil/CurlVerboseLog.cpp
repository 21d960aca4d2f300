// Redaction of libcurl's verbose lines before they reach the platform log.
#include "CurlVerboseLog.h"

#include <cctype>
#include <cstring>

#include "OrvexLog.h"

namespace orvex_net {
namespace {

bool startsWithNoCase(const char* text, size_t length, const char* prefix) {
    for (size_t i = 0; prefix[i]; ++i) {
        if (i >= length || std::tolower(static_cast<unsigned char>(text[i])) !=
                               std::tolower(static_cast<unsigned char>(prefix[i])))
            return false;
    }
    return true;
}

}  // namespace

// Keys travel in the request line and in redirect targets, credentials in Authorization headers.
bool redactSecrets(const char* line, size_t length, std::string& out) {
    static const char* const kCredentialHeaders[] = {"Authorization:", "Proxy-Authorization:"};
    for (const char* header : kCredentialHeaders) {
        if (startsWithNoCase(line, length, header)) {
            out = std::string(header) + " <redacted>";
            return true;
        }
    }
    static const char kKey[] = "apikey=";
    constexpr size_t kKeyLength = sizeof kKey - 1;
    bool redacted = false;
    size_t copied = 0;
    for (size_t pos = 0; pos < length; ++pos) {
        if ((line[pos] != '?' && line[pos] != '&') ||
            !startsWithNoCase(line + pos + 1, length - pos - 1, kKey))
            continue;
        size_t start = pos + 1 + kKeyLength;
        size_t end = start;
        while (end < length && !strchr("&# \"'\r\n", line[end])) ++end;
        if (!redacted) out.clear();
        out.append(line + copied, start - copied).append("<redacted>");
        copied = end;
        redacted = true;
        pos = end - 1;
    }
    if (redacted) out.append(line + copied, length - copied);
    return redacted;
}

int curlVerboseToLog(CURL*, curl_infotype type, char* data, size_t size, void*) {
    const char* direction;
    switch (type) {
        case CURLINFO_TEXT:
            direction = "* ";
            break;
        case CURLINFO_HEADER_IN:
            direction = "< ";
            break;
        case CURLINFO_HEADER_OUT:
            direction = "> ";
            break;
        default:  // bodies and TLS records: a line per chunk would cost more than it tells
            return 0;
    }
    // Split in place: libcurl hands over whole header blocks, and most lines are logged as they
    // stand.
    std::string redacted;
    const char* end = data + size;
    for (const char* line = data; line < end;) {
        const char* newline = static_cast<const char*>(memchr(line, '\n', end - line));
        const char* lineEnd = newline ? newline : end;
        size_t length = static_cast<size_t>(lineEnd - line);
        if (length && line[length - 1] == '\r') --length;
        if (length) {
            if (redactSecrets(line, length, redacted))
                ORVEX_LOGI("%s%s", direction, redacted.c_str());
            else
                ORVEX_LOGI("%s%.*s", direction, static_cast<int>(length), line);
        }
        line = lineEnd + 1;
    }
    return 0;
}

}  // namespace orvex_net
