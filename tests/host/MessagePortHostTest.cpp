// Local message ports: delivery on the main loop, and what happens to the bundles.
#include <unistd.h>

#include <stdexcept>

#include <orvex_host/app_control_control.h>
#include <platform/message_port.h>

#include "HostFixture.h"
#include "MainLoop.h"

using orvex_test::runUntil;

namespace {

std::vector<std::string> g_inbox;  // "port sender" of each delivery

void receive(int id, const char* remote, const char*, bool, bundle*, void*) {
    g_inbox.push_back(std::to_string(id) + " " + remote);
}

void throwing(int, const char*, const char*, bool, bundle*, void*) {
    throw std::invalid_argument("stod");
}

using MessagePortHostTest = orvex_test::HostTest;

TEST_F(MessagePortHostTest, PortsDeliverOnTheMainLoopAndFreeWhatTheyDrop) {
    int id = message_port_register_local_port("reply.port", receive, nullptr);
    bundle* b = bundle_create();
    ASSERT_EQ(0, orvex_host_message_port_post("reply.port", "sender", b));
    EXPECT_TRUE(g_inbox.empty());  // never synchronously
    ASSERT_TRUE(runUntil([&] { return !g_inbox.empty(); }));
    EXPECT_EQ(std::to_string(id) + " sender", g_inbox[0]);
    EXPECT_EQ(MESSAGE_PORT_ERROR_PORT_NOT_FOUND, orvex_host_message_port_post("other", "s", b));
    // A message in flight when the port goes is dropped, and its copy freed.
    ASSERT_EQ(0, orvex_host_message_port_post("reply.port", "sender", b));
    EXPECT_EQ(0, message_port_unregister_local_port(id));
    bundle_free(b);
    ASSERT_TRUE(runUntil([&] { return orvex_host_bundle_count() == 0; }));
    EXPECT_EQ(1u, g_inbox.size());
    EXPECT_EQ(MESSAGE_PORT_ERROR_PORT_NOT_FOUND, message_port_unregister_local_port(id));
#ifdef __arm__
    GTEST_SKIP() << "32-bit ARM unwinds through tables that Debian's armhf GLib does not carry, so "
                    "an exception cannot leave a handler through the main loop there";
#endif
    // A handler that throws (the library's, for an answer that is not a number) takes the copy
    // with it. The main loop is of no use after that, so this runs in a child process.
    EXPECT_EXIT(
        {
            message_port_register_local_port("reply.port", throwing, nullptr);
            b = bundle_create();
            orvex_host_message_port_post("reply.port", "agent", b);
            bundle_free(b);
            try {
                runUntil([] { return false; }, 1000);
            } catch (const std::invalid_argument&) {
                _exit(orvex_host_bundle_count());
            }
            _exit(99);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
