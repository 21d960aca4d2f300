#include <functional>

#include "HostFixture.h"
#include "WeatherParser.h"

using namespace orvex_test;

const char* const kGeoposition = R"({"Key": "2283045", "Type": "City", "LocalizedName": "Zermatt",
  "GeoPosition": {"Latitude": 46.021, "Elevation": {"Metric": {"Value": 1608.0, "UnitType": 5}}}})";
const char* const kCurrentConditions = R"([{"EpochTime": 1700000000, "WeatherText": "Sunny",
  "Pressure": {"Metric": {"Value": 1021.3, "Unit": "mb", "UnitType": 14},
               "Imperial": {"Value": 30.16, "Unit": "inHg", "UnitType": 12}}}])";
const char* const kTwcAggcommon = R"({"id": "46.021,7.749", "v3-wx-observations-current": {
  "pressureAltimeter": 30.14, "pressureMeanSeaLevel": 1020.6, "validTimeUtc": 1700000400}})";

const Lines kTooDeep = {"parsing is failed [nesting deeper than 64 levels]", "parsing is failed"};

// Parses a copy followed by garbage, so that only `length` bytes can count (-1 and 0: the copy
// is zero-terminated instead).
void parse(WeatherParser& p, const std::string& body, int length = -2) {
    std::vector<char> bytes(body.begin(), body.end());
    bytes.push_back(length == -1 || length == 0 ? '\0' : '#');
    p.Parse(bytes.data(), length == -2 ? static_cast<int>(body.size()) : length);
}

// A valid document nested `depth` arrays deep: [0,[0,...0]].
std::string nest(int depth) {
    std::string s;
    for (int i = 0; i < depth; ++i) s += "[0,";
    return s + "0" + std::string(depth, ']');
}

class WeatherParserTest : public HostTest {};

TEST_F(WeatherParserTest, ReadersTakeWhatTheyCanUse) {
    // A pressure without unit type or metric, or of another kind, reads 0.0 and the answer still
    // counts as read.
    const struct {
        bool twc;
        const char* body;
        double pressure, updateTime;
    } cases[] = {
        {false, kCurrentConditions, 1021.3, 1700000000000.0},
        {true, kTwcAggcommon, 1020.6, 1700000400000.0},
        {false, R"([{"EpochTime": 1, "Pressure": {"Imperial": {"Value": 3, "UnitType": 12}}}])", 0,
         1000},
        {false, R"([{"Pressure": {"Metric": {"Value": 1013.0, "Unit": "mb"}}}])", 0, 0},
        {false, R"([{"EpochTime": null, "Pressure": 1013.0}])", 0, 0},
        {false, R"([{"Pressure": {"Metric": {"Value": 1000, "UnitType": 14.0}}}])", 1000, 0},
        {false, R"([{"Pressure": {"Metric": {"Value": "high", "UnitType": "mb"}}}])", 0, 0},
        {true, R"({"v3-wx-observations-current": {"pressureMeanSeaLevel": 1019}})", 1019, 0},
        {true, R"({"v3-wx-observations-current": {"validTimeUtc": "x"}})", 0, 0},
    };
    for (const auto& c : cases) {
        WeatherParser p;
        parse(p, c.body);
        auto d = c.twc ? p.GetTWCWeatherData() : p.GetWeatherData();
        ASSERT_TRUE(d) << c.body;
        EXPECT_EQ(c.pressure, d->pressure) << c.body;
        EXPECT_EQ(c.updateTime, d->updateTime) << c.body;
        EXPECT_EQ(c.twc ? 1 : 0, d->provider) << c.body;
        EXPECT_EQ(0, d->result + d->pressureUnit) << c.body;
    }
    WeatherParser p;
    parse(p, kCurrentConditions);
    EXPECT_EQ(1021.3, p.GetAtmPressure());
    for (const char* body : {kGeoposition, R"({"Key": 2283045})"}) {
        WeatherParser geo;
        parse(geo, body);
        EXPECT_EQ("2283045", geo.GetLocationID());
    }
    // A second document replaces the first, with a complaint.
    clearLog();
    parse(p, kTwcAggcommon);
    EXPECT_EQ((Lines{"previous parser is not closed. find it !!!", "parsing is failed"}), errors());
    EXPECT_EQ(1020.6, p.GetTWCWeatherData()->pressure);
    EXPECT_EQ(-1.0, p.GetAtmPressure());
}

TEST_F(WeatherParserTest, AnswersThatDoNotFitTheReader) {
    using P = WeatherParser;
    auto weather = [](P& p) { return !p.GetWeatherData(); };
    auto atm = [](P& p) { return p.GetAtmPressure() == -1.0; };
    auto twc = [](P& p) { return !p.GetTWCWeatherData(); };
    auto key = [](P& p) { return p.GetLocationID().empty(); };
    const struct {
        std::function<bool(P&)> fails;
        const char* body;  // nullptr: no body at all
        Lines logged;
    } cases[] = {
        {weather, R"({"Pressure": {}})", {"root array null"}},
        {weather, "[1013.2]", {"weatherInfoRootObject null"}},
        {weather,
         R"([{"EpochTime": 1.9}])",
         {"update Time : 1.000000", "key [Pressure] is not found"}},
        {atm, R"({"a": 1})", {"root array null"}},
        {atm, "[]", {"weatherInfoRootObject null"}},
        {atm, R"([{"Pressure": 3}])", {"key [Pressure] is not found"}},
        {atm, R"([{"Pressure": {}}])", {"key [Metric] is not found"}},
        {atm, R"([{"Pressure": {"Metric": [1]}}])", {"key [Pressure] is not found"}},
        {atm, R"([{"Pressure": {"Metric": {"Unit": "mb"}}}])", {}},
        {twc, "[1]", {"weatherInfoRootObject null"}},
        {twc, R"({"v3-location-point": {}})", {"key [v3-wx-observations-current] is not found"}},
        {twc, R"({"v3-wx-observations-current": [{}]})", {"currentObject is null"}},
        {key, kCurrentConditions, {}},
        {key, R"({"Type": "City"})", {}},
        {key, nullptr, {"jsonData is NULL", "Failed get root node"}},
        {weather, nullptr, {"jsonData is NULL", "Failed get root node"}},
        {atm, nullptr, {"jsonData is NULL", "Failed get root node"}},
        {twc, "", {"Failed get root node"}},
    };
    for (const auto& c : cases) {
        clearLog();
        WeatherParser p;
        if (c.body)
            parse(p, c.body);
        else
            p.Parse(nullptr, 10);
        EXPECT_TRUE(c.fails(p)) << (c.body ? c.body : "(null)");
        EXPECT_EQ(c.logged, errors()) << (c.body ? c.body : "(null)");
    }
}

TEST_F(WeatherParserTest, BodiesNestedTooDeepAreRefusedLikeAnyBodyThatIsNotJson) {
    enum Outcome { READ, TOO_DEEP, NOT_JSON };
    const struct {
        std::string body;
        int length;  // -2: the whole body
        Outcome outcome;
    } cases[] = {
        {nest(64), -2, READ},
        {nest(65), -2, TOO_DEEP},
        {std::string(65, '{'), -2, TOO_DEEP},
        {"[\"" + std::string(100, '[') + "\"]", -2, READ},
        {"[\"\\\"" + std::string(100, '[') + "\"]", -2, READ},  // after an escaped quote
        {"[\"\\\\\"," + nest(65) + "]", -2, TOO_DEEP},          // after an escaped backslash
        {std::string(10, ']') + nest(65), -2, TOO_DEEP},
        {"[0]" + nest(64), -2, READ},
        {"[0]" + std::string(100, '['), 3, READ},
        {std::string(100, '['), 0, READ},
        {nest(65), -1, TOO_DEEP},
        {"<html><body>500 Internal Server Error</body></html>", -2, NOT_JSON},
        // A mebibyte of brackets, far beyond what the stack can take recursively.
        {std::string(1 << 20, '['), -2, TOO_DEEP},
    };
    const Lines outcomes[] = {{}, kTooDeep, {"parsing is failed [json-glib]", "parsing is failed"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body.substr(0, 20) + " length " + std::to_string(c.length));
        clearLog();
        WeatherParser p;
        parse(p, c.body, c.length);
        // json-glib's own reason for a body that is not JSON varies with its version.
        Lines logged = errors();
        if (logged.size() == 2 && logged != kTooDeep &&
            logged[0].rfind("parsing is failed [", 0) == 0)
            logged[0] = "parsing is failed [json-glib]";
        EXPECT_EQ(outcomes[c.outcome], logged);
    }
}
