#include "HttpEvents.h"

#include "CurlHttpRequestData.h"
#include "CurlHttpResponseData.h"

namespace orvex_test {

int requestIdOf(const std::shared_ptr<IHttpRequestData>& request) {
    auto* r = dynamic_cast<CurlHttpRequestData*>(request.get());
    return r ? r->RequestId : -1;
}

void EngineEvents::OnHttpRequestCompleted(std::shared_ptr<IHttpRequestData> request) {
    events.push_back("accepted " + std::to_string(requestIdOf(request)));
}

void EngineEvents::OnHttpRequestFailed(std::shared_ptr<IHttpRequestData> request) {
    events.push_back("failed " + std::to_string(requestIdOf(request)));
}

void EngineEvents::OnHttpRequestCancelCompleted(std::shared_ptr<IHttpRequestData> request) {
    events.push_back("cancelled " + std::to_string(requestIdOf(request)));
}

void EngineEvents::OnHttpResponseCompleted(std::shared_ptr<IHttpRequestData> request,
                                           std::shared_ptr<IHttpResponseData> response) {
    std::string body;
    auto* r = dynamic_cast<CurlHttpResponseData*>(response.get());
    if (r && r->PacketData && r->PacketData->Buffer)
        body.assign(reinterpret_cast<char*>(r->PacketData->Buffer), r->PacketData->Length);
    events.push_back("response " + std::to_string(requestIdOf(request)) + " " + body);
    ++finished;
}

void EngineEvents::OnHttpResponseFailed(std::shared_ptr<IHttpRequestData> request) {
    events.push_back("response failed " + std::to_string(requestIdOf(request)));
    ++finished;
}

void ClientEvents::OnHttpRequestCompleted(int requestId) {
    events.push_back("accepted " + std::to_string(requestId));
    acceptedIds.push_back(requestId);
}

void ClientEvents::OnHttpRequestFailed() { events.push_back("request failed"); }

void ClientEvents::OnHttpRequestCancelCompleted() { events.push_back("cancel completed"); }

void ClientEvents::OnHttpResponseCompleted(int requestId, unsigned char* data, int length) {
    events.push_back("response " + std::to_string(requestId));
    bodies[requestId] = data ? std::string(reinterpret_cast<char*>(data), length) : std::string();
    nullData[requestId] = data == nullptr && length == 0;
    ++finished;
}

void ClientEvents::OnHttpResponseFailed(int requestId) {
    events.push_back("response failed " + std::to_string(requestId));
    ++finished;
}

}  // namespace orvex_test
