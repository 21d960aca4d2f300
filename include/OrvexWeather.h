// The weather-agent client: asks the platform's weather agent for the sea-level pressure.
#ifndef ORVEX_WEATHER_H
#define ORVEX_WEATHER_H

#include <platform/bundle.h>

#include <string>

#include "IOrvexWeatherListener.h"

/**
 * @brief Calibrates the sea-level pressure from the platform's weather agent.
 *
 * The agent is launched with the name of a local message port and answers on it; a fresh answer
 * is stored (sea-level pressure, calibration time, history entry) before the listener hears the
 * result. Main loop only.
 */
class OrvexWeather {
public:
    /** @brief Registers the reply port and makes listener (when not null) the class's listener. */
    explicit OrvexWeather(IOrvexWeatherListener* listener);
    /** @brief Unregisters the reply port; the listener stays. */
    virtual ~OrvexWeather();

    /** @brief Asks the agent for its current weather; false when the request could not be sent. */
    bool requestWeatherInfo();

    /** @brief The reply port's handler: checks, stores and reports one answer. */
    static void _MessagePortCallback(int localPortId, const char* remoteAppId,
                                     const char* remotePort, bool trustedRemotePort,
                                     bundle* message, void* userData);
    /** @brief The string under key, or "" when the bundle, the key or its value is missing. */
    static std::string _bundleGetString(bundle* b, const char* key);

private:
    OrvexWeather(const OrvexWeather&) = delete;
    OrvexWeather& operator=(const OrvexWeather&) = delete;

    int mLocalPortId;

    static IOrvexWeatherListener* _listener;
};

#endif
