// The altitude manager: a sea-level pressure for a position from the two weather services.
#ifndef ORVEX_ALTITUDE_MGR_H
#define ORVEX_ALTITUDE_MGR_H

#include <glib.h>

#include <cstdint>

#include <string>
#include <tr1/memory>

#include "HttpNetworkEventListner.h"
#include "OrvexAltitudeMgrEvent.h"
#include "WeatherData.h"

/**
 * @brief Fetches the sea-level pressure for a position from The Weather Company (one request,
 * when its key is provisioned) or AccuWeather (location key, then current conditions), with an
 * optional time-out. One request chain at a time; a main-loop singleton.
 */
class OrvexAltitudeMgr : public HttpNetworkEventListner {
public:
    /** @brief Does nothing; deleteInstance() cancels a running request first. */
    virtual ~OrvexAltitudeMgr();

    /** @brief The request id of the HTTP request under way. */
    void OnHttpRequestCompleted(int requestId) override;
    /** @brief The HTTP request could not be sent: the chain fails. */
    void OnHttpRequestFailed() override;
    /** @brief A cancel completed: resets without telling the listener. */
    void OnHttpRequestCancelCompleted() override;
    /** @brief An answer: next step of the chain, or its result. */
    void OnHttpResponseCompleted(int requestId, unsigned char* data, int length) override;
    /** @brief The HTTP transfer failed: the chain fails. */
    void OnHttpResponseFailed(int requestId) override;

    /** @brief The one instance, created on first use; null when memory runs out. */
    static OrvexAltitudeMgr* getInstance();
    /** @brief Cancels a running request and destroys the instance. */
    static void deleteInstance();

    /** @brief Where results go (not owned); null is ignored. Cleared by every cancel. */
    void SetEventListener(OrvexAltitudeMgrEvent* listener);
    /** @brief Starts a chain for the position; timeout in milliseconds, 0 or less for none. */
    void Request(double latitude, double longitude, double timeout);
    /** @brief Cancels the chain and resets everything, the listener included. */
    void RequestCancel();
    /** @brief Cancels the singleton's chain, if there is a singleton. */
    void resetAllRequest();

    /** @brief The AccuWeather key from the key storage; empty when there is none. */
    std::string GetAPIKeyValueStr();
    /** @brief The TWC key from the key storage; empty when there is none. */
    std::string GetTWCAPIKeyValueStr();
    /** @brief Whether TWC is used: its key is longer than one character. */
    bool isTWCAvailable();
    /** @brief The AccuWeather geoposition search URL for the position. */
    std::string GetLocationRequestUrl(double latitude, double longitude);
    /** @brief The AccuWeather current-conditions URL for the location key. */
    std::string GetWeatherInfoRequestUrl(std::string locationKey);
    /** @brief The TWC observation URL for the position. */
    std::string GetTWCInfoRequestUrl(double latitude, double longitude);

    /** @brief AccuWeather geoposition search template (%1f, %2f, %apiKeyStr). */
    static const std::string ORVEX_REQUEST_LOCATIO7N_ID_URL;
    /** @brief AccuWeather current conditions template (%s, %apiKeyStr, %langStr). */
    static const std::string ORVEX_REQUEST_WEATHER_INFO_URL;
    /** @brief TWC observation template (%1f, %2f, %apiKeyStr). */
    static const std::string ORVEX_REQUEST_TWC_INFO_URL;
    /** @brief Key-storage alias of the AccuWeather key. */
    static const std::string ORVEX_API_KEY;
    /** @brief Key-storage alias of the TWC key. */
    static const std::string ORVEX_TWC_API_KEY;

    /** @brief Sends the AccuWeather geoposition search. */
    void RequestLocationID(double latitude, double longitude);
    /** @brief Sends the AccuWeather current-conditions request. */
    void RequestWeatherInfo(std::string locationKey);
    /** @brief Sends the TWC observation request. */
    void RequestTWCWeatherInfo(double latitude, double longitude);
    /** @brief Arms the time-out (milliseconds, truncated) unless one is armed. */
    void StartRequestTimer(double timeout);
    /** @brief Removes an armed time-out. */
    void StopRequestTimer();
    /** @brief The time-out: cancels silently. */
    static gboolean SRequestTimeOutCB(void* data);
    /** @brief Resets and hands the record to the listener. */
    void OnRequestCompleted(std::tr1::shared_ptr<WeatherData> data);
    /** @brief Resets and tells the listener of the failure. */
    void OnRequestFailed();

private:
    OrvexAltitudeMgr();
    OrvexAltitudeMgr(const OrvexAltitudeMgr&) = delete;
    OrvexAltitudeMgr& operator=(const OrvexAltitudeMgr&) = delete;

    void resetFields();

    int32_t requestStatus;
    int32_t httpRequestId;
    int32_t listenerId;
    guint requestTimerId;
    double latitude;
    double longitude;
    OrvexAltitudeMgrEvent* eventListener;

    static OrvexAltitudeMgr* _pInstance;
};

#endif
