// The weather agent's Open-Meteo back end against a local HTTPS server replaying recorded answers.
#include <climits>
#include <fstream>
#include <map>

#include <orvex_host/agent_control.h>
#include <orvex_host/connection_control.h>
#include <orvex_host/location_control.h>
#include <platform/app_control.h>
#include <platform/message_port.h>

#include "HostFixture.h"
#include "MainLoop.h"
#include "TestHttpServer.h"

using namespace orvex_test;

using Entries = std::map<std::string, std::string>;

namespace {

std::string recorded(const std::string& name) {
    std::ifstream in(ORVEX_TEST_DATA "/" + name);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void receive(int, const char*, const char*, bool, bundle* message, void* entries) {
    bundle_iterate(
        message, [](const char* k, const char* v, void* e) { (*static_cast<Entries*>(e))[k] = v; },
        entries);
}

// Asks the weather agent as the library does, with replies to "reply.port".
void ask() {
    app_control_h request = nullptr;
    ASSERT_EQ(0, app_control_create(&request));
    app_control_set_app_id(request, "com.marveno.weather-agent");
    app_control_add_extra_data(request, "MESSAGE", "GET_CURRENT_WEATHER_INFO");
    app_control_add_extra_data(request, "PORT_ID", "reply.port");
    ASSERT_EQ(0, app_control_send_launch_request(request, nullptr, nullptr));
}

using WeatherAgentHostTest = HostTest;

TEST_F(WeatherAgentHostTest, TheSimulatorsObservationTimeNeverWraps) {
    Entries reply;
    ASSERT_GE(message_port_register_local_port("reply.port", receive, &reply), 0);
    orvex_host_agent_set_age(LLONG_MIN);
    ask();
    ASSERT_TRUE(runUntil([&] { return !reply.empty(); }));
    EXPECT_EQ(std::to_string(LLONG_MAX), reply["refreshedTime"]);
}

// An answer of Open-Meteo with the current pressure and time as given, and more at the root.
std::string current(const std::string& slp, const std::string& time, const std::string& more = "") {
    return "{" + more + "\"current\":{\"time\":" + time + ",\"pressure_msl\":" + slp + "}}";
}

TEST_F(WeatherAgentHostTest, AnswersWithAPlausiblePressureOrSaysWhyNot) {
    TestHttpServer server(TestHttpServer::Mode::Https);
    orvex_host_agent_set_backend("open-meteo");
    orvex_host_agent_set_url(server.url("/").c_str());
    orvex_host_agent_set_timeout_ms(workMs(400));
    orvex_host_location_set_position(53.1875, 50.125, 40.0);
    const HttpRoute answer{200, {}, recorded("open-meteo-answer.json")};
    const HttpRoute refusal{400, {}, recorded("open-meteo-error.json")};
    const HttpRoute silent{200, {}, "", false, 0, true};
    const std::string noSlp = "Open-Meteo's answer has no current pressure_msl and time";
    const std::string unusable = "Open-Meteo's answer has no usable pressure_msl";
    const std::string unreachable = "Open-Meteo could not be reached: ";
    const std::string deep = "Open-Meteo's answer nests deeper than 64 levels";
    const std::string slpBounds = " hPa is implausible (a sea-level pressure is 850 to 1100 hPa)";
    const std::string timeBounds = " is implausible (not between 2000 and 2100)";
    const std::string now = "1789459200", fine = "1017";
    std::string nestedObjects;
    for (int i = 0; i < 100000; ++i) nestedObjects += "{\"a\":";
    const std::string longReason(10000, 'x');
    struct Case {
        const char* name;
        HttpRoute route;
        bool trusted;  // verified against the test CA rather than the host's bundle
        const char* proxy;
        std::string problem;  // the start of it; none: the recorded pressure at its time
    } cases[] = {
        // clang-format off
        {"recorded answer", answer, true, "", ""},
        {"recorded refusal", refusal, true, "", "Open-Meteo answered HTTP 400: Latitude must be in range"},
        {"no pressure", {200, {}, "{\"current\":{\"time\":1789459200}}"}, true, "", noSlp},
        {"not JSON", {200, {}, "<html>"}, true, "", noSlp},
        {"silent server", silent, true, "", unreachable + "Operation timed out"},
        {"untrusted certificate", answer, false, "", unreachable + "SSL certificate problem"},
        {"proxy refuses", answer, true, "http://127.0.0.1:1", unreachable + "Failed to connect"},
        {"1 MiB of [", {200, {}, std::string(1 << 20, '[')}, true, "", deep},
        {"nested objects", {200, {}, nestedObjects}, true, "", deep},
        {"over 1 MiB", {200, {}, current(fine, now) + std::string(1 << 20, ' ')}, true, "", "Open-Meteo's answer is larger than 1 MiB"},
        {"pressure true", {200, {}, current("true", now)}, true, "", unusable},
        {"pressure 2000", {200, {}, current("2000", now)}, true, "", "Open-Meteo's pressure_msl 2000" + slpBounds},
        {"pressure 1e308", {200, {}, current("1e308", now)}, true, "", "Open-Meteo's pressure_msl 1e+308" + slpBounds},
        {"time in 2100", {200, {}, current(fine, "4102444801")}, true, "", "Open-Meteo's time 4102444801" + timeBounds},
        {"time INT64_MAX", {200, {}, current(fine, "9223372036854775807")}, true, "", "Open-Meteo's time 9223372036854775807" + timeBounds},
        {"local time in 2100", {200, {}, current(fine, "\"2100-01-01T01:00\"", "\"utc_offset_seconds\":0,")}, true, "", "Open-Meteo's time 4102448400" + timeBounds},
        {"huge utc offset", {200, {}, current(fine, "\"2026-09-15T12:00\"", "\"utc_offset_seconds\":" + now + ",")}, true, "", "Open-Meteo's utc_offset_seconds is implausible"},
        {"escape codes in the reason", {400, {}, "{\"reason\":\"\\u001b[2J\\r\\nforged line\"}"}, true, "", "Open-Meteo answered HTTP 400: \x1b[2J\r\nforged line"},
        {"a reason of 10,000 bytes", {400, {}, "{\"reason\":\"" + longReason + "\"}"}, true, "", "Open-Meteo answered HTTP 400: " + longReason.substr(0, 200) + "..."},
        {"deep error body", {500, {}, std::string(1 << 20, '[')}, true, "", "Open-Meteo answered HTTP 500"},
        // clang-format on
    };
    const Entries recordedAnswer{{"refreshedTime", "1789459200"}, {"pressure", "1017.00"}};
    Entries reply;
    ASSERT_GE(message_port_register_local_port("reply.port", receive, &reply), 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        server.route("/v1/forecast", c.route);
        orvex_host_agent_set_ca_file(c.trusted ? TestHttpServer::caFile().c_str() : nullptr);
        orvex_host_connection_set_proxy(c.proxy);
        reply.clear();
        ask();
        const int asked = orvex_host_agent_request_count() + 1;
        EXPECT_TRUE(runUntil([&] {
            return orvex_host_agent_request_count() == asked &&
                   (!reply.empty() || orvex_host_agent_problem() != nullptr);
        }));
        EXPECT_EQ(c.problem.empty() ? recordedAnswer : Entries(), reply);
        std::string problem = orvex_host_agent_problem() ? orvex_host_agent_problem() : "";
        EXPECT_EQ(c.problem, c.problem.empty() ? problem : problem.substr(0, c.problem.size()));
        EXPECT_EQ(0, orvex_host_agent_fetches());
    }
    EXPECT_EQ("latitude=53.1875&longitude=50.1250&current=pressure_msl&timeformat=unixtime",
              server.requests().at(0).query);
}

}  // namespace
