// The common shape of an HTTP response handed back by a connection.
#ifndef I_HTTP_RESPONSE_DATA_H
#define I_HTTP_RESPONSE_DATA_H

/** @brief Base of the response records the HTTP engine delivers. */
class IHttpResponseData {
public:
    virtual ~IHttpResponseData() {}
};

#endif
