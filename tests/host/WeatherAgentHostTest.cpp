// The weather agent's Open-Meteo back end against a local HTTPS server replaying recorded answers.
#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <orvex_host/app_control_control.h>
#include <orvex_host/connection_control.h>
#include <orvex_host/location_control.h>
#include <platform/app_control.h>
#include <platform/message_port.h>

#include "HostFixture.h"
#include "MainLoop.h"
#include "OrvexStorageMgr.h"
#include "OrvexWeather.h"
#include "TestHttpServer.h"

using orvex_test::HttpRoute;
using orvex_test::TestHttpServer;

namespace {

// Recorded answers live beside the repository (one level up from a checkout, two from a worktree).
std::string recorded(const std::string& name) {
    std::string root = __FILE__;
    root.erase(root.rfind("/tests/"));
    for (const char* up :
         {"/../shared/reference-data/board/", "/../../shared/reference-data/board/"}) {
        std::ifstream in(root + up + name);
        if (in) return std::string(std::istreambuf_iterator<char>(in), {});
    }
    ADD_FAILURE() << "no recorded " << name;
    return "";
}

void receive(int, const char*, const char*, bool, bundle* message, void* data) {
    bundle_iterate(
        message,
        [](const char* k, const char* v, void* d) {
            (*static_cast<std::map<std::string, std::string>*>(d))[k] = v;
        },
        data);
}

struct Listener : IOrvexWeatherListener {
    void onWeatherInfoResult(int r) override { result = r; }
    int result = -1;
};

class WeatherAgentHostTest : public orvex_test::StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        ASSERT_TRUE(server.ok());
        orvex_host_agent_set_backend("open-meteo");
        orvex_host_agent_set_url(server.url("/").c_str());
        orvex_host_agent_set_ca_file(TestHttpServer::caFile().c_str());
        orvex_host_location_set_position(53.1875, 50.125, 40.0);
        orvex_host_connection_set_proxy("");
    }

    TestHttpServer server{TestHttpServer::Mode::Https};
};

TEST_F(WeatherAgentHostTest, AnswersWithTheRecordedPressureOrSaysWhyNot) {
    const std::string unreachable = "Open-Meteo could not be reached: ";
    struct Case {
        HttpRoute route;
        bool trusted;  // verified against the test CA rather than the host's bundle
        const char* proxy;
        long timeoutMs;
        std::map<std::string, std::string> reply;
        std::string problem;  // the start of it
    } cases[] = {
        {{200, {}, recorded("open-meteo-answer.json")},
         true,
         "",
         0,
         {{"refreshedTime", "1789459200"}, {"pressure", "1017.00"}},
         ""},
        {{400, {}, recorded("open-meteo-error.json")},
         true,
         "",
         0,
         {},
         "Open-Meteo answered HTTP 400: Latitude must be in range of -90 to 90°. Given: 999.0."},
        {{200, {}, "{\"current\":{\"time\":1789459200}}"},
         true,
         "",
         0,
         {},
         "Open-Meteo's answer has no current pressure_msl and time"},
        {{200, {}, "<html>"},
         true,
         "",
         0,
         {},
         "Open-Meteo's answer has no current pressure_msl and time"},
        {{200, {}, "", false, false, 0, true},
         true,
         "",
         300,
         {},
         unreachable + "Operation timed out"},
        {{}, false, "", 0, {}, unreachable + "SSL certificate problem"},
        {{},
         true,
         "http://127.0.0.1:1",
         0,
         {},
         unreachable + "Failed to connect to 127.0.0.1 port 1"},
    };
    std::map<std::string, std::string> reply;
    int port = message_port_register_local_port("reply.port", receive, &reply);
    ASSERT_GE(port, 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.problem);
        server.route("/v1/forecast", c.route);
        orvex_host_agent_set_ca_file(c.trusted ? TestHttpServer::caFile().c_str() : nullptr);
        orvex_host_connection_set_proxy(c.proxy);
        orvex_host_agent_set_timeout_ms(c.timeoutMs);
        reply.clear();
        app_control_h request = nullptr;
        ASSERT_EQ(0, app_control_create(&request));
        app_control_set_app_id(request, "com.marveno.weather-agent");
        app_control_add_extra_data(request, "MESSAGE", "GET_CURRENT_WEATHER_INFO");
        app_control_add_extra_data(request, "PORT_ID", "reply.port");
        ASSERT_EQ(0, app_control_send_launch_request(request, nullptr, nullptr));
        app_control_destroy(request);
        const int asked = orvex_host_agent_request_count() + 1;
        ASSERT_TRUE(orvex_test::runUntil([&] {
            return orvex_host_agent_request_count() == asked &&
                   (!reply.empty() || orvex_host_agent_problem() != nullptr);
        }));
        EXPECT_EQ(c.reply, reply);
        const char* p = orvex_host_agent_problem();
        std::string problem = p ? p : "";
        EXPECT_TRUE(c.problem.empty() ? problem.empty() : problem.rfind(c.problem, 0) == 0)
            << problem;
        EXPECT_EQ(0, orvex_host_agent_fetches());
        server.releaseHeld();
    }
    auto query = server.requests().at(0).query;
    EXPECT_EQ((orvex_test::HeaderList{{"latitude", "53.1875"},
                                      {"longitude", "50.1250"},
                                      {"current", "pressure_msl"},
                                      {"timeformat", "unixtime"}}),
              query);
    message_port_unregister_local_port(port);
}

TEST_F(WeatherAgentHostTest, CalibrationStoresTheFetchedPressure) {
    const long long now = time(nullptr);
    std::string body = recorded("open-meteo-answer.json");
    body.replace(body.find("\"2026-09-15T12:00\""), 18, std::to_string(now));
    server.route("/v1/forecast", {200, {{"Content-Type", "application/json"}}, body});
    Listener listener;
    OrvexWeather weather(&listener);
    ASSERT_TRUE(weather.requestWeatherInfo());
    ASSERT_TRUE(orvex_test::runUntil([&] { return listener.result >= 0; }));
    EXPECT_EQ(0, listener.result);
    EXPECT_DOUBLE_EQ(1017.0, store->getDataSLP());
    EXPECT_EQ(now, store->getDataCalTime());
}

}  // namespace
