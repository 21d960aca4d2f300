// The weather parser on each kind of answer, broken and hostile ones included.
#include <cstdio>
#include <functional>

#include "HostFixture.h"
#include "WeatherParser.h"

using namespace orvex_test;

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

// A record as "pressure update-time provider result unit", or "none".
std::string record(const std::tr1::shared_ptr<WeatherData>& d) {
    if (!d) return "none";
    char text[96];
    snprintf(text, sizeof text, "%g %.0f %d%d%d", d->pressure, d->updateTime, d->provider,
             d->result, d->pressureUnit);
    return text;
}

class WeatherParserTest : public HostTest {};

TEST_F(WeatherParserTest, EachReaderTakesWhatItCanUseAndNamesWhatIsMissing) {
    using P = WeatherParser;
    auto wx = [](P& p) { return record(p.GetWeatherData()); };
    auto twc = [](P& p) { return record(p.GetTWCWeatherData()); };
    auto atm = [](P& p) { return std::to_string(p.GetAtmPressure()); };
    auto key = [](P& p) { return p.GetLocationID(); };
    const Lines kNoBody = {"jsonData is NULL", "Failed get root node"};
    const char* const kNoPressure = "key [Pressure] is not found";
    // A pressure without unit type or metric, or of another kind, reads 0 and the answer still
    // counts as read.
    const struct {
        std::function<std::string(P&)> read;
        const char* body;  // nullptr: no body at all
        std::string expected;
        Lines logged;
    } cases[] = {
        {wx, kCurrentConditions, "1021.3 1700000000000 000", {"update Time : 1700000000.000000"}},
        {wx,
         R"([{"EpochTime":1,"Pressure":{"Imperial":{}}}])",
         "0 1000 000",
         {"update Time : 1.000000"}},
        {wx, R"([{"Pressure":{"Metric":{"Value":1013.0,"Unit":"mb"}}}])", "0 0 000", {}},
        {wx, R"([{"EpochTime":null,"Pressure":1013.0}])", "0 0 000", {"update Time : 0.000000"}},
        {wx, R"([{"Pressure":{"Metric":{"Value":1000,"UnitType":14.0}}}])", "1000 0 000", {}},
        {wx, R"([{"Pressure":{"Metric":{"Value":"high","UnitType":"mb"}}}])", "0 0 000", {}},
        {wx, R"({"Pressure":{}})", "none", {"root array null"}},
        {wx, "[1013.2]", "none", {"weatherInfoRootObject null"}},
        {wx, R"([{"EpochTime":1.9}])", "none", {"update Time : 1.000000", kNoPressure}},
        {wx, nullptr, "none", kNoBody},
        {twc, kTwcAggcommon, "1020.6 1700000400000 100", {}},
        {twc, R"({"v3-wx-observations-current":{"pressureMeanSeaLevel":1019}})", "1019 0 100", {}},
        {twc, R"({"v3-wx-observations-current":{"validTimeUtc":"x"}})", "0 0 100", {}},
        {twc, "[1]", "none", {"weatherInfoRootObject null"}},
        {twc, R"({"a":{}})", "none", {"key [v3-wx-observations-current] is not found"}},
        {twc, R"({"v3-wx-observations-current":[{}]})", "none", {"currentObject is null"}},
        {twc, "", "none", {"Failed get root node"}},
        {atm, kCurrentConditions, "1021.300000", {"atm pressure : 1021.300000"}},
        {atm, R"({"a":1})", "-1.000000", {"root array null"}},
        {atm, "[]", "-1.000000", {"weatherInfoRootObject null"}},
        {atm, R"([{"Pressure":3}])", "-1.000000", {kNoPressure}},
        {atm, R"([{"Pressure":{}}])", "-1.000000", {"key [Metric] is not found"}},
        {atm, R"([{"Pressure":{"Metric":[1]}}])", "-1.000000", {kNoPressure}},
        {atm, R"([{"Pressure":{"Metric":{"Unit":"mb"}}}])", "-1.000000", {}},
        {atm, nullptr, "-1.000000", kNoBody},
        {key, R"({"Key":"2283045","Type":"City"})", "2283045", {}},
        {key, R"({"Key":2283045})", "2283045", {}},
        {key, kCurrentConditions, "", {}},
        {key, R"({"Type":"City","Key":null})", "", {}},
        {key, nullptr, "", kNoBody},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body ? c.body : "(null)");
        clearLog();
        WeatherParser p;
        if (c.body)
            parse(p, c.body);
        else
            p.Parse(nullptr, 10);
        EXPECT_EQ(c.expected, c.read(p));
        EXPECT_EQ(c.logged, errors());
    }
    // A second document replaces the first, with a complaint.
    WeatherParser p;
    parse(p, kCurrentConditions);
    clearLog();
    parse(p, kTwcAggcommon);
    EXPECT_EQ((Lines{"previous parser is not closed. find it !!!", "parsing is failed"}), errors());
    EXPECT_EQ("1020.6 1700000400000 100", twc(p));
    EXPECT_EQ("-1.000000", atm(p));
    // A unit type that is no number reads 0 (what reading it as an int gives), not "not found".
    JsonNode* metric = json_from_string(R"({"Metric":{"UnitType":"mb"}})", nullptr);
    EXPECT_EQ(0, p.GetDoubleValueUnit(metric, "Metric").unitType);
    json_node_unref(metric);
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
