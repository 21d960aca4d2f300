// Answers a hostile server sends: bodies that never end or decompress to a gigabyte, redirects to
// other schemes or in a loop, broken answers and silence. Served by TestHttpServer; none of them is
// held in memory whole.
#ifndef ORVEX_TEST_HOSTILE_ROUTES_H
#define ORVEX_TEST_HOSTILE_ROUTES_H

#include <cstdint>
#include <string>

#include "TestHttpServer.h"

namespace orvex_test {
namespace hostile {

HttpRoute zeros(uint64_t bytes);                  // zero bytes with their Content-Length
HttpRoute endless();                              // chunked zero bytes that never end
HttpRoute gzipBomb();                             // gzip of endless zeros: about 1 KiB per MiB
HttpRoute redirect(const std::string& location);  // 302 to location
HttpRoute raw(const std::string& bytes);          // these bytes, then close (empty: close at once)
HttpRoute silent();                               // no answer until released

}  // namespace hostile
}  // namespace orvex_test

#endif
