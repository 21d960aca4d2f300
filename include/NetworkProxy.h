// The network proxy: the front end through which clients send requests and hear their outcomes.
#ifndef NETWORK_PROXY_H
#define NETWORK_PROXY_H

#include <map>
#include <memory>
#include <vector>

#include "HttpNetworkEventListner.h"
#include "INetworkConnection.h"
#include "INetworkConnectionEventListener.h"
#include "NetProxyHttpReqData.h"

/**
 * @brief The process-wide front end for HTTP requests.
 *
 * Clients register an HttpNetworkEventListner, send requests under the listener id they got back
 * and hear about each request on the main loop. Main thread only; listeners are not owned.
 */
class NetworkProxy : public INetworkConnectionEventListener {
public:
    /** @brief The one instance, created on first use; null when memory runs out. */
    static NetworkProxy* GetInstance();
    /** @brief Destroys the instance, cancelling every transfer; harmless when there is none. */
    static void Destory();

    /** @brief Registers a listener and returns its id; -1 for null. A known listener keeps its id.
     */
    int RegisterHttpNetworkEventListener(HttpNetworkEventListner* listener);
    /** @brief Forgets a listener; its outstanding requests are no longer reported. */
    void UnRegisterHttpNetworkEventListener(HttpNetworkEventListner* listener);
    /** @brief Forgets the listener registered under the id. */
    void UnRegisterHttpNetworkEventListener(int listenerId);
    /** @brief The id the listener is registered under, or -1. */
    int FindHttpNetworkProxyReqID(HttpNetworkEventListner* listener);
    /** @brief The listener that sent the request, or null. */
    HttpNetworkEventListner* FindHttpNetworkEventListner(int requestId);
    /** @brief Next listener id: 0 when none is registered, else one more than the last. */
    int GetHttpNetworkProxyReqID();
    /** @brief Next request id: 0 when none is outstanding, else one more than the last. */
    int GetHttpReqID();

    /**
     * @brief Sends a request for the listener registered under listenerId. The request id is
     * announced through the listener's OnHttpRequestCompleted.
     */
    void HttpRequest(const NetProxyHttpReqData& request, int listenerId);
    /** @brief Cancels an outstanding request. */
    void HttpCancel(int requestId);
    /** @brief Hook run before every request, for the platform's data-usage accounting. */
    void RegisterDataUsageToSystem();

    void OnHttpRequestCompleted(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpRequestFailed(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpRequestCancelCompleted(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpResponseCompleted(std::shared_ptr<IHttpRequestData> request,
                                 std::shared_ptr<IHttpResponseData> response) override;
    void OnHttpResponseFailed(std::shared_ptr<IHttpRequestData> request) override;

protected:
    NetworkProxy();
    virtual ~NetworkProxy();

private:
    NetworkProxy(const NetworkProxy&) = delete;
    NetworkProxy& operator=(const NetworkProxy&) = delete;

    std::shared_ptr<INetworkConnection> mNetworkConnection;
    int mListenerIdCounter;
    std::map<int, HttpNetworkEventListner*> mListenerMap;
    int mRequestIdCounter;
    std::map<int, int> mRequestMap;

    static NetworkProxy* mInstance;

    // Requests refused without an engine, told to their listeners from the main loop.
    static int SRefusalCB(void* data);
    std::vector<int> mRefusedListeners;
    unsigned mRefusalSource;
};

#endif
