// The weather-agent client: the launch request, its reply port and what the answer stores.
#include "OrvexWeather.h"

#include <platform/app_control.h>
#include <platform/message_port.h>

#include <ctime>
#include <string>

#include "OrvexLog.h"
#include "OrvexStorageMgr.h"

namespace {

const char* const LOCAL_PORT_NAME = "com.marveno.orvex_weather_info";
const char* const WEATHER_AGENT_APP_ID = "com.marveno.weather-agent";
const char* const KEY_MESSAGE = "MESSAGE";
const char* const VALUE_GET_WEATHER = "GET_CURRENT_WEATHER_INFO";
const char* const KEY_PORT_ID = "PORT_ID";
const char* const KEY_REFRESHED_TIME = "refreshedTime";
const char* const KEY_PRESSURE = "pressure";

const long long MAX_AGE_SECONDS = 3600;
const double NO_SLP_MARKER = 9999.0;

enum WeatherResult { RESULT_STORED = 0, RESULT_OLD = 1, RESULT_MISSING = 2, RESULT_NO_SLP = 3 };

}  // namespace

IOrvexWeatherListener* OrvexWeather::_listener = nullptr;

OrvexWeather::OrvexWeather(IOrvexWeatherListener* listener) {
    mLocalPortId = message_port_register_local_port(LOCAL_PORT_NAME, _MessagePortCallback, this);
    if (mLocalPortId < 0) ORVEX_LOGE("message_port_register_local_port failed(%d)", mLocalPortId);
    if (listener == nullptr) {
        ORVEX_LOGE("Listener is NULL");
        return;
    }
    _listener = listener;
}

OrvexWeather::~OrvexWeather() {
    if (mLocalPortId >= 0) message_port_unregister_local_port(mLocalPortId);
}

bool OrvexWeather::requestWeatherInfo() {
    // The handle stays with the platform after the launch: one per request.
    app_control_h request = nullptr;
    int rc = app_control_create(&request);
    if (rc != APP_CONTROL_ERROR_NONE) {
        ORVEX_LOGE("[Fail] app_control_create : %d", rc);
        return false;
    }
    rc = app_control_set_app_id(request, WEATHER_AGENT_APP_ID);
    if (rc != APP_CONTROL_ERROR_NONE) {
        ORVEX_LOGE("[Fail] app_control_set_app_id : %d", rc);
        return false;
    }
    rc = app_control_add_extra_data(request, KEY_MESSAGE, VALUE_GET_WEATHER);
    if (rc != APP_CONTROL_ERROR_NONE) {
        ORVEX_LOGE("[Fail] app_control_add_extra_data : %d ", rc);
        return false;
    }
    rc = app_control_add_extra_data(request, KEY_PORT_ID, LOCAL_PORT_NAME);
    if (rc != APP_CONTROL_ERROR_NONE) {
        ORVEX_LOGE("[Fail] app_control_add_extra_data :%d ", rc);
        return false;
    }
    rc = app_control_send_launch_request(request, nullptr, nullptr);
    if (rc != APP_CONTROL_ERROR_NONE) {
        ORVEX_LOGE("[Fail] app_control_send_launch_request failed : %d", rc);
        return false;
    }
    return true;
}

std::string OrvexWeather::_bundleGetString(bundle* b, const char* key) {
    if (b == nullptr) return "";
    char* value = nullptr;
    if (bundle_get_str(b, key, &value) != BUNDLE_ERROR_NONE || value == nullptr) return "";
    return value;
}

void OrvexWeather::_MessagePortCallback(int, const char*, const char*, bool, bundle* message,
                                        void*) {
    std::string timeText = _bundleGetString(message, KEY_REFRESHED_TIME);
    std::string pressureText = _bundleGetString(message, KEY_PRESSURE);
    int result;
    if (timeText.empty() || pressureText.empty()) {
        ORVEX_LOGE("ERROR : time and pressure are not exist");
        result = RESULT_MISSING;
    } else {
        // Unparseable text throws std::invalid_argument / std::out_of_range to the caller.
        long long refreshed = std::stoll(timeText);
        double pressure = std::stod(pressureText);
        long long now = static_cast<long long>(time(nullptr));
        if (pressure == NO_SLP_MARKER) {
            ORVEX_LOGE("ERROR : Location is not supprot SLP");
            result = RESULT_NO_SLP;
        } else if (refreshed < now - MAX_AGE_SECONDS) {
            // The same as now - refreshed > 3600, without overflowing for a far-past time.
            ORVEX_LOGE("Weather has old Info");
            result = RESULT_OLD;
        } else {
            // The calibration time is the agent's observation time, not the time of receipt.
            if (OrvexStorageMgr* store = OrvexStorageMgr::getInstance()) {
                store->saveDataSLP(pressure);
                store->saveDataCalTime(refreshed);
                store->addDataSLPHistory(refreshed, pressure);
            }
            result = RESULT_STORED;
        }
    }
    // Only a listener-less application gets here without one; the answer is stored regardless.
    if (_listener != nullptr) _listener->onWeatherInfoResult(result);
}
