// Reads the weather services' JSON answers.
#ifndef WEATHER_PARSER_H
#define WEATHER_PARSER_H

#include <json-glib/json-glib.h>

#include <cstdint>
#include <string>
#include <tr1/memory>

#include "WeatherData.h"

/**
 * @brief Reads one weather-service answer: the AccuWeather location key, AccuWeather current
 * conditions or The Weather Company's observation.
 *
 * Single use: construct, Parse() once, call the reader that fits the answer, destroy. Readers
 * never throw; failures are an empty result and a log line.
 */
class WeatherParser {
public:
    /** @brief A number with its unit as AccuWeather sends it ("Value", "Unit", "UnitType"). */
    class DoubleValueUnit {
    public:
        /** @brief Nothing read yet: 0.0, empty unit, unit type -1. */
        DoubleValueUnit() : value(0.0), unitType(-1) {}
        /** @brief Nothing to release. */
        virtual ~DoubleValueUnit() {}

        /** @brief The number; 0.0 when absent. */
        double value;
        /** @brief The unit's text; empty when absent. */
        std::string unit;
        /** @brief The unit's code; -1 when absent, which callers treat as "not found". */
        int32_t unitType;
    };

    /** @brief "Key": the AccuWeather location key. */
    static const std::string PARSE_KEY_LOCATION_ID;
    /** @brief "EpochTime": AccuWeather observation time in seconds. */
    static const std::string PARSE_KEY_EPOCH_TIME;
    /** @brief "Pressure": AccuWeather pressure object. */
    static const std::string PARSE_KEY_ATM_PRESSURE;
    /** @brief "Metric": the metric value-with-unit inside it. */
    static const std::string PARSE_KEY_METRIC;
    /** @brief "Value". */
    static const std::string PARSE_KEY_VALUE;
    /** @brief "Unit". */
    static const std::string PARSE_KEY_UNIT_STR;
    /** @brief "UnitType". */
    static const std::string PARSE_KEY_UNIT_TYPE;
    /** @brief "Localized". */
    static const std::string PARSE_KEY_LOCALIZED;
    /** @brief "v3-wx-observations-current": The Weather Company's observation object. */
    static const std::string PARSE_KEY_TWC_CURRENT;
    /** @brief "pressureMeanSeaLevel". */
    static const std::string PARSE_KEY_TWC_SLP;
    /** @brief "validTimeUtc". */
    static const std::string PARSE_KEY_TWC_TIME;

    /** @brief Nothing parsed yet. */
    WeatherParser();
    /** @brief Releases the parsed document. */
    virtual ~WeatherParser();

    /** @brief Parses a whole body of length bytes (-1: zero-terminated). */
    void Parse(char* data, int length);
    /** @brief The location key of a geoposition answer, or an empty string. */
    std::string GetLocationID();
    /** @brief The AccuWeather current conditions, or an empty pointer. */
    std::tr1::shared_ptr<WeatherData> GetWeatherData();
    /** @brief The Weather Company observation, or an empty pointer. */
    std::tr1::shared_ptr<WeatherData> GetTWCWeatherData();
    /** @brief The AccuWeather metric pressure alone, or -1.0. */
    double GetAtmPressure();

    /** @brief A scalar node's value as a double (0.0 for anything else). */
    double GetDoubleValue(JsonNode* node);
    /** @brief A scalar node's value as a 64-bit integer (0 for anything else). */
    int64_t GetInt64Value(JsonNode* node);
    /** @brief A scalar node's value as an int (0 for anything else). */
    int GetIntValue(JsonNode* node);
    /** @brief A scalar node's value as text (empty for anything else). */
    std::string GetStringValue(JsonNode* node);
    /** @brief The value-with-unit object under key in the object node. */
    DoubleValueUnit GetDoubleValueUnit(JsonNode* node, std::string key);

private:
    WeatherParser(const WeatherParser&) = delete;
    WeatherParser& operator=(const WeatherParser&) = delete;

    JsonParser* parser;
    JsonNode* root;
};

#endif
