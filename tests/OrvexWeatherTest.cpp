#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include <orvex_host/app_control_control.h>
#include <orvex_host/control.h>
#include <platform/app_control.h>
#include <platform/message_port.h>

#include "HostFixture.h"
#include "MainLoop.h"
#include "OrvexStorageMgr.h"
#include "OrvexWeather.h"

using orvex_test::errors;

namespace {

const char* const kPort = "com.marveno.orvex_weather_info";

struct RecordingListener : IOrvexWeatherListener {
    void onWeatherInfoResult(int result) override { results.push_back(result); }
    std::vector<int> results;
};

class OrvexWeatherTest : public orvex_test::StoreTest {
protected:
    // Plays one reply of the agent through the port and waits until `to` has heard it.
    void reply(const char* time, const char* pressure) { reply(time, pressure, listener); }
    void reply(const char* time, const char* pressure, RecordingListener& to) {
        bundle* b = bundle_create();
        if (time) bundle_add_str(b, "refreshedTime", time);
        if (pressure) bundle_add_str(b, "pressure", pressure);
        ASSERT_EQ(0, orvex_host_message_port_post(kPort, "com.marveno.weather-agent", b));
        bundle_free(b);
        size_t before = to.results.size();
        ASSERT_TRUE(orvex_test::runUntil([&] { return to.results.size() > before; }));
    }

    static std::string now(long long offset = 0) {
        return std::to_string(static_cast<long long>(time(nullptr)) + offset);
    }

    std::string history() {
        char* h = store->getDataSLPHistory();
        std::string out = h;
        free(h);
        return out;
    }

    RecordingListener listener;
};

TEST_F(OrvexWeatherTest, RoundTripThroughTheSimulatedAgent) {
    orvex_host_weather_set_slp(1021.37);
    OrvexWeather weather(&listener);
    long long before = time(nullptr);
    ASSERT_TRUE(weather.requestWeatherInfo());
    EXPECT_TRUE(listener.results.empty());  // the answer comes later, on the main loop
    ASSERT_TRUE(orvex_test::runUntil([&] { return !listener.results.empty(); }));
    EXPECT_EQ(std::vector<int>{0}, listener.results);
    EXPECT_EQ(1021.37, store->getDataSLP());
    long long calibrated = store->getDataCalTime();
    EXPECT_GE(calibrated, before);
    EXPECT_LE(calibrated, static_cast<long long>(time(nullptr)));
    EXPECT_EQ("T:" + std::to_string(calibrated) + ";P+1021.370000", history());
    EXPECT_EQ(1, orvex_host_agent_request_count());
    EXPECT_TRUE(errors().empty());
}

TEST_F(OrvexWeatherTest, AgeBoundaryAndTheNoPressureMarker) {
    OrvexWeather weather(&listener);
    store->saveDataSLP(1000.0);

    reply(now(-3601).c_str(), "1010.0");
    EXPECT_EQ(1, listener.results.back());
    EXPECT_EQ(1000.0, store->getDataSLP());
    EXPECT_EQ(std::vector<std::string>{"Weather has old Info"}, errors());

    orvex_test::clearLog();
    reply(now(-20000).c_str(), "9999");  // the marker wins over the age
    EXPECT_EQ(3, listener.results.back());
    reply(now().c_str(), "9999.000");
    EXPECT_EQ(3, listener.results.back());
    EXPECT_EQ(std::vector<std::string>(2, "ERROR : Location is not supprot SLP"), errors());
    EXPECT_EQ(1000.0, store->getDataSLP());
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());

    std::string boundary = now(-3600);
    reply(boundary.c_str(), "1013.5hPa");  // trailing text is ignored
    EXPECT_EQ(0, listener.results.back());
    EXPECT_EQ(1013.5, store->getDataSLP());
    EXPECT_EQ(std::stoll(boundary), store->getDataCalTime());

    reply("-9223372036854775808", "1010.0");  // the oldest time there is: stale, no overflow
    EXPECT_EQ(1, listener.results.back());

    reply(now(+600).c_str(), "1015.0");  // a future observation counts as fresh
    EXPECT_EQ(0, listener.results.back());
    EXPECT_EQ(1015.0, store->getDataSLP());
}

TEST_F(OrvexWeatherTest, MissingOrEmptyEntries) {
    OrvexWeather weather(&listener);
    reply(nullptr, "1010.0");
    reply(now().c_str(), nullptr);
    reply(now().c_str(), "");
    reply("", "1010.0");
    EXPECT_EQ((std::vector<int>{2, 2, 2, 2}), listener.results);
    EXPECT_EQ(std::vector<std::string>(4, "ERROR : time and pressure are not exist"), errors());
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());

    EXPECT_EQ("", OrvexWeather::_bundleGetString(nullptr, "pressure"));
}

TEST_F(OrvexWeatherTest, UnparseableNumbersEscapeTheCallback) {
    bundle* b = bundle_create();
    bundle_add_str(b, "refreshedTime", "soon");
    bundle_add_str(b, "pressure", "1010");
    EXPECT_THROW(OrvexWeather::_MessagePortCallback(1, "x", nullptr, false, b, nullptr),
                 std::invalid_argument);
    bundle_free(b);
    b = bundle_create();
    bundle_add_str(b, "refreshedTime", now().c_str());
    bundle_add_str(b, "pressure", "high");
    EXPECT_THROW(OrvexWeather::_MessagePortCallback(1, "x", nullptr, false, b, nullptr),
                 std::invalid_argument);
    bundle_free(b);
    b = bundle_create();
    bundle_add_str(b, "refreshedTime", "99999999999999999999999");
    bundle_add_str(b, "pressure", "1010");
    EXPECT_THROW(OrvexWeather::_MessagePortCallback(1, "x", nullptr, false, b, nullptr),
                 std::out_of_range);
    bundle_free(b);
}

TEST_F(OrvexWeatherTest, EveryRequestStepCanFail) {
    OrvexWeather weather(&listener);
    struct Step {
        const char* function;
        int skip;  // successful calls before the failing one
        const char* message;
    } steps[] = {
        {"app_control_create", 0, "[Fail] app_control_create : -12"},
        {"app_control_set_app_id", 0, "[Fail] app_control_set_app_id : -12"},
        {"app_control_add_extra_data", 0, "[Fail] app_control_add_extra_data : -12 "},
        {"app_control_add_extra_data", 1, "[Fail] app_control_add_extra_data :-12 "},
        {"app_control_send_launch_request", 0,
         "[Fail] app_control_send_launch_request failed : -12"},
    };
    for (const auto& s : steps) {
        orvex_test::clearLog();
        int launches = orvex_host_app_launch_count();
        orvex_host_fail_after(s.function, s.skip, 1, -12);
        EXPECT_FALSE(weather.requestWeatherInfo()) << s.message;
        EXPECT_EQ(std::vector<std::string>{s.message}, errors());
        EXPECT_EQ(launches, orvex_host_app_launch_count());
        orvex_host_clear_faults();
    }
    EXPECT_TRUE(weather.requestWeatherInfo());
    EXPECT_TRUE(orvex_test::runUntil([&] { return !listener.results.empty(); }));
}

TEST_F(OrvexWeatherTest, PortRegistrationAndListenerRules) {
    RecordingListener other;
    {
        OrvexWeather weather(&listener);
        EXPECT_EQ(1, orvex_host_message_port_count());
        OrvexWeather keepsListener(nullptr);
        EXPECT_EQ(std::vector<std::string>{"Listener is NULL"}, errors());
        reply(now().c_str(), "1011.0");
        EXPECT_EQ(std::vector<int>{0}, listener.results);
    }
    EXPECT_EQ(0, orvex_host_message_port_count());

    orvex_test::clearLog();
    orvex_host_fail_next("message_port_register_local_port", 1, -5);
    {
        OrvexWeather unregistered(&other);  // the listener is still taken
        EXPECT_EQ(std::vector<std::string>{"message_port_register_local_port failed(-5)"},
                  errors());
        EXPECT_EQ(0, orvex_host_message_port_count());
        // No port: the destructor must not unregister anything.
        orvex_host_fail_next("message_port_unregister_local_port", -1, -99);
    }
    orvex_host_clear_faults();
    OrvexWeather weather(nullptr);
    reply(now().c_str(), "1012.0", other);
    EXPECT_EQ(std::vector<int>{0}, other.results);
    EXPECT_EQ(std::vector<int>{0}, listener.results);
}

TEST_F(OrvexWeatherTest, UnknownAgentIsRefusedByThePlatform) {
    app_control_h h = nullptr;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_create(&h));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "com.example.nothing"));
    EXPECT_EQ(APP_CONTROL_ERROR_APP_NOT_FOUND,
              app_control_send_launch_request(h, nullptr, nullptr));
    app_control_destroy(h);
}

TEST_F(OrvexWeatherTest, ErrorLineFormat) {
    orvex_host_fail_next("app_control_create", 1, -12);
    OrvexWeather weather(&listener);
    weather.requestWeatherInfo();
    auto lines = orvex_test::logLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_TRUE(std::regex_match(lines[0].text,
                                 std::regex("OrvexWeather\\.cpp: requestWeatherInfo\\([0-9]+\\) > "
                                            "\033\\[0;31m\\* Critical \\* \\[Fail\\] "
                                            "app_control_create : -12\033\\[0;m")))
        << lines[0].text;
}

}  // namespace
