// Listeners that record what the HTTP engine and NetworkProxy report, for the networking tests.
#ifndef ORVEX_TEST_HTTP_EVENTS_H
#define ORVEX_TEST_HTTP_EVENTS_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "HttpNetworkEventListner.h"
#include "INetworkConnectionEventListener.h"

namespace orvex_test {

// What a CurlNetworkConnection reported, as "accepted 3", "response 3 <body>", "failed 3", ...
class EngineEvents : public INetworkConnectionEventListener {
public:
    void OnHttpRequestCompleted(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpRequestFailed(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpRequestCancelCompleted(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpResponseCompleted(std::shared_ptr<IHttpRequestData> request,
                                 std::shared_ptr<IHttpResponseData> response) override;
    void OnHttpResponseFailed(std::shared_ptr<IHttpRequestData> request) override;

    std::vector<std::string> events;
    // Responses (completed or failed) seen so far.
    int finished = 0;
};

// What NetworkProxy reported to one client.
class ClientEvents : public HttpNetworkEventListner {
public:
    void OnHttpRequestCompleted(int requestId) override;
    void OnHttpRequestFailed() override;
    void OnHttpRequestCancelCompleted() override;
    void OnHttpResponseCompleted(int requestId, unsigned char* data, int length) override;
    void OnHttpResponseFailed(int requestId) override;

    std::vector<std::string> events;
    std::vector<int> acceptedIds;
    std::map<int, std::string> bodies;
    // Whether the data pointer of each completed response was null.
    std::map<int, bool> nullData;
    int finished = 0;
};

// Request id of a CurlHttpRequestData, or -1.
int requestIdOf(const std::shared_ptr<IHttpRequestData>& request);

}  // namespace orvex_test

#endif
