// Records what the HTTP engine or NetworkProxy reported, for the networking tests.
#ifndef ORVEX_TEST_HTTP_EVENTS_H
#define ORVEX_TEST_HTTP_EVENTS_H

#include <memory>
#include <string>
#include <vector>

#include "HttpNetworkEventListner.h"
#include "INetworkConnectionEventListener.h"

namespace orvex_test {

// Each event as a line: "accepted 3", "response 3 <body>", "response 3 (null)" for a null body,
// "response failed 3", and "failed 3" / "cancelled 3" from the engine or "request failed" /
// "cancel completed" from the front end.
class HttpEvents : public INetworkConnectionEventListener, public HttpNetworkEventListner {
public:
    void OnHttpRequestCompleted(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpRequestFailed(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpRequestCancelCompleted(std::shared_ptr<IHttpRequestData> request) override;
    void OnHttpResponseCompleted(std::shared_ptr<IHttpRequestData> request,
                                 std::shared_ptr<IHttpResponseData> response) override;
    void OnHttpResponseFailed(std::shared_ptr<IHttpRequestData> request) override;

    void OnHttpRequestCompleted(int requestId) override;
    void OnHttpRequestFailed() override { events.push_back("request failed"); }
    void OnHttpRequestCancelCompleted() override { events.push_back("cancel completed"); }
    void OnHttpResponseCompleted(int requestId, unsigned char* data, int length) override;
    void OnHttpResponseFailed(int requestId) override;

    bool saw(const std::string& event) const;

    std::vector<std::string> events;
    std::vector<int> acceptedIds;
    int finished = 0;  // responses, completed or failed
};

}  // namespace orvex_test

#endif
