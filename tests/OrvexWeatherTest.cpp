// The weather-agent client: the agent's answers and what they store, and the request's failures.
#include <ctime>
#include <stdexcept>

#include <orvex_host/app_control_control.h>
#include <platform/message_port.h>

#include "HostFixture.h"
#include "MainLoop.h"
#include "OrvexStorageMgr.h"
#include "OrvexWeather.h"

using namespace orvex_test;

struct Listener : IOrvexWeatherListener {
    void onWeatherInfoResult(int result) override { results.push_back(result); }
    std::vector<int> results;
};

bundle* answer(const std::string& time, const char* pressure) {
    bundle* b = bundle_create();
    if (time != "-") bundle_add_str(b, "refreshedTime", time.c_str());
    if (pressure) bundle_add_str(b, "pressure", pressure);
    return b;
}

std::string now(long long offset = 0) { return std::to_string(time(nullptr) + offset); }

class OrvexWeatherTest : public StoreTest {
protected:
    // Plays one answer of the agent through the port and waits until `to` has heard it.
    void reply(const std::string& time, const char* pressure, Listener& to) {
        bundle* b = answer(time, pressure);
        ASSERT_EQ(0, orvex_host_message_port_post("com.marveno.orvex_weather_info",
                                                  "com.marveno.weather-agent", b));
        bundle_free(b);
        size_t before = to.results.size();
        ASSERT_TRUE(runUntil([&] { return to.results.size() > before; }));
    }
    Listener listener;
};

TEST_F(OrvexWeatherTest, AnswersOfTheAgent) {
    const struct {
        std::string time;  // "-": no entry
        const char* pressure;
        int result;
        const char* message;  // nullptr: stored without a word
    } cases[] = {
        {now(-3600), "1013.5hPa", 0, nullptr},  // trailing text is ignored
        {now(-3601), "1010.0", 1, "Weather has old Info"},
        // The marker wins over the age.
        {now(-20000), "9999.0", 3, "ERROR : Location is not supprot SLP"},
        {"-", "1010.0", 2, "ERROR : time and pressure are not exist"},
        {now(), nullptr, 2, "ERROR : time and pressure are not exist"},
        {"-9223372036854775808", "1010.0", 1, "Weather has old Info"},  // no overflow in the age
        {now(+600), "1015.0", 0, nullptr},  // a future time counts as fresh
    };
    OrvexWeather weather(&listener);
    store->saveDataSLP(1000.0);
    std::string history;
    for (const auto& c : cases) {
        SCOPED_TRACE("time '" + c.time + "', pressure '" + (c.pressure ? c.pressure : "(none)") +
                     "'");
        clearLog();
        reply(c.time, c.pressure, listener);
        EXPECT_EQ(c.result, listener.results.back());
        EXPECT_EQ(c.message ? Lines{c.message} : Lines{}, errors());
        if (c.result != 0) continue;
        history += "T:" + c.time + ";P+" + std::to_string(std::stod(c.pressure));
        EXPECT_EQ(std::stod(c.pressure), store->getDataSLP());
        EXPECT_EQ(std::stoll(c.time), store->getDataCalTime());
    }
    EXPECT_EQ(history, adopt(store->getDataSLPHistory()));
    EXPECT_EQ("", OrvexWeather::_bundleGetString(nullptr, "pressure"));
    // A platform that reports success but hands back no text.
    bundle* empty = answer(now(), "1010.0");
    orvex_host_fail_next("bundle_get_str", 1, BUNDLE_ERROR_NONE);
    EXPECT_EQ("", OrvexWeather::_bundleGetString(empty, "pressure"));
    bundle_free(empty);
    for (bundle* b : {answer("soon", "1010"), answer(now(), "high")}) {
        EXPECT_THROW(OrvexWeather::_MessagePortCallback(1, "x", nullptr, false, b, nullptr),
                     std::invalid_argument);
        bundle_free(b);
    }
}

TEST_F(OrvexWeatherTest, RequestsGoToTheAgentUnlessAStepFails) {
    const struct {
        const char* function;
        int skip;  // successful calls before the failing one
        const char* message;
    } cases[] = {
        {"app_control_create", 0, "[Fail] %s : -12"},
        {"app_control_set_app_id", 0, "[Fail] %s : -12"},
        {"app_control_add_extra_data", 0, "[Fail] %s : -12 "},
        {"app_control_add_extra_data", 1, "[Fail] %s :-12 "},
        {"app_control_send_launch_request", 0, "[Fail] %s failed : -12"},
    };
    OrvexWeather weather(&listener);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        clearLog();
        orvex_host_fail_after(c.function, c.skip, 1, -12);
        EXPECT_FALSE(weather.requestWeatherInfo());
        EXPECT_EQ(Lines{fill(c.message, c.function)}, errors());
        orvex_host_clear_faults();
    }
    EXPECT_EQ(0, orvex_host_app_launch_count());
    orvex_host_weather_set_slp(1021.37);
    ASSERT_TRUE(weather.requestWeatherInfo());
    ASSERT_TRUE(runUntil([&] { return !listener.results.empty(); }));
    EXPECT_EQ(std::vector<int>{0}, listener.results);
    EXPECT_EQ(1021.37, store->getDataSLP());
}

TEST_F(OrvexWeatherTest, PortAndListener) {
    {
        OrvexWeather weather(&listener);
        OrvexWeather keepsTheListener(nullptr);
        EXPECT_EQ(Lines{"Listener is NULL"}, errors());
        reply(now(), "1011.0", listener);
    }
    EXPECT_EQ(0, orvex_host_message_port_count());
    clearLog();
    Listener other;
    orvex_host_fail_next("message_port_register_local_port", 1, -5);
    { OrvexWeather unregistered(&other); }  // the listener is taken all the same
    EXPECT_EQ(Lines{"message_port_register_local_port failed(-5)"}, errors());
    OrvexWeather weather(nullptr);
    reply(now(), "1012.0", other);
}
