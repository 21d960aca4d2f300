// A request as the curl engine takes it: URL, headers, body and the engine's request id.
#ifndef CURL_HTTP_REQUEST_DATA_H
#define CURL_HTTP_REQUEST_DATA_H

#include <list>
#include <string>

#include "IHttpRequestData.h"

/** @brief One request as the curl engine performs it. */
class CurlHttpRequestData : public IHttpRequestData {
public:
    CurlHttpRequestData() : RequestId(-1) {}
    virtual ~CurlHttpRequestData() {}

    /** @brief The id NetworkProxy gave the request; -1 until it has one. */
    int RequestId;
    /** @brief Non-empty header lines, in the client's order. */
    std::list<std::string> Headers;
    /** @brief The complete URL. */
    std::string URL;
    /** @brief POST payload; empty for a GET. libcurl reads it in place until the transfer ends. */
    std::string Body;
};

#endif
