// 'orvex service' as systemd runs it and 'orvex status' as another terminal asks it.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>

#include "HostFixture.h"
#include "MainLoop.h"
#include "ToolRunner.h"

namespace {

std::string contents(const std::string& path) {
    g_autofree char* text = nullptr;
    return g_file_get_contents(path.c_str(), &text, nullptr, nullptr) ? text : "";
}

// The service as a process of its own, its stderr in a file next to its data.
class RunningService {
public:
    RunningService(const std::string& home,
                   const std::vector<std::pair<std::string, std::string>>& env = {},
                   bool verbose = false)
        : err_(home + "/.service-stderr") {
        g_autoptr(GSubprocessLauncher) launcher =
            g_subprocess_launcher_new(GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_SILENCE));
        g_subprocess_launcher_setenv(launcher, "ORVEX_HOST_HOME", home.c_str(), TRUE);
        for (const auto& [name, value] : env)
            g_subprocess_launcher_setenv(launcher, name.c_str(), value.c_str(), TRUE);
        g_subprocess_launcher_set_stderr_file_path(launcher, err_.c_str());
        std::vector<std::string> command = orvex_test::programCommand(ORVEX_TOOL_PATH);
        if (verbose) command.push_back("-v");
        command.push_back("service");
        std::vector<const char*> argv;
        for (const auto& part : command) argv.push_back(part.c_str());
        argv.push_back(nullptr);
        process_ = g_subprocess_launcher_spawnv(launcher, argv.data(), nullptr);
        g_subprocess_wait_async(
            process_, nullptr,
            [](GObject*, GAsyncResult*, gpointer done) { *static_cast<bool*>(done) = true; },
            &ended_);
    }
    ~RunningService() {
        if (!ended_) g_subprocess_force_exit(process_);
        orvex_test::runUntil([&] { return ended_; });
        g_object_unref(process_);
    }
    long pid() const { return std::stol(g_subprocess_get_identifier(process_)); }
    std::string err() const { return contents(err_); }
    bool ended() const { return ended_; }
    int exitCode() const {
        return g_subprocess_get_if_exited(process_) ? g_subprocess_get_exit_status(process_) : -1;
    }
    void signal(int number) { g_subprocess_send_signal(process_, number); }

private:
    std::string err_;
    GSubprocess* process_ = nullptr;
    bool ended_ = false;
};

// `status --json`, parsed; the root object stays valid while the parser lives.
struct Status {
    explicit Status(const std::string& text) : parser(json_parser_new()) {
        if (json_parser_load_from_data(parser, text.c_str(), -1, nullptr) &&
            JSON_NODE_HOLDS_OBJECT(json_parser_get_root(parser)))
            root = json_node_get_object(json_parser_get_root(parser));
    }
    ~Status() { g_object_unref(parser); }
    JsonObject* object(const char* key) const {
        JsonNode* n = root ? json_object_get_member(root, key) : nullptr;
        return n && JSON_NODE_HOLDS_OBJECT(n) ? json_node_get_object(n) : nullptr;
    }
    static bool isNull(JsonObject* o, const char* key) {
        JsonNode* n = o ? json_object_get_member(o, key) : nullptr;
        return n && JSON_NODE_HOLDS_NULL(n);
    }
    static double number(JsonObject* o, const char* key) {
        JsonNode* n = o ? json_object_get_member(o, key) : nullptr;
        return n && JSON_NODE_HOLDS_VALUE(n) ? json_node_get_double(n) : NAN;
    }
    static std::string text(JsonObject* o, const char* key) {
        JsonNode* n = o ? json_object_get_member(o, key) : nullptr;
        return n && JSON_NODE_HOLDS_VALUE(n) && json_node_get_value_type(n) == G_TYPE_STRING
                   ? json_node_get_string(n)
                   : "";
    }
    JsonParser* parser;
    JsonObject* root = nullptr;
};

class ServiceToolTest : public orvex_test::HostTest {};

TEST_F(ServiceToolTest, RunsAloneReportsItsStateAndEndsOnSigterm) {
    orvex_test::ToolRunner tool(ORVEX_TOOL_PATH, std::string(orvex_host_data_dir()) + "/tool");
    ASSERT_EQ(0, tool.run({"settings", "set", "auto-refresh", "1"}).exitCode);
    EXPECT_EQ("orvex: error: retention-hours is 1 to 168\n",
              tool.run({"service", "set", "retention-hours", "169"}).err);
    ASSERT_EQ(0, tool.run({"service", "set", "retention-hours", "48"}).exitCode);
    RunningService service(tool.home());
    // The fixed position measures nothing, so the calibration comes from the weather agent.
    ASSERT_TRUE(orvex_test::runUntil(
        [&] { return service.err().find("calibrated from agent: ") != std::string::npos; }, 10000))
        << service.err();

    Status status(tool.run({"--json", "status"}).out);
    ASSERT_NE(nullptr, status.root);
    EXPECT_TRUE(json_object_get_boolean_member(status.root, "running"));
    EXPECT_EQ(service.pid(), Status::number(status.root, "pid"));
    EXPECT_EQ("sim", Status::text(status.object("backends"), "sensor"));
    EXPECT_EQ(48, Status::number(status.root, "retention_hours"));
    EXPECT_NE(std::string::npos, service.err().find("keeping 48 h of recorded pressure"));
    JsonObject* reading = status.object("last_reading");
    EXPECT_GT(Status::number(reading, "time"), 0);
    EXPECT_NEAR(1000, Status::number(reading, "pressure_hpa"), 200);
    EXPECT_TRUE(std::isfinite(Status::number(reading, "altitude_m")));
    JsonObject* calibration = status.object("last_calibration");
    EXPECT_EQ("agent", Status::text(calibration, "source"));
    const double calibrated = Status::number(calibration, "time");
    EXPECT_NEAR(1013, Status::number(calibration, "slp_hpa"), 87);
    // The agent's interval is three hours.
    EXPECT_EQ(calibrated + 3 * 3600, Status::number(status.root, "next_calibration"));

    // A live view beside the service shows, but leaves the counting to the service.
    const std::string totals = tool.run({"--json", "stats"}).out;
    EXPECT_EQ(0, tool.run({"live", "--seconds", "1"}).exitCode);
    EXPECT_EQ(totals, tool.run({"--json", "stats"}).out);

    orvex_test::ToolResult second = tool.run({"service"});
    EXPECT_EQ(1, second.exitCode);
    EXPECT_EQ("orvex: error: the service already runs on this data directory (pid " +
                  std::to_string(service.pid()) + ")\n",
              second.err);

    service.signal(SIGTERM);
    EXPECT_TRUE(orvex_test::runUntil([&] { return service.ended(); }, 1000));
    EXPECT_EQ(0, service.exitCode()) << service.err();
    // Stopped, the store answers as before and keeps what the service recorded.
    Status after(tool.run({"--json", "status"}).out);
    ASSERT_NE(nullptr, after.root);
    EXPECT_FALSE(json_object_get_boolean_member(after.root, "running"));
    EXPECT_TRUE(Status::isNull(after.root, "pid"));
    EXPECT_TRUE(Status::isNull(after.root, "next_calibration"));
    EXPECT_EQ(calibrated, Status::number(after.object("last_calibration"), "time"));
    orvex_test::ToolResult recorded = tool.run({"--json", "recorded"});
    EXPECT_EQ(0, recorded.exitCode) << recorded.err;
}

}  // namespace

size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

TEST_F(ServiceToolTest, AMissingSensorIsLoggedOnceAndTriedAgain) {
    const std::string home = std::string(orvex_host_data_dir()) + "/tool";
    const std::string root = home + "/no-devices";
    g_mkdir_with_parents(root.c_str(), 0700);
    RunningService service(
        home, {{"ORVEX_HOST_SENSOR_BACKEND", "iio"}, {"ORVEX_HOST_SENSOR_IIO_ROOT", root}}, true);
    // Each try ends with the library's sensor stopped (-v shows its line); the service says it
    // once.
    const std::string attempt = "Stop Sensor";
    EXPECT_TRUE(orvex_test::runUntil([&] { return count(service.err(), attempt) >= 2; }, 10000))
        << service.err();
    EXPECT_EQ(1u, count(service.err(), "orvex service: the pressure sensor stopped ("))
        << service.err();
    Status status(orvex_test::ToolRunner(ORVEX_TOOL_PATH, home).run({"--json", "status"}).out);
    EXPECT_NE(std::string::npos, Status::text(status.root, "problem").find("pressure sensor: "));
}

TEST_F(ServiceToolTest, CalibratesFromASettledGnssFixAboveSeaLevel) {
    g_autofree char* gpsfake = g_find_program_in_path("gpsfake");
    if (!gpsfake) GTEST_SKIP() << "gpsfake (Debian package gpsd-clients) is not installed";
    // A receiver standing at 612.4 m above sea level (47.3 m of geoid separation), a fix a second.
    const std::string log = std::string(ORVEX_TEST_DATA) + "/stationary.nmea";
    GSocketListener* probe = g_socket_listener_new();
    const std::string port =
        std::to_string(g_socket_listener_add_any_inet_port(probe, nullptr, nullptr));
    g_object_unref(probe);
    const char* argv[] = {gpsfake, "-q", "-c", "0.333", "-P", port.c_str(), log.c_str(), nullptr};
    GPid gpsd = 0;
    ASSERT_TRUE(g_spawn_async(
        nullptr, const_cast<char**>(argv), nullptr,
        GSpawnFlags(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL |
                    G_SPAWN_STDERR_TO_DEV_NULL),
        [](gpointer) { setpgid(0, 0); }, nullptr, &gpsd, nullptr));
    orvex_test::ToolRunner tool(ORVEX_TOOL_PATH, std::string(orvex_host_data_dir()) + "/tool");
    ASSERT_EQ(0, tool.run({"settings", "set", "auto-refresh", "1"}).exitCode);
    // A barometer at rest: 950 hPa give or take 0.02.
    const std::string trace = tool.home() + "/still.csv";
    ASSERT_TRUE(g_file_set_contents(trace.c_str(), "0,950.00\n1,950.02\n2,949.98\n", -1, nullptr));
    {
        RunningService service(tool.home(), {{"ORVEX_HOST_SENSOR_BACKEND", "trace"},
                                             {"ORVEX_HOST_SENSOR_TRACE", trace},
                                             {"ORVEX_HOST_LOCATION_BACKEND", "gpsd"},
                                             {"ORVEX_HOST_LOCATION_GPSD_PORT", port}});
        EXPECT_TRUE(orvex_test::runUntil(
            [&] { return service.err().find("calibrated from gnss: ") != std::string::npos; },
            90000))
            << service.err();
    }
    kill(-gpsd, SIGTERM);
    waitpid(gpsd, nullptr, 0);
    Status status(tool.run({"--json", "status"}).out);
    JsonObject* calibration = status.object("last_calibration");
    EXPECT_EQ("gnss", Status::text(calibration, "source"));
    EXPECT_NEAR(612.4, Status::number(calibration, "altitude_m"), 1.0);
    EXPECT_NEAR(950.0, Status::number(calibration, "pressure_hpa"), 0.02);
    // 950 hPa at 612.4 m is a sea-level pressure of 1022.05 hPa.
    EXPECT_NEAR(1022.05, Status::number(calibration, "slp_hpa"), 0.1);
}
