#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <string>

#include <orvex_host/app_control_control.h>
#include <orvex_host/control.h>
#include <platform/app_control.h>
#include <platform/message_port.h>

#include "HostFixture.h"
#include "MainLoop.h"

namespace {

struct Inbox {
    int calls = 0;
    int portId = -1;
    std::string remote;
    std::map<std::string, std::string> entries;
};

void receive(int id, const char* remote, const char*, bool, bundle* message, void* data) {
    auto* inbox = static_cast<Inbox*>(data);
    ++inbox->calls;
    inbox->portId = id;
    inbox->remote = remote ? remote : "";
    inbox->entries.clear();
    bundle_iterate(
        message,
        [](const char* k, const char* v, void* d) { (*static_cast<Inbox*>(d)).entries[k] = v; },
        inbox);
}

class MessagePortHostTest : public orvex_test::HostTest {
protected:
    // Launches the agent as the library does and waits for its answer (or a short while).
    bool askAgent(Inbox& inbox, const char* port = "reply.port") {
        app_control_h h = nullptr;
        app_control_create(&h);
        app_control_set_app_id(h, "com.marveno.weather-agent");
        app_control_add_extra_data(h, "MESSAGE", "GET_CURRENT_WEATHER_INFO");
        app_control_add_extra_data(h, "PORT_ID", port);
        int rc = app_control_send_launch_request(h, nullptr, nullptr);
        app_control_destroy(h);
        if (rc != 0) return false;
        int before = inbox.calls;
        return orvex_test::runUntil([&] { return inbox.calls > before; }, 500);
    }
};

TEST_F(MessagePortHostTest, PortsRegisterDeliverAndGo) {
    Inbox inbox;
    int id = message_port_register_local_port("reply.port", receive, &inbox);
    ASSERT_GE(id, 0);
    EXPECT_EQ(id, message_port_register_local_port("reply.port", receive, &inbox));
    EXPECT_EQ(MESSAGE_PORT_ERROR_INVALID_PARAMETER,
              message_port_register_local_port("", receive, &inbox));

    bundle* b = bundle_create();
    bundle_add_str(b, "k", "v");
    ASSERT_EQ(0, orvex_host_message_port_post("reply.port", "sender", b));
    EXPECT_EQ(0, inbox.calls);  // never synchronously
    ASSERT_TRUE(orvex_test::runUntil([&] { return inbox.calls == 1; }));
    EXPECT_EQ(id, inbox.portId);
    EXPECT_EQ("sender", inbox.remote);
    EXPECT_EQ("v", inbox.entries["k"]);

    EXPECT_EQ(MESSAGE_PORT_ERROR_PORT_NOT_FOUND,
              orvex_host_message_port_post("other.port", "sender", b));
    // A message in flight when the port goes is dropped.
    ASSERT_EQ(0, orvex_host_message_port_post("reply.port", "sender", b));
    EXPECT_EQ(0, message_port_unregister_local_port(id));
    orvex_test::runFor(50);
    EXPECT_EQ(1, inbox.calls);
    EXPECT_EQ(MESSAGE_PORT_ERROR_PORT_NOT_FOUND, message_port_unregister_local_port(id));
    bundle_free(b);
}

TEST_F(MessagePortHostTest, AgentAnswersWithTheSimulatedWeather) {
    Inbox inbox;
    message_port_register_local_port("reply.port", receive, &inbox);
    orvex_host_weather_set_slp(1007.5);
    long long before = time(nullptr);
    ASSERT_TRUE(askAgent(inbox));
    EXPECT_EQ("com.marveno.weather-agent", inbox.remote);
    EXPECT_EQ("1007.50", inbox.entries["pressure"]);
    long long t = std::stoll(inbox.entries["refreshedTime"]);
    EXPECT_GE(t, before);
    EXPECT_LE(t, static_cast<long long>(time(nullptr)));

    orvex_host_weather_set_slp(0);  // back to the model, which varies slowly around standard
    ASSERT_TRUE(askAgent(inbox));
    double modelled = std::stod(inbox.entries["pressure"]);
    EXPECT_NEAR(1013.25, modelled, 12.0);
    EXPECT_EQ(2, orvex_host_agent_request_count());
}

TEST_F(MessagePortHostTest, AgentCanBeConfiguredToMisbehave) {
    Inbox inbox;
    message_port_register_local_port("reply.port", receive, &inbox);

    orvex_host_agent_set_pressure("9999");
    orvex_host_agent_set_age(4000);
    ASSERT_TRUE(askAgent(inbox));
    EXPECT_EQ("9999", inbox.entries["pressure"]);
    EXPECT_NEAR(static_cast<double>(time(nullptr)) - 4000,
                std::stod(inbox.entries["refreshedTime"]), 2.0);

    orvex_host_agent_set_missing("pressure");
    ASSERT_TRUE(askAgent(inbox));
    EXPECT_EQ(0u, inbox.entries.count("pressure"));
    EXPECT_EQ(1u, inbox.entries.count("refreshedTime"));

    orvex_host_agent_set_missing(nullptr);
    orvex_host_agent_set_empty("refreshedTime");
    ASSERT_TRUE(askAgent(inbox));
    EXPECT_EQ("", inbox.entries["refreshedTime"]);

    orvex_host_agent_set_silent(1);
    EXPECT_FALSE(askAgent(inbox));
    EXPECT_EQ(4, orvex_host_agent_request_count());

    // The settings persist for the next process reading the same directory.
    std::string dir = orvex_host_data_dir();
    ASSERT_EQ(0, orvex_host_set_data_dir(dir.c_str()));
    EXPECT_FALSE(askAgent(inbox));

    orvex_host_agent_reset();
    ASSERT_TRUE(askAgent(inbox));
    EXPECT_NE("9999", inbox.entries["pressure"]);
    EXPECT_NE("", inbox.entries["refreshedTime"]);
}

TEST_F(MessagePortHostTest, AppControlCallsAndFaults) {
    app_control_h h = nullptr;
    ASSERT_EQ(0, app_control_create(&h));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_send_launch_request(h, nullptr, nullptr));
    EXPECT_EQ(0, app_control_add_extra_data(h, "K", "1"));
    EXPECT_EQ(0, app_control_add_extra_data(h, "K", "2"));
    char* v = nullptr;
    EXPECT_EQ(0, app_control_get_extra_data(h, "K", &v));
    EXPECT_STREQ("2", v);
    free(v);
    EXPECT_EQ(APP_CONTROL_ERROR_KEY_NOT_FOUND, app_control_get_extra_data(h, "X", &v));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_add_extra_data(h, "K", nullptr));
    EXPECT_EQ(0, app_control_set_app_id(h, "com.marveno.weather-agent"));
    char* id = nullptr;
    EXPECT_EQ(0, app_control_get_app_id(h, &id));
    EXPECT_STREQ("com.marveno.weather-agent", id);
    free(id);

    for (const char* f : {"app_control_set_app_id", "app_control_add_extra_data",
                          "app_control_send_launch_request", "app_control_destroy"}) {
        orvex_host_fail_next(f, 1, -77);
        int rc = 0;
        if (std::string(f) == "app_control_set_app_id") rc = app_control_set_app_id(h, "x");
        if (std::string(f) == "app_control_add_extra_data")
            rc = app_control_add_extra_data(h, "a", "b");
        if (std::string(f) == "app_control_send_launch_request")
            rc = app_control_send_launch_request(h, nullptr, nullptr);
        if (std::string(f) == "app_control_destroy") rc = app_control_destroy(h);
        EXPECT_EQ(-77, rc) << f;
    }
    EXPECT_EQ(0, app_control_destroy(h));
    orvex_host_fail_next("app_control_create", 1, -12);
    EXPECT_EQ(-12, app_control_create(&h));
    orvex_host_fail_next("message_port_unregister_local_port", 1, -3);
    EXPECT_EQ(-3, message_port_unregister_local_port(1));
}

}  // namespace
