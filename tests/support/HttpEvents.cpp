// Records what the engine and the proxy report, as lines a test compares.
#include "HttpEvents.h"

#include <algorithm>

#include "CurlHttpRequestData.h"
#include "CurlHttpResponseData.h"

namespace orvex_test {
namespace {

int idOf(const std::shared_ptr<IHttpRequestData>& request) {
    auto* r = dynamic_cast<CurlHttpRequestData*>(request.get());
    return r ? r->RequestId : -1;
}

}  // namespace

void HttpEvents::OnHttpRequestCompleted(std::shared_ptr<IHttpRequestData> request) {
    OnHttpRequestCompleted(idOf(request));
}

void HttpEvents::OnHttpRequestFailed(std::shared_ptr<IHttpRequestData> request) {
    events.push_back("failed " + std::to_string(idOf(request)));
}

void HttpEvents::OnHttpRequestCancelCompleted(std::shared_ptr<IHttpRequestData> request) {
    events.push_back("cancelled " + std::to_string(idOf(request)));
}

void HttpEvents::OnHttpResponseCompleted(std::shared_ptr<IHttpRequestData> request,
                                         std::shared_ptr<IHttpResponseData> response) {
    auto* r = dynamic_cast<CurlHttpResponseData*>(response.get());
    CurlHttpTotalPacketData* packet = r ? r->PacketData.get() : nullptr;
    OnHttpResponseCompleted(idOf(request), packet ? packet->Buffer : nullptr,
                            packet ? packet->Length : 0);
}

void HttpEvents::OnHttpResponseFailed(std::shared_ptr<IHttpRequestData> request) {
    OnHttpResponseFailed(idOf(request));
}

void HttpEvents::OnHttpRequestCompleted(int requestId) {
    events.push_back("accepted " + std::to_string(requestId));
    acceptedIds.push_back(requestId);
}

void HttpEvents::OnHttpResponseCompleted(int requestId, unsigned char* data, int length) {
    events.push_back("response " + std::to_string(requestId) + " " +
                     (data ? std::string(reinterpret_cast<char*>(data), length) : "(null)"));
    ++finished;
}

void HttpEvents::OnHttpResponseFailed(int requestId) {
    events.push_back("response failed " + std::to_string(requestId));
    ++finished;
}

bool HttpEvents::saw(const std::string& event) const {
    return std::find(events.begin(), events.end(), event) != events.end();
}

}  // namespace orvex_test
