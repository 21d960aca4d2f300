// What a weather answer yields: pressure, its unit, the time and the position.
#ifndef WEATHER_DATA_H
#define WEATHER_DATA_H

#include <cstdint>
#include <string>

/**
 * @brief One weather observation as a weather service reported it; the sea-level pressure in it
 * is what the application calibrates with.
 */
class WeatherData {
public:
    /** @brief A record with nothing filled in: zeros, and -1 for result and provider. */
    WeatherData()
        : latitude(0.0),
          longitude(0.0),
          pressure(0.0),
          pressureUnit(0),
          updateTime(0.0),
          reservedValue1(0.0),
          reservedValue2(0.0),
          reservedValue3(0.0),
          reservedValue4(0.0),
          result(-1),
          provider(-1) {}
    /** @brief Nothing to release. */
    virtual ~WeatherData() {}

    /** @brief Latitude of the request, in degrees. */
    double latitude;
    /** @brief Longitude of the request, in degrees. */
    double longitude;
    /** @brief Sea-level pressure as the service delivered it (hPa). */
    double pressure;
    /** @brief Unit code of the pressure; always 0. */
    int32_t pressureUnit;
    /** @brief Observation time in milliseconds since the epoch. */
    double updateTime;
    /** @brief Reserved for a further weather value; not written. */
    double reservedValue1;
    /** @brief Reserved for a further weather value; not written. */
    double reservedValue2;
    /** @brief Reserved for a further weather value; not written. */
    double reservedValue3;
    /** @brief Reserved for a further weather value; not written. */
    double reservedValue4;
    /** @brief Reserved for a further text; not written. */
    std::string reservedText;
    /** @brief 0 once a full weather answer was read, -1 before. */
    int32_t result;
    /** @brief 0 for AccuWeather, 1 for The Weather Company, -1 when unknown. */
    int32_t provider;
};

#endif
