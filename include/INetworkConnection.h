// The interface of a network connection engine: send, cancel one, cancel all.
#ifndef I_NETWORK_CONNECTION_H
#define I_NETWORK_CONNECTION_H

#include <memory>

#include "IHttpRequestData.h"

/** @brief An HTTP engine as NetworkProxy drives it. */
class INetworkConnection {
public:
    virtual ~INetworkConnection() {}

    /** @brief Queues the request; results arrive on the main loop. */
    virtual void HttpRequest(std::shared_ptr<IHttpRequestData> request) = 0;
    /** @brief Cancels the request's transfer if it is still known. */
    virtual void CancelHttpRequest(std::shared_ptr<IHttpRequestData> request) = 0;
    /** @brief Cancels the transfer with this request id if it is still known. */
    virtual void CancelHttpRequest(int requestId) = 0;
    /** @brief Cancels every transfer. */
    virtual void CancelAllHttpRequest() = 0;
};

#endif
