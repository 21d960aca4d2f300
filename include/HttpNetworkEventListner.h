// What a client of the network proxy hears: its request accepted, answered or failed.
#ifndef HTTP_NETWORK_EVENT_LISTNER_H
#define HTTP_NETWORK_EVENT_LISTNER_H

/**
 * @brief What a client of NetworkProxy hears about its requests, on the main loop.
 *
 * The request id is the one announced by OnHttpRequestCompleted right after
 * NetworkProxy::HttpRequest.
 */
class HttpNetworkEventListner {
public:
    virtual ~HttpNetworkEventListner() {}

    /** @brief The request is on its way under this id (also raised when it has been cancelled). */
    virtual void OnHttpRequestCompleted(int requestId) = 0;
    /** @brief The request could not be queued. */
    virtual void OnHttpRequestFailed() = 0;
    /** @brief A cancel has been carried out. */
    virtual void OnHttpRequestCancelCompleted() = 0;
    /**
     * @brief The answer arrived with status 200. data (null when the body is empty) is valid only
     * during the call; length is the number of body bytes.
     */
    virtual void OnHttpResponseCompleted(int requestId, unsigned char* data, int length) = 0;
    /** @brief The transfer ended with another status or without an answer. */
    virtual void OnHttpResponseFailed(int requestId) = 0;
};

#endif
