#ifndef I_NETWORK_CONNECTION_H
#define I_NETWORK_CONNECTION_H

#include <memory>

#include "IHttpRequestData.h"

/** @brief An HTTP engine as NetworkProxy drives it. */
class INetworkConnection {
public:
    virtual ~INetworkConnection() {}

    virtual void HttpRequest(std::shared_ptr<IHttpRequestData> request) = 0;
    virtual void CancelHttpRequest(std::shared_ptr<IHttpRequestData> request) = 0;
    virtual void CancelHttpRequest(int requestId) = 0;
    virtual void CancelAllHttpRequest() = 0;
};

#endif
