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

// What the tool shows of positions and file names it is given from outside.
TEST(LocationToolTest, UnknownAltitudeAndTextFromOutsideAreShownSafely) {
    orvex_test::ToolRunner tool(ORVEX_TOOL_PATH, std::string(g_get_tmp_dir()) + "/location-tool");
    const std::string noEle = tool.home() + "/no-ele.gpx", named = tool.home() + "/x\033[2J\r.gpx";
    const char* points =
        "<gpx version=\"1.1\"><trk><trkseg><trkpt lat=\"1\" lon=\"2\">"
        "<time>2024-05-01T10:00:00Z</time></trkpt></trkseg></trk></gpx>";
    ASSERT_TRUE(g_file_set_contents(noEle.c_str(), points, -1, nullptr));
    ASSERT_TRUE(g_file_set_contents(named.c_str(), "<gpx version=\"1.1\"/>", -1, nullptr));
    const std::string error = "orvex: error: ";
    const struct {
        std::vector<std::string> args;
        int exitCode;
        std::string shown;  // the end of stdout, or of stderr on failure
    } cases[] = {
        {{"location", "track", noEle}, 0, ""},
        {{"location"}, 0, "altitude    unknown\n"},
        {{"--json", "location"}, 0, "\"altitude_m\":null}\n"},
        {{"location", "track", named},
         1,
         error + tool.home() +
             "/x\\x1b[2J\\x0d.gpx: no track points (a route or waypoints only)\n"},
        {{"location", "backend", "gpsd", "--port", "296110"},
         1,
         error + "'296110' is not a port (1 to 65535)\n"},
        {{"location", "backend", "gps"},
         1,
         error + "unknown location back end 'gps' (fixed, track or gpsd)\n"},
        {{"location", "set", "-33.9", "18.4", "12000"},
         1,
         error + "altitude 12000 m is implausible (an altitude is -500 to 9000 m)\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args.back());
        orvex_test::ToolResult r = tool.run(c.args);
        EXPECT_EQ(c.exitCode, r.exitCode);
        const std::string& shown = c.exitCode ? r.err : r.out;
        EXPECT_EQ(c.shown, shown.substr(shown.size() - std::min(shown.size(), c.shown.size())));
    }
    // The environment is refused in the option's words.
    tool.setEnv("ORVEX_HOST_LOCATION_GPSD_PORT", "296110");
    EXPECT_EQ(error + "ORVEX_HOST_LOCATION_GPSD_PORT: '296110' is not a port (1 to 65535)\n",
              tool.run({"location"}).err);
}
