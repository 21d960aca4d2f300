// The network proxy front end: its listener registry and the requests it forwards to the engine.
#include "NetworkProxy.h"

#include <glib.h>

#include <new>
#include <vector>

#include "CurlHttpRequestData.h"
#include "CurlHttpResponseData.h"
#include "CurlNetworkConnection.h"
#include "OrvexLog.h"

NetworkProxy* NetworkProxy::mInstance = nullptr;

namespace {

int requestIdOf(const std::shared_ptr<IHttpRequestData>& request) {
    auto* curlRequest = dynamic_cast<CurlHttpRequestData*>(request.get());
    return curlRequest ? curlRequest->RequestId : -1;
}

}  // namespace

NetworkProxy* NetworkProxy::GetInstance() {
    if (!mInstance) {
        mInstance = new (std::nothrow) NetworkProxy();
        if (!mInstance) ORVEX_LOGE("_pInstance is NULL");
    }
    return mInstance;
}

void NetworkProxy::Destory() {
    delete mInstance;
    mInstance = nullptr;
}

NetworkProxy::NetworkProxy() : mListenerIdCounter(0), mRequestIdCounter(0), mRefusalSource(0) {
    // GetInstance must not throw: without memory for the engine the front end still exists and
    // refuses every request.
    auto* connection = new (std::nothrow) CurlNetworkConnection();
    if (!connection) return;
    connection->SetListener(this);
    try {
        mNetworkConnection.reset(connection);
    } catch (const std::bad_alloc&) {
        // reset() has deleted the engine already.
    }
}

int NetworkProxy::SRefusalCB(void* data) {
    auto* self = static_cast<NetworkProxy*>(data);
    self->mRefusalSource = 0;
    std::vector<int> refused;
    refused.swap(self->mRefusedListeners);
    for (int id : refused) {
        auto it = self->mListenerMap.find(id);
        if (it != self->mListenerMap.end() && it->second) it->second->OnHttpRequestFailed();
    }
    return G_SOURCE_REMOVE;
}

NetworkProxy::~NetworkProxy() {
    if (mRefusalSource) g_source_remove(mRefusalSource);
    // The maps go with the members; the engine, released last, cancels whatever is still in flight
    // and tells nobody.
}

int NetworkProxy::GetHttpNetworkProxyReqID() {
    if (mListenerMap.empty()) {
        mListenerIdCounter = 0;
        return 0;
    }
    return ++mListenerIdCounter;
}

int NetworkProxy::GetHttpReqID() {
    if (mRequestMap.empty()) {
        mRequestIdCounter = 0;
        return 0;
    }
    return ++mRequestIdCounter;
}

int NetworkProxy::RegisterHttpNetworkEventListener(HttpNetworkEventListner* listener) {
    if (!listener) return -1;
    int existing = FindHttpNetworkProxyReqID(listener);
    if (existing >= 0) {
        ORVEX_LOGE("Already register listener");
        return existing;
    }
    int id = GetHttpNetworkProxyReqID();
    mListenerMap[id] = listener;
    return id;
}

void NetworkProxy::UnRegisterHttpNetworkEventListener(HttpNetworkEventListner* listener) {
    if (mListenerMap.empty()) {
        mRequestIdCounter = 0;
        return;
    }
    mListenerMap.erase(FindHttpNetworkProxyReqID(listener));
    if (mListenerMap.empty()) mRequestIdCounter = 0;
}

void NetworkProxy::UnRegisterHttpNetworkEventListener(int listenerId) {
    if (mListenerMap.empty()) {
        mRequestIdCounter = 0;
        return;
    }
    mListenerMap.erase(listenerId);
    if (mListenerMap.empty()) mRequestIdCounter = 0;
}

int NetworkProxy::FindHttpNetworkProxyReqID(HttpNetworkEventListner* listener) {
    for (const auto& entry : mListenerMap)
        if (entry.second == listener) return entry.first;
    return -1;
}

HttpNetworkEventListner* NetworkProxy::FindHttpNetworkEventListner(int requestId) {
    auto it = mRequestMap.find(requestId);
    if (it == mRequestMap.end()) {
        ORVEX_LOGE("invalid request id");
        return nullptr;
    }
    // A listener unregistered while its request ran leaves a null entry behind.
    return mListenerMap[it->second];
}

void NetworkProxy::RegisterDataUsageToSystem() {}

void NetworkProxy::HttpRequest(const NetProxyHttpReqData& request, int listenerId) {
    if (mListenerMap.find(listenerId) == mListenerMap.end()) {
        ORVEX_LOGE("Invalid networkReqID");
        return;
    }
    if (!mNetworkConnection) {
        // Refused from the main loop, like the engine's own failures: the client is still inside
        // its call and not ready to hear about it.
        ORVEX_LOGE("Invalid network proxyt ptr");
        mRefusedListeners.push_back(listenerId);
        if (!mRefusalSource) mRefusalSource = g_idle_add(&NetworkProxy::SRefusalCB, this);
        return;
    }
    RegisterDataUsageToSystem();

    auto curlRequest = std::make_shared<CurlHttpRequestData>();
    curlRequest->RequestId = GetHttpReqID();
    curlRequest->URL = request.URL;
    if (!request.Body.empty()) curlRequest->Body = request.Body;
    for (const std::string& header : request.Headers)
        if (!header.empty()) curlRequest->Headers.push_back(header);
    mRequestMap[curlRequest->RequestId] = listenerId;

    mNetworkConnection->HttpRequest(curlRequest);
}

void NetworkProxy::HttpCancel(int requestId) {
    if (mRequestMap.find(requestId) == mRequestMap.end()) {
        ORVEX_LOGE("Invalid reqID");
        return;
    }
    if (!mNetworkConnection) {
        ORVEX_LOGE("Invalid network proxyt ptr");
        return;
    }
    mNetworkConnection->CancelHttpRequest(requestId);
}

void NetworkProxy::OnHttpRequestCompleted(std::shared_ptr<IHttpRequestData> request) {
    int requestId = requestIdOf(request);
    HttpNetworkEventListner* listener = FindHttpNetworkEventListner(requestId);
    if (!listener) return;
    listener->OnHttpRequestCompleted(requestId);
}

void NetworkProxy::OnHttpRequestFailed(std::shared_ptr<IHttpRequestData> request) {
    int requestId = requestIdOf(request);
    HttpNetworkEventListner* listener = FindHttpNetworkEventListner(requestId);
    if (!listener) return;
    mRequestMap.erase(requestId);
    listener->OnHttpRequestFailed();
}

void NetworkProxy::OnHttpRequestCancelCompleted(std::shared_ptr<IHttpRequestData> request) {
    int requestId = requestIdOf(request);
    HttpNetworkEventListner* listener = FindHttpNetworkEventListner(requestId);
    if (!listener) return;
    mRequestMap.erase(requestId);
    listener->OnHttpRequestCancelCompleted();
}

void NetworkProxy::OnHttpResponseCompleted(std::shared_ptr<IHttpRequestData> request,
                                           std::shared_ptr<IHttpResponseData> response) {
    int requestId = requestIdOf(request);
    HttpNetworkEventListner* listener = FindHttpNetworkEventListner(requestId);
    if (!listener) return;
    mRequestMap.erase(requestId);
    auto* curlResponse = dynamic_cast<CurlHttpResponseData*>(response.get());
    if (!curlResponse) {
        listener->OnHttpResponseFailed(requestId);
        return;
    }
    CurlHttpTotalPacketData* packet = curlResponse->PacketData.get();
    listener->OnHttpResponseCompleted(requestId, packet ? packet->Buffer : nullptr,
                                      packet ? packet->Length : 0);
}

void NetworkProxy::OnHttpResponseFailed(std::shared_ptr<IHttpRequestData> request) {
    int requestId = requestIdOf(request);
    HttpNetworkEventListner* listener = FindHttpNetworkEventListner(requestId);
    if (!listener) return;
    mRequestMap.erase(requestId);
    listener->OnHttpResponseFailed(requestId);
}
