// 'orvex location' against the real gpsd, fed a recorded NMEA log by gpsfake.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ToolRunner.h"

TEST(LocationToolTest, PrintsThePositionGpsdReplays) {
    g_autofree char* gpsfake = g_find_program_in_path("gpsfake");
    if (!gpsfake) GTEST_SKIP() << "gpsfake (Debian package gpsd-clients) is not installed";
    const char* log = ORVEX_TEST_DATA "/nmea.log";
    // Two free ports: one where nobody listens, one for gpsd.
    GSocketListener* probe = g_socket_listener_new();
    std::string ports[2];
    for (auto& port : ports)
        port = std::to_string(g_socket_listener_add_any_inet_port(probe, nullptr, nullptr));
    g_object_unref(probe);
    // The log loops until the test ends; its own process group takes gpsd down with it. gpsd
    // takes a while to see its first fix, so it starts before the outage is shown.
    const char* argv[] = {gpsfake, "-q", "-c", "0.05", "-P", ports[1].c_str(), log, nullptr};
    GPid pid = 0;
    ASSERT_TRUE(g_spawn_async(
        nullptr, const_cast<char**>(argv), nullptr,
        GSpawnFlags(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL |
                    G_SPAWN_STDERR_TO_DEV_NULL),
        [](gpointer) { setpgid(0, 0); }, nullptr, &pid, nullptr));
    orvex_test::ToolRunner tool(ORVEX_TOOL_PATH, std::string(g_get_tmp_dir()) + "/gpsd-tool");
    tool.setEnv("ORVEX_HOST_LOCATION_BACKEND", "gpsd");
    tool.setEnv("ORVEX_HOST_LOCATION_GPSD_PORT", ports[0]);
    // Nobody listening: one line for the outage, the retry a second later stays quiet.
    orvex_test::ToolResult r = tool.run({"-v", "location", "--timeout", "1.6"});
    std::string outage = "E/ORVEX_HOST: gpsd at localhost:" + ports[0] + ": ";
    EXPECT_EQ(r.err.find(outage), r.err.rfind(outage)) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("; retrying in the background\n", r.err.find(outage)));

    tool.setEnv("ORVEX_HOST_LOCATION_GPSD_PORT", ports[1]);
    r = tool.run({"location", "--timeout", "30"});
    kill(-pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    EXPECT_EQ(0, r.exitCode) << r.err;
    // The log's fixes lie around 55.78-55.80 N, 23.56-23.58 E.
    EXPECT_NE(std::string::npos, r.out.find("latitude    55.7")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("longitude   23.5")) << r.out;
}
