// The common shape of an HTTP request handed to a connection.
#ifndef I_HTTP_REQUEST_DATA_H
#define I_HTTP_REQUEST_DATA_H

/** @brief Base of the request records the HTTP engine passes around in shared pointers. */
class IHttpRequestData {
public:
    virtual ~IHttpRequestData() {}
};

#endif
