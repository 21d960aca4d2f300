#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "HostFixture.h"
#include "WeatherParser.h"

using orvex_test::errors;

namespace {

const char* const kGeoposition = R"({
  "Version": 1, "Key": "2283045", "Type": "City", "Rank": 45,
  "LocalizedName": "Zermatt", "EnglishName": "Zermatt", "PrimaryPostalCode": "",
  "Region": {"ID": "EUR", "LocalizedName": "Europe"},
  "Country": {"ID": "CH", "LocalizedName": "Switzerland"},
  "TimeZone": {"Code": "CET", "Name": "Europe/Zurich", "GmtOffset": 1.0},
  "GeoPosition": {"Latitude": 46.021, "Longitude": 7.749,
                  "Elevation": {"Metric": {"Value": 1608.0, "Unit": "m", "UnitType": 5}}},
  "IsAlias": false
})";

const char* const kCurrentConditions = R"([{
  "LocalObservationDateTime": "2026-11-22T14:05:00+01:00",
  "EpochTime": 1700000000,
  "WeatherText": "Partly sunny", "WeatherIcon": 3, "HasPrecipitation": false,
  "IsDayTime": true,
  "Temperature": {"Metric": {"Value": 4.4, "Unit": "C", "UnitType": 17},
                  "Imperial": {"Value": 40.0, "Unit": "F", "UnitType": 18}},
  "Pressure": {"Metric": {"Value": 1021.3, "Unit": "mb", "UnitType": 14},
               "Imperial": {"Value": 30.16, "Unit": "inHg", "UnitType": 12}},
  "PressureTendency": {"LocalizedText": "Steady", "Code": "S"},
  "MobileLink": "http://example.invalid/m", "Link": "http://example.invalid/"
}])";

const char* const kTwcAggcommon = R"({
  "id": "46.021,7.749",
  "v3-location-point": {"location": {"latitude": 46.02, "longitude": 7.75, "city": "Zermatt"}},
  "v3-wx-observations-current": {
    "cloudCover": 40, "dayOfWeek": "Sunday", "iconCode": 30,
    "pressureAltimeter": 30.14, "pressureChange": -0.01, "pressureMeanSeaLevel": 1020.6,
    "pressureTendencyCode": 0, "relativeHumidity": 71, "temperature": 4,
    "validTimeLocal": "2026-11-22T14:00:00+0100", "validTimeUtc": 1700000400,
    "wxPhraseLong": "Partly Cloudy"
  },
  "v3-links": {"data": []}
})";

class WeatherParserTest : public orvex_test::HostTest {
protected:
    // Parses a copy that is not zero-terminated, to show that the length is what counts.
    static void parse(WeatherParser& p, const std::string& body) {
        std::vector<char> bytes(body.begin(), body.end());
        bytes.push_back('#');  // trailing garbage after the length
        p.Parse(bytes.data(), static_cast<int>(body.size()));
    }
};

TEST_F(WeatherParserTest, LocationKey) {
    WeatherParser p;
    parse(p, kGeoposition);
    EXPECT_EQ("2283045", p.GetLocationID());
    EXPECT_EQ("2283045", p.GetLocationID());  // readers only read
    EXPECT_TRUE(errors().empty());

    WeatherParser noKey;
    parse(noKey, R"({"Type":"City"})");
    EXPECT_EQ("", noKey.GetLocationID());
    WeatherParser arrayRoot;
    parse(arrayRoot, kCurrentConditions);
    EXPECT_EQ("", arrayRoot.GetLocationID());
    WeatherParser numericKey;
    parse(numericKey, R"({"Key": 2283045})");
    EXPECT_EQ("2283045", numericKey.GetLocationID());
    EXPECT_TRUE(errors().empty());
}

TEST_F(WeatherParserTest, CurrentConditions) {
    WeatherParser p;
    parse(p, kCurrentConditions);
    std::tr1::shared_ptr<WeatherData> d = p.GetWeatherData();
    ASSERT_TRUE(d);
    EXPECT_EQ(1021.3, d->pressure);
    EXPECT_EQ(0, d->pressureUnit);
    EXPECT_EQ(1700000000000.0, d->updateTime);
    EXPECT_EQ(0, d->result);
    EXPECT_EQ(0, d->provider);
    EXPECT_EQ(0.0, d->latitude);
    EXPECT_EQ(0.0, d->reservedValue1);
    EXPECT_EQ("", d->reservedText);
    EXPECT_EQ(std::vector<std::string>{"update Time : 1700000000.000000"}, errors());

    orvex_test::clearLog();
    EXPECT_EQ(1021.3, p.GetAtmPressure());
    EXPECT_EQ(std::vector<std::string>{"atm pressure : 1021.300000"}, errors());
}

TEST_F(WeatherParserTest, CurrentConditionsWithoutAUsablePressure) {
    // No failure: the record comes back with 0.0 where the value was not usable.
    for (const char* body :
         {R"([{"EpochTime": 1, "Pressure": {"Imperial": {"Value": 30.1, "UnitType": 12}}}])",
          R"([{"Pressure": {"Metric": {"Value": 1013.0, "Unit": "mb"}}}])",
          R"([{"Pressure": {"Metric": 1013.0}}])", R"([{"Pressure": 1013.0}])"}) {
        WeatherParser p;
        parse(p, body);
        auto d = p.GetWeatherData();
        ASSERT_TRUE(d) << body;
        EXPECT_EQ(0.0, d->pressure) << body;
        EXPECT_EQ(0, d->result);
        EXPECT_EQ(0, d->provider);
    }
    WeatherParser noTime;
    parse(noTime, R"([{"Pressure": {"Metric": {"Value": 1000, "UnitType": 14}}}])");
    auto d = noTime.GetWeatherData();
    ASSERT_TRUE(d);
    EXPECT_EQ(1000.0, d->pressure);  // an integer where a double is expected
    EXPECT_EQ(0.0, d->updateTime);
}

TEST_F(WeatherParserTest, CurrentConditionsFailures) {
    struct Case {
        const char* body;
        std::vector<std::string> logged;
    } cases[] = {
        {R"({"Pressure": {}})", {"root array null"}},
        {"[]", {"weatherInfoRootObject null"}},
        {"[1013.2]", {"weatherInfoRootObject null"}},
        {R"([{"EpochTime": 1700000000.9}])",
         {"update Time : 1700000000.000000", "key [Pressure] is not found"}},
    };
    for (const auto& c : cases) {
        orvex_test::clearLog();
        WeatherParser p;
        parse(p, c.body);
        EXPECT_FALSE(p.GetWeatherData()) << c.body;
        EXPECT_EQ(c.logged, errors()) << c.body;
    }
}

TEST_F(WeatherParserTest, AtmosphericPressureFailures) {
    struct Case {
        const char* body;
        const char* logged;  // nullptr: silent
    } cases[] = {
        {R"({"a": 1})", "root array null"},
        {"[]", "weatherInfoRootObject null"},
        {R"([{}])", "key [Pressure] is not found"},
        {R"([{"Pressure": 3}])", "key [Pressure] is not found"},
        {R"([{"Pressure": {}}])", "key [Metric] is not found"},
        {R"([{"Pressure": {"Metric": [1]}}])", "key [Pressure] is not found"},
        {R"([{"Pressure": {"Metric": {"Unit": "mb"}}}])", nullptr},
    };
    for (const auto& c : cases) {
        orvex_test::clearLog();
        WeatherParser p;
        parse(p, c.body);
        EXPECT_EQ(-1.0, p.GetAtmPressure()) << c.body;
        EXPECT_EQ(c.logged ? std::vector<std::string>{c.logged} : std::vector<std::string>{},
                  errors())
            << c.body;
    }
}

TEST_F(WeatherParserTest, TwcObservation) {
    WeatherParser p;
    parse(p, kTwcAggcommon);
    auto d = p.GetTWCWeatherData();
    ASSERT_TRUE(d);
    EXPECT_EQ(1020.6, d->pressure);
    EXPECT_EQ(1700000400000.0, d->updateTime);
    EXPECT_EQ(0, d->result);
    EXPECT_EQ(1, d->provider);
    EXPECT_TRUE(errors().empty());

    WeatherParser noSlp;
    parse(noSlp, R"({"v3-wx-observations-current": {"validTimeUtc": 5, "temperature": 4}})");
    d = noSlp.GetTWCWeatherData();
    ASSERT_TRUE(d);
    EXPECT_EQ(0.0, d->pressure);
    EXPECT_EQ(5000.0, d->updateTime);
    EXPECT_EQ(1, d->provider);

    WeatherParser intSlp;
    parse(intSlp, R"({"v3-wx-observations-current": {"pressureMeanSeaLevel": 1019}})");
    EXPECT_EQ(1019.0, intSlp.GetTWCWeatherData()->pressure);
}

TEST_F(WeatherParserTest, TwcFailures) {
    const std::pair<const char*, const char*> cases[] = {
        {"[1]", "weatherInfoRootObject null"},
        {R"({"v3-location-point": {}})", "key [v3-wx-observations-current] is not found"},
        {R"({"v3-wx-observations-current": null})", "currentObject is null"},
        {R"({"v3-wx-observations-current": [{}]})", "currentObject is null"},
    };
    for (const auto& [body, logged] : cases) {
        orvex_test::clearLog();
        WeatherParser p;
        parse(p, body);
        EXPECT_FALSE(p.GetTWCWeatherData()) << body;
        EXPECT_EQ(std::vector<std::string>{logged}, errors()) << body;
    }
}

TEST_F(WeatherParserTest, BodiesThatDoNotParse) {
    WeatherParser none;
    none.Parse(nullptr, 10);
    EXPECT_EQ(std::vector<std::string>{"jsonData is NULL"}, errors());
    orvex_test::clearLog();
    EXPECT_EQ("", none.GetLocationID());
    EXPECT_FALSE(none.GetWeatherData());
    EXPECT_FALSE(none.GetTWCWeatherData());
    EXPECT_EQ(-1.0, none.GetAtmPressure());
    EXPECT_EQ(std::vector<std::string>(4, "Failed get root node"), errors());

    orvex_test::clearLog();
    WeatherParser html;
    parse(html, "<html><body>500 Internal Server Error</body></html>");
    auto logged = errors();
    ASSERT_EQ(2u, logged.size());
    EXPECT_TRUE(std::regex_match(logged[0], std::regex("parsing is failed \\[.+\\]"))) << logged[0];
    EXPECT_EQ("parsing is failed", logged[1]);
    EXPECT_FALSE(html.GetWeatherData());

    orvex_test::clearLog();
    WeatherParser empty;
    char nothing[1] = {'\0'};
    empty.Parse(nothing, 0);
    EXPECT_FALSE(empty.GetTWCWeatherData());
    EXPECT_EQ("Failed get root node", errors().back());
}

TEST_F(WeatherParserTest, SecondParseComplainsAndReadsTheNewDocument) {
    WeatherParser p;
    parse(p, kGeoposition);
    orvex_test::clearLog();
    parse(p, kTwcAggcommon);
    EXPECT_EQ((std::vector<std::string>{"previous parser is not closed. find it !!!",
                                        "parsing is failed"}),
              errors());
    EXPECT_EQ(1020.6, p.GetTWCWeatherData()->pressure);
    EXPECT_EQ("", p.GetLocationID());
}

TEST_F(WeatherParserTest, ValueHelpersConvertWhatTheyCanAndNeverTripGLib) {
    const char* doc =
        R"({"i": 42, "d": 2.75, "s": "text", "b": true, "n": null, "o": {}, "a": []})";
    WeatherParser p;
    JsonParser* tree = json_parser_new();
    ASSERT_TRUE(json_parser_load_from_data(tree, doc, -1, nullptr));
    JsonObject* o = json_node_get_object(json_parser_get_root(tree));
    auto node = [&](const char* name) { return json_object_get_member(o, name); };
    EXPECT_EQ(42.0, p.GetDoubleValue(node("i")));
    EXPECT_EQ(2.75, p.GetDoubleValue(node("d")));
    EXPECT_EQ(2, p.GetInt64Value(node("d")));
    EXPECT_EQ(2, p.GetIntValue(node("d")));
    EXPECT_EQ(42, p.GetIntValue(node("i")));
    EXPECT_EQ("text", p.GetStringValue(node("s")));
    EXPECT_EQ("42", p.GetStringValue(node("i")));
    for (const char* name : {"n", "o", "a"}) {
        EXPECT_EQ(0.0, p.GetDoubleValue(node(name))) << name;
        EXPECT_EQ(0, p.GetInt64Value(node(name))) << name;
        EXPECT_EQ("", p.GetStringValue(node(name))) << name;
    }
    EXPECT_EQ(0, p.GetIntValue(nullptr));

    auto unit = p.GetDoubleValueUnit(nullptr, "Metric");
    EXPECT_EQ(-1, unit.unitType);
    EXPECT_EQ(0.0, unit.value);
    EXPECT_EQ("", unit.unit);
    unit = p.GetDoubleValueUnit(node("o"), "Metric");
    EXPECT_EQ(-1, unit.unitType);
    EXPECT_TRUE(errors().empty());
    g_object_unref(tree);
}

}  // namespace
