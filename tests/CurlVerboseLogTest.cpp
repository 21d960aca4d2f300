// The redaction of libcurl's verbose lines, on its own: what reaches the log of each kind of line.
#include <string>
#include <vector>

#include "HostFixture.h"
#include "NetworkUtil/CurlVerboseLog.h"

using namespace orvex_test;

class CurlVerboseLogTest : public HostTest {};

TEST_F(CurlVerboseLogTest, KeysAndCredentialsAreRedactedWhereverTheyStand) {
    struct Row {
        const char* line;
        const char* logged;  // nullptr: the line carries no secret and is logged as it is
    };
    const Row rows[] = {
        {"GET /v1?q=1 HTTP/1.1", nullptr},
        {"GET /v1?apikey=K1&details=true&APIKEY=K2#frag HTTP/1.1",
         "GET /v1?apikey=<redacted>&details=true&APIKEY=<redacted>#frag HTTP/1.1"},
        {"Location: /v2?lang=en&apiKey=K3", "Location: /v2?lang=en&apiKey=<redacted>"},
        {"X-Next: /v3?apikey=", "X-Next: /v3?apikey=<redacted>"},
        {"X: a?apikey=K4 b&apikey='K5'", "X: a?apikey=<redacted> b&apikey=<redacted>'K5'"},
        {"X: notapikey=K6 and ?apikeys=K7", nullptr},
        {"Authorization: Bearer T1", "Authorization: <redacted>"},
        {"proxy-authorization: Basic T2", "Proxy-Authorization: <redacted>"},
        {"Authorizatio", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        std::string out = "untouched";
        bool redacted = orvex_net::redactSecrets(row.line, strlen(row.line), out);
        EXPECT_EQ(row.logged != nullptr, redacted);
        EXPECT_EQ(row.logged ? row.logged : "untouched", out);
    }
}

TEST_F(CurlVerboseLogTest, HeaderBlocksAreLoggedLineByLineAndBodiesNotAtAll) {
    std::string block = "HTTP/1.1 200 OK\r\nLocation: /x?apikey=SECRET\r\n\r\nX-Last: 1";
    orvex_net::curlVerboseToLog(nullptr, CURLINFO_HEADER_IN, block.data(), block.size(), nullptr);
    std::string out = "GET / HTTP/1.1\n";
    orvex_net::curlVerboseToLog(nullptr, CURLINFO_HEADER_OUT, out.data(), out.size(), nullptr);
    std::string text = "Connected";
    orvex_net::curlVerboseToLog(nullptr, CURLINFO_TEXT, text.data(), text.size(), nullptr);
    std::string body = "secret body";
    orvex_net::curlVerboseToLog(nullptr, CURLINFO_DATA_IN, body.data(), body.size(), nullptr);
    orvex_net::curlVerboseToLog(nullptr, CURLINFO_SSL_DATA_OUT, body.data(), body.size(), nullptr);
    EXPECT_EQ((Lines{"< HTTP/1.1 200 OK", "< Location: /x?apikey=<redacted>", "< X-Last: 1",
                     "> GET / HTTP/1.1", "* Connected"}),
              infos());
}
