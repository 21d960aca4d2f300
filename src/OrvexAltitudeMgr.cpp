// The altitude manager's request chains to The Weather Company and AccuWeather, with their
// time-out.
#include "OrvexAltitudeMgr.h"

#include <platform/key_storage.h>

#include <cstdlib>
#include <new>

#include "BuildConfig.h"
#include "NetProxyHttpReqData.h"
#include "NetworkProxy.h"
#include "OrvexLog.h"
#include "StringUtil.h"
#include "WeatherParser.h"

namespace {

// Outside the range of both coordinates: no position.
const double NO_POSITION = -200.07;
const char* const LANGUAGE = "en";

enum RequestState {
    STATE_IDLE = -1,
    STATE_ACCU_LOCATION = 0,
    STATE_ACCU_WEATHER = 1,
    STATE_TWC = 2,
};

std::string readKey(const std::string& alias) {
    // Read at every use, never kept: a key changed in the storage applies to the next request.
    char* data = nullptr;
    if (key_storage_get(alias.c_str(), &data) < 0 || data == nullptr) return std::string();
    std::string key = data;
    free(data);
    return key;
}

std::string coordinate(double value) { return StringUtil::DoubleToString(value, 6); }

}  // namespace

const std::string OrvexAltitudeMgr::ORVEX_REQUEST_LOCATIO7N_ID_URL =
    std::string(ORVEX_WEATHER_SCHEME) + "://" + ORVEX_ACCUWEATHER_HOST +
    "/locations/v1/cities/geoposition/search.json?q=%1f,%2f&apikey=%apiKeyStr&language=en";
const std::string OrvexAltitudeMgr::ORVEX_REQUEST_WEATHER_INFO_URL =
    std::string(ORVEX_WEATHER_SCHEME) + "://" + ORVEX_ACCUWEATHER_HOST +
    "/currentconditions/v1/%s.json?apikey=%apiKeyStr&details=true&language=%langStr";
const std::string OrvexAltitudeMgr::ORVEX_REQUEST_TWC_INFO_URL =
    std::string(ORVEX_WEATHER_SCHEME) + "://" + ORVEX_TWC_HOST +
    "/v2/aggcommon/v3-location-point;v3-wx-observations-current;v3-links?units=e&geocode=%1f,%2f"
    "&language=en-US&format=json&par=marveno_widget&apiKey=%apiKeyStr";
const std::string OrvexAltitudeMgr::ORVEX_API_KEY = "orvex_accueweather_api_key";
const std::string OrvexAltitudeMgr::ORVEX_TWC_API_KEY = "twc_api_key";

OrvexAltitudeMgr* OrvexAltitudeMgr::_pInstance = nullptr;

OrvexAltitudeMgr::OrvexAltitudeMgr()
    : requestStatus(STATE_IDLE),
      httpRequestId(-1),
      listenerId(-1),
      requestTimerId(0),
      latitude(NO_POSITION),
      longitude(NO_POSITION),
      eventListener(nullptr) {}

OrvexAltitudeMgr::~OrvexAltitudeMgr() {}

OrvexAltitudeMgr* OrvexAltitudeMgr::getInstance() {
    if (_pInstance == nullptr) {
        _pInstance = new (std::nothrow) OrvexAltitudeMgr();
        if (_pInstance == nullptr) ORVEX_LOGE("_pInstance is NULL");
    }
    return _pInstance;
}

void OrvexAltitudeMgr::deleteInstance() {
    if (_pInstance != nullptr) {
        _pInstance->resetAllRequest();
        delete _pInstance;
    }
    _pInstance = nullptr;
}

void OrvexAltitudeMgr::SetEventListener(OrvexAltitudeMgrEvent* listener) {
    if (listener != nullptr) eventListener = listener;
}

void OrvexAltitudeMgr::Request(double lat, double lon, double timeout) {
    if (requestStatus != STATE_IDLE) return;
    // Without a front end (out of memory) the registration counts as refused.
    NetworkProxy* proxy = NetworkProxy::GetInstance();
    listenerId = proxy ? proxy->RegisterHttpNetworkEventListener(this) : -1;
    const bool refused = listenerId < 0;
    // The state is set before the send: a request the engine cannot queue is reported inside the
    // send, and that failure must leave the manager idle for the next Request.
    if (refused) {
        OnRequestFailed();
    } else if (isTWCAvailable()) {
        requestStatus = STATE_TWC;
        RequestTWCWeatherInfo(lat, lon);
    } else {
        requestStatus = STATE_ACCU_LOCATION;
        RequestLocationID(lat, lon);
    }
    // Armed even after a refused registration: when it fires it cancels whatever runs then. A
    // chain that already failed inside the send has nothing left to time.
    if (timeout > 0.0 && (refused || requestStatus != STATE_IDLE)) StartRequestTimer(timeout);
}

void OrvexAltitudeMgr::RequestCancel() {
    if (httpRequestId >= 0) {
        if (NetworkProxy* proxy = NetworkProxy::GetInstance()) proxy->HttpCancel(httpRequestId);
        if (NetworkProxy* proxy = NetworkProxy::GetInstance())
            proxy->UnRegisterHttpNetworkEventListener(listenerId);
        StopRequestTimer();
    }
    requestStatus = STATE_IDLE;
    httpRequestId = -1;
    listenerId = -1;
    latitude = NO_POSITION;
    longitude = NO_POSITION;
    // Forgotten, not removed: a time-out armed before the first request id arrived still fires.
    requestTimerId = 0;
    eventListener = nullptr;
}

void OrvexAltitudeMgr::resetAllRequest() {
    if (_pInstance != nullptr) _pInstance->RequestCancel();
}

void OrvexAltitudeMgr::RequestLocationID(double lat, double lon) {
    NetProxyHttpReqData data;
    data.URL = GetLocationRequestUrl(lat, lon);
    latitude = lat;
    longitude = lon;
    if (NetworkProxy* proxy = NetworkProxy::GetInstance()) proxy->HttpRequest(data, listenerId);
}

void OrvexAltitudeMgr::RequestWeatherInfo(std::string locationKey) {
    NetProxyHttpReqData data;
    data.URL = GetWeatherInfoRequestUrl(locationKey);
    if (NetworkProxy* proxy = NetworkProxy::GetInstance()) proxy->HttpRequest(data, listenerId);
}

void OrvexAltitudeMgr::RequestTWCWeatherInfo(double lat, double lon) {
    NetProxyHttpReqData data;
    data.URL = GetTWCInfoRequestUrl(lat, lon);
    latitude = lat;
    longitude = lon;
    if (NetworkProxy* proxy = NetworkProxy::GetInstance()) proxy->HttpRequest(data, listenerId);
}

void OrvexAltitudeMgr::StartRequestTimer(double timeout) {
    if (requestTimerId != 0) return;
    // Whole milliseconds, truncated; a time-out longer than a GLib source can hold (or not finite)
    // waits as long as one can instead of wrapping round to a short one.
    guint ms = !(timeout < static_cast<double>(G_MAXUINT)) ? G_MAXUINT
               : timeout > 0.0                             ? static_cast<guint>(timeout)
                                                           : 0u;
    requestTimerId = g_timeout_add(ms, SRequestTimeOutCB, this);
}

void OrvexAltitudeMgr::StopRequestTimer() {
    if (requestTimerId > 0) {
        g_source_remove(requestTimerId);
        requestTimerId = 0;
    }
}

gboolean OrvexAltitudeMgr::SRequestTimeOutCB(void* data) {
    auto* self = static_cast<OrvexAltitudeMgr*>(data);
    // This source ends by returning FALSE; forget it so that nothing removes it a second time.
    // An id that is another source (armed after a cancel forgot this one) stays.
    GSource* current = g_main_current_source();
    if (current != nullptr && self->requestTimerId == g_source_get_id(current))
        self->requestTimerId = 0;
    // The cancel clears the listener first, so a time-out reaches nobody.
    self->RequestCancel();
    self->OnRequestFailed();
    return FALSE;
}

void OrvexAltitudeMgr::resetFields() {
    latitude = NO_POSITION;
    longitude = NO_POSITION;
    requestStatus = STATE_IDLE;
    httpRequestId = -1;
    if (NetworkProxy* proxy = NetworkProxy::GetInstance())
        proxy->UnRegisterHttpNetworkEventListener(listenerId);
    StopRequestTimer();
}

void OrvexAltitudeMgr::OnRequestCompleted(std::tr1::shared_ptr<WeatherData> data) {
    resetFields();
    if (eventListener != nullptr) eventListener->OnWeatherDataCompleted(data);
}

void OrvexAltitudeMgr::OnRequestFailed() {
    resetFields();
    if (eventListener != nullptr) eventListener->OnWeatherDataFailed();
}

void OrvexAltitudeMgr::OnHttpRequestCompleted(int requestId) { httpRequestId = requestId; }

void OrvexAltitudeMgr::OnHttpRequestFailed() { OnRequestFailed(); }

void OrvexAltitudeMgr::OnHttpRequestCancelCompleted() {
    if (NetworkProxy* proxy = NetworkProxy::GetInstance())
        proxy->UnRegisterHttpNetworkEventListener(listenerId);
    requestStatus = STATE_IDLE;
    httpRequestId = -1;
    listenerId = -1;
    StopRequestTimer();
}

void OrvexAltitudeMgr::OnHttpResponseCompleted(int, unsigned char* data, int length) {
    WeatherParser parser;
    parser.Parse(reinterpret_cast<char*>(data), length);
    if (requestStatus == STATE_ACCU_LOCATION) {
        // One time-out covers both steps; an empty key still makes the second request. The state
        // moves first, as in Request, so that a send that fails at once leaves the manager idle.
        requestStatus = STATE_ACCU_WEATHER;
        RequestWeatherInfo(parser.GetLocationID());
    } else if (requestStatus == STATE_ACCU_WEATHER || requestStatus == STATE_TWC) {
        std::tr1::shared_ptr<WeatherData> record = requestStatus == STATE_ACCU_WEATHER
                                                       ? parser.GetWeatherData()
                                                       : parser.GetTWCWeatherData();
        if (record) {
            record->latitude = latitude;
            record->longitude = longitude;
            OnRequestCompleted(record);
        } else {
            OnRequestFailed();
        }
    } else {
        ORVEX_LOGE("invalid request status");
    }
}

void OrvexAltitudeMgr::OnHttpResponseFailed(int) { OnRequestFailed(); }

std::string OrvexAltitudeMgr::GetAPIKeyValueStr() { return readKey(ORVEX_API_KEY); }

std::string OrvexAltitudeMgr::GetTWCAPIKeyValueStr() { return readKey(ORVEX_TWC_API_KEY); }

bool OrvexAltitudeMgr::isTWCAvailable() { return GetTWCAPIKeyValueStr().length() > 1; }

std::string OrvexAltitudeMgr::GetLocationRequestUrl(double lat, double lon) {
    std::string url =
        StringUtil::StringReplace(ORVEX_REQUEST_LOCATIO7N_ID_URL, "%1f", coordinate(lat));
    url = StringUtil::StringReplace(url, "%2f", coordinate(lon));
    return StringUtil::StringReplace(url, "%apiKeyStr", GetAPIKeyValueStr());
}

std::string OrvexAltitudeMgr::GetWeatherInfoRequestUrl(std::string locationKey) {
    std::string url = StringUtil::StringReplace(ORVEX_REQUEST_WEATHER_INFO_URL, "%s", locationKey);
    url = StringUtil::StringReplace(url, "%apiKeyStr", GetAPIKeyValueStr());
    return StringUtil::StringReplace(url, "%langStr", LANGUAGE);
}

std::string OrvexAltitudeMgr::GetTWCInfoRequestUrl(double lat, double lon) {
    std::string url = StringUtil::StringReplace(ORVEX_REQUEST_TWC_INFO_URL, "%1f", coordinate(lat));
    url = StringUtil::StringReplace(url, "%2f", coordinate(lon));
    url = StringUtil::StringReplace(url, "%apiKeyStr", GetTWCAPIKeyValueStr());
    return StringUtil::StringReplace(url, "%langStr", LANGUAGE);
}
