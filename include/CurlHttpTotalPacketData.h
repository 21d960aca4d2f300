// The body of a response as it grows, chunk by chunk, in the engine's write callback.
#ifndef CURL_HTTP_TOTAL_PACKET_DATA_H
#define CURL_HTTP_TOTAL_PACKET_DATA_H

#include <cstdint>

#include "IHttpPacketData.h"

/**
 * @brief The body of a response as it arrives, grown chunk by chunk by the engine.
 *
 * Buffer holds Length bytes and is not NUL-terminated; it is null while nothing has arrived.
 */
class CurlHttpTotalPacketData : public IHttpPacketData {
public:
    CurlHttpTotalPacketData() : Reserved(0), SubBuffer(nullptr), Length(0), Buffer(nullptr) {}
    virtual ~CurlHttpTotalPacketData() {
        if (SubBuffer) delete[] SubBuffer;
        if (Buffer) delete[] Buffer;
    }
    CurlHttpTotalPacketData(const CurlHttpTotalPacketData&) = delete;
    CurlHttpTotalPacketData& operator=(const CurlHttpTotalPacketData&) = delete;

    /** @brief Not used yet; always zero. */
    int32_t Reserved;
    /** @brief Not used yet; always null (released like Buffer should it ever be filled). */
    unsigned char* SubBuffer;
    /** @brief Body bytes received so far. */
    int32_t Length;
    /** @brief The body (array new); null while empty. */
    unsigned char* Buffer;
};

#endif
