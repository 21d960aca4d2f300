// The weather agent's Open-Meteo back end against a local HTTPS server replaying recorded answers.
#include <climits>
#include <fstream>
#include <map>

#include <orvex_host/app_control_control.h>
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

// Recorded answers live beside the repository.
std::string recorded(const std::string& name) {
    std::ifstream in(std::string(__FILE__).erase(std::string(__FILE__).rfind("/tests/")) +
                     "/../shared/reference-data/board/" + name);
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

TEST_F(WeatherAgentHostTest, AnswersWithTheRecordedPressureOrSaysWhyNot) {
    TestHttpServer server(TestHttpServer::Mode::Https);
    orvex_host_agent_set_backend("open-meteo");
    orvex_host_agent_set_url(server.url("/").c_str());
    orvex_host_agent_set_timeout_ms(workMs(400));
    orvex_host_location_set_position(53.1875, 50.125, 40.0);
    const HttpRoute answer{200, {}, recorded("open-meteo-answer.json")};
    const HttpRoute refusal{400, {}, recorded("open-meteo-error.json")};
    const HttpRoute silent{200, {}, "", false, 0, true};
    const std::string noSlp = "Open-Meteo's answer has no current pressure_msl and time";
    const std::string unreachable = "Open-Meteo could not be reached: ";
    struct Case {
        HttpRoute route;
        bool trusted;  // verified against the test CA rather than the host's bundle
        const char* proxy;
        std::string problem;  // the start of it; none: the recorded pressure at its time
    } cases[] = {
        {answer, true, "", ""},
        {refusal, true, "", "Open-Meteo answered HTTP 400: Latitude must be in range"},
        {{200, {}, "{\"current\":{\"time\":1789459200}}"}, true, "", noSlp},
        {{200, {}, "<html>"}, true, "", noSlp},
        {silent, true, "", unreachable + "Operation timed out"},
        {answer, false, "", unreachable + "SSL certificate problem"},
        {answer, true, "http://127.0.0.1:1", unreachable + "Failed to connect"},
    };
    const Entries recordedAnswer{{"refreshedTime", "1789459200"}, {"pressure", "1017.00"}};
    Entries reply;
    ASSERT_GE(message_port_register_local_port("reply.port", receive, &reply), 0);
    for (const Case& c : cases) {
        server.route("/v1/forecast", c.route);
        orvex_host_agent_set_ca_file(c.trusted ? TestHttpServer::caFile().c_str() : nullptr);
        orvex_host_connection_set_proxy(c.proxy);
        reply.clear();
        ask();
        const int asked = orvex_host_agent_request_count() + 1;
        ASSERT_TRUE(runUntil([&] {
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
