// A response as the curl engine reports it: status, headers, body and the request it answers.
#ifndef CURL_HTTP_RESPONSE_DATA_H
#define CURL_HTTP_RESPONSE_DATA_H

#include <memory>

#include "CurlHttpTotalPacketData.h"
#include "IHttpResponseData.h"

/** @brief The answer to one request: the body collected while the transfer ran. */
class CurlHttpResponseData : public IHttpResponseData {
public:
    virtual ~CurlHttpResponseData() {}

    /** @brief The body received. */
    std::shared_ptr<CurlHttpTotalPacketData> PacketData;
};

#endif
