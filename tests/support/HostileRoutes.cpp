// Answers no honest server gives: a gzip bomb, a huge body, an endless one, bad redirects.
#include "HostileRoutes.h"

#include <gio/gio.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace orvex_test {
namespace hostile {

HttpRoute zeros(uint64_t bytes) {
    HttpRoute r;
    r.streamLength = bytes;
    r.makeStream = [bytes] {
        auto left = std::make_shared<uint64_t>(bytes);
        return [left](char* buf, size_t max) {
            size_t n = static_cast<size_t>(std::min<uint64_t>(*left, max));
            memset(buf, 0, n);
            *left -= n;
            return n;
        };
    };
    return r;
}

HttpRoute endless() {
    HttpRoute r;
    r.makeStream = [] {
        return [](char* buf, size_t max) {
            memset(buf, 0, max);
            return max;
        };
    };
    return r;
}

HttpRoute gzipBomb() {
    HttpRoute r;
    r.headers = {{"Content-Encoding", "gzip"}};
    r.makeStream = [] {
        std::shared_ptr<GZlibCompressor> z(g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP, 9),
                                           g_object_unref);
        auto input = std::make_shared<std::string>(1 << 20, '\0');
        return [z, input](char* buf, size_t max) {
            // The compressor keeps most of each MiB to itself: feed it until it hands some out.
            gsize read = 0, written = 0;
            while (written == 0) {
                g_converter_convert(G_CONVERTER(z.get()), input->data(), input->size(), buf, max,
                                    G_CONVERTER_NO_FLAGS, &read, &written, nullptr);
            }
            return static_cast<size_t>(written);
        };
    };
    return r;
}

HttpRoute redirect(const std::string& location) {
    HttpRoute r;
    r.status = 302;
    r.headers = {{"Location", location}};
    return r;
}

HttpRoute raw(const std::string& bytes) {
    HttpRoute r;
    r.raw = bytes;
    return r;
}

HttpRoute silent() {
    HttpRoute r;
    r.neverAnswer = true;
    return r;
}

}  // namespace hostile
}  // namespace orvex_test
