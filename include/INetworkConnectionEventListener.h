// What a connection engine reports to its owner: accepted requests and their outcomes.
#ifndef I_NETWORK_CONNECTION_EVENT_LISTENER_H
#define I_NETWORK_CONNECTION_EVENT_LISTENER_H

#include <memory>

#include "IHttpRequestData.h"
#include "IHttpResponseData.h"

/** @brief What an HTTP engine reports, always on the main loop. */
class INetworkConnectionEventListener {
public:
    virtual ~INetworkConnectionEventListener() {}

    /** @brief The request was queued; also raised when a cancel has taken it out again. */
    virtual void OnHttpRequestCompleted(std::shared_ptr<IHttpRequestData> request) = 0;
    /** @brief The request could not be queued. */
    virtual void OnHttpRequestFailed(std::shared_ptr<IHttpRequestData> request) = 0;
    /** @brief Reserved for a cancel confirmation; the curl engine does not raise it. */
    virtual void OnHttpRequestCancelCompleted(std::shared_ptr<IHttpRequestData> request) = 0;
    /** @brief The transfer finished with HTTP status 200. */
    virtual void OnHttpResponseCompleted(std::shared_ptr<IHttpRequestData> request,
                                         std::shared_ptr<IHttpResponseData> response) = 0;
    /** @brief The transfer finished any other way (another status, or no answer: status 0). */
    virtual void OnHttpResponseFailed(std::shared_ptr<IHttpRequestData> request) = 0;
};

#endif
