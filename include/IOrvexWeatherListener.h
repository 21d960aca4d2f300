// What the weather-agent client tells the application: the outcome of a weather request.
#ifndef I_ORVEX_WEATHER_LISTENER_H
#define I_ORVEX_WEATHER_LISTENER_H

/** @brief What the application hears back from a weather-agent calibration. */
class IOrvexWeatherListener {
public:
    /** @brief Listeners are owned by the application. */
    virtual ~IOrvexWeatherListener() {}

    /**
     * @brief One answer of the weather agent: 0 stored as the new sea-level pressure, 1 older
     * than an hour, 2 time or pressure missing, 3 no sea-level pressure for the location.
     */
    virtual void onWeatherInfoResult(int result) = 0;
};

#endif
