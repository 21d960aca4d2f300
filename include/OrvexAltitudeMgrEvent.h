// What the altitude manager tells its listener: the weather data it found, or that it failed.
#ifndef ORVEX_ALTITUDE_MGR_EVENT_H
#define ORVEX_ALTITUDE_MGR_EVENT_H

#include <tr1/memory>

#include "WeatherData.h"

/** @brief What the application hears back from a weather-service calibration. */
class OrvexAltitudeMgrEvent {
public:
    /** @brief Listeners are owned by the application. */
    virtual ~OrvexAltitudeMgrEvent() {}

    /** @brief The weather at the requested position; check its pressure before calibrating. */
    virtual void OnWeatherDataCompleted(std::tr1::shared_ptr<WeatherData> data) = 0;
    /** @brief The request failed (not raised when it timed out or was cancelled). */
    virtual void OnWeatherDataFailed() = 0;
};

#endif
