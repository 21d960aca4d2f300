// The orvex tool as a user runs it: a process per command against its own data directory.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>

#include "HostFixture.h"
#include "ToolRunner.h"

using orvex_test::ToolResult;
using orvex_test::ToolRunner;

namespace {

class ToolTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        tool = std::make_unique<ToolRunner>(ORVEX_TOOL_PATH,
                                            std::string(orvex_host_data_dir()) + "/tool-home");
        // The machine's locale must not decide the units under test.
        tool->setEnv("LC_ALL", "de_DE.UTF-8");
    }

    static bool has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }

    std::unique_ptr<ToolRunner> tool;
};

TEST_F(ToolTest, HelpAndUsageErrors) {
    ToolResult r = tool->run({"--help"});
    EXPECT_EQ(0, r.exitCode);
    EXPECT_TRUE(has(r.out, "usage: orvex")) << r.out;
    EXPECT_TRUE(has(r.out, "convert")) << r.out;

    r = tool->run({"convert", "--help"});
    EXPECT_EQ(0, r.exitCode);
    EXPECT_TRUE(has(r.out, "usage: orvex convert altitude PRESSURE_HPA")) << r.out;

    r = tool->run({});
    EXPECT_EQ(2, r.exitCode);

    r = tool->run({"fly"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("orvex: error: unknown command 'fly' (see 'orvex --help')\n", r.err);

    r = tool->run({"convert", "altitude", "lots"});
    EXPECT_EQ(2, r.exitCode);
    EXPECT_EQ(1u, orvex_test::splitLines(r.err).size()) << r.err;
    EXPECT_TRUE(r.out.empty());
}

TEST_F(ToolTest, InitAndSettingsPersistAcrossRuns) {
    ToolResult r = tool->run({"init"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "distance             0  metres")) << r.out;
    EXPECT_TRUE(has(r.out, "pressure             0  hPa (hectopascals)")) << r.out;
    EXPECT_TRUE(has(r.out, "sea-level pressure   1013.25 hPa")) << r.out;
    EXPECT_TRUE(r.err.empty()) << "library log lines must stay hidden without -v: " << r.err;

    r = tool->run({"settings", "set", "pressure", "2"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    r = tool->run({"--json", "settings"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "\"pressure\": 2")) << r.out;
    EXPECT_TRUE(has(r.out, "\"pressure_unit\": \"mmHg\"")) << r.out;
    EXPECT_TRUE(has(r.out, "\"slp_hpa\": 1013.25")) << r.out;

    r = tool->run({"settings", "set", "pressure", "5"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("orvex: error: pressure is 0 (hPa), 1 (inHg) or 2 (mmHg)\n", r.err);
    r = tool->run({"settings", "set", "colour", "1"});
    EXPECT_EQ("orvex: error: unknown setting 'colour'\n", r.err);
}

TEST_F(ToolTest, VerboseShowsTheLibraryLog) {
    ToolResult r = tool->run({"-v", "init"});
    ASSERT_EQ(0, r.exitCode);
    EXPECT_TRUE(has(r.err, "Preference is not init")) << r.err;
}

TEST_F(ToolTest, Conversions) {
    ToolResult r = tool->run({"convert", "altitude", "900"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "altitude             988.6 m")) << r.out;

    r = tool->run({"--json", "convert", "altitude", "900", "--slp", "1020"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "\"slp_hpa\": 1020,")) << r.out;

    r = tool->run({"convert", "pressure", "0"});
    EXPECT_TRUE(has(r.out, "pressure             1013.2 hPa")) << r.out;

    r = tool->run({"--json", "convert", "slp", "100", "1000"});
    EXPECT_TRUE(has(r.out, "\"slp_hpa\": 1011.9")) << r.out;

    // Shown in the units of the settings.
    tool->run({"settings", "set", "distance", "1"});
    r = tool->run({"convert", "altitude", "900"});
    EXPECT_TRUE(has(r.out, "altitude             3243.6 ft")) << r.out;
}

TEST_F(ToolTest, CalibrateFromTheAgentAndKeepTheHistory) {
    ToolResult r = tool->run({"--json", "calibrate", "agent"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "\"source\": \"weather agent\"")) << r.out;
    EXPECT_TRUE(has(r.out, "\"history_entries\": 1")) << r.out;

    r = tool->run({"calibrate", "manual", "100", "1000"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "sea-level pressure   1011.94 hPa")) << r.out;

    r = tool->run({"history"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "sea-level pressure   1011.94 hPa")) << r.out;
    EXPECT_TRUE(has(r.out, "time                  sea-level pressure")) << r.out;

    r = tool->run({"agent", "set", "--pressure", "9999"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    r = tool->run({"calibrate", "agent"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(
        "orvex: error: the agent has no sea-level pressure for this location; nothing stored\n",
        r.err);

    tool->run({"agent", "set", "--age", "4000"});
    tool->run({"agent", "set", "--pressure", "1000"});
    r = tool->run({"calibrate", "agent"});
    EXPECT_EQ("orvex: error: the agent's weather is older than an hour; nothing stored\n", r.err);

    tool->run({"agent", "reset"});
    tool->run({"agent", "set", "--silent"});
    r = tool->run({"calibrate", "agent", "--timeout", "0.3"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("orvex: error: the weather agent did not answer within 0.3 s\n", r.err);

    r = tool->run({"calibrate", "agent", "--timeout", "-1"});
    EXPECT_EQ("orvex: error: the time-out must be a positive number of seconds\n", r.err);
}

TEST_F(ToolTest, DemoRunsToTheEnd) {
    ToolResult r = tool->run({"demo", "--seconds", "2"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    for (const char* part :
         {"== Live altitude against the stored sea-level pressure",
          "source               weather agent", "== Live altitude after the calibration",
          "== Calibration history", "== Recorded pressure, last six hours", "min "})
        EXPECT_TRUE(has(r.out, part)) << part << "\n" << r.out;
    EXPECT_TRUE(r.err.empty()) << r.err;
}

TEST_F(ToolTest, InterruptedLiveAltitudeEndsCleanlyAndKeepsTheStore) {
    tool->run({"settings", "set", "alert", "7"});
    ToolResult r = tool->runAndSignal(
        {"--json", "live"},
        [](const std::string& out) { return out.find("\n") != std::string::npos; }, SIGINT);
    EXPECT_EQ(0, r.exitCode) << r.err;
    auto lines = orvex_test::splitLines(r.out);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(has(lines[0], "\"pressure_unit\": \"hPa\"")) << lines[0];
    EXPECT_TRUE(has(lines[0], "\"altitude\": ")) << lines[0];

    r = tool->run({"--json", "settings"});
    EXPECT_TRUE(has(r.out, "\"alert\": 7")) << r.out;
}

TEST_F(ToolTest, LocationAndUsageLog) {
    ToolResult r = tool->run({"location", "set", "45.8326", "6.8652", "4808"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    r = tool->run({"--json", "location"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_EQ(
        "{\"latitude\": 45.832599999999999, \"longitude\": 6.8651999999999997, "
        "\"altitude_m\": 4808}\n",
        r.out);
    r = tool->run({"location", "set", "95", "0"});
    EXPECT_EQ("orvex: error: latitude is -90 to 90 and longitude -180 to 180\n", r.err);

    r = tool->run({"usage"});
    EXPECT_EQ("no usage events logged\n", r.out);
    ASSERT_EQ(0, tool->run({"usage", "send", "0", "--value", "7"}).exitCode);
    r = tool->run({"--json", "usage", "send", "3", "--extra", "auto"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "\"feature\": \"OX01\", \"value\": \"7\"")) << r.out;
    EXPECT_TRUE(has(r.out, "\"feature\": \"OX04\", \"extra\": \"auto\"")) << r.out;
    r = tool->run({"usage", "send", "12"});
    EXPECT_EQ("orvex: error: the type is 0 to 11\n", r.err);
}

TEST_F(ToolTest, WeatherServiceFailsClearlyWithoutAnAnswerAndKeysStayHidden) {
    // No server answers for the weather hosts here: a clear failure well within the time-out.
    tool->setEnv("https_proxy", "http://127.0.0.1:9");
    ToolResult r = tool->run({"calibrate", "service", "46.02", "7.75", "--timeout", "5"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("orvex: error: the weather service could not be reached or gave no usable answer\n",
              r.err);
    r = tool->run({"calibrate", "service", "91", "0"});
    EXPECT_EQ("orvex: error: latitude is -90 to 90 and longitude -180 to 180\n", r.err);

    r = tool->run({"keys", "set", "twc_api_key"}, "very-secret\n");
    ASSERT_EQ(0, r.exitCode) << r.err;
    r = tool->run({"-v", "keys", "list"});
    EXPECT_EQ("twc_api_key\n", r.out);
    r = tool->run({"-v", "calibrate", "service", "1", "2", "--timeout", "5"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(std::string::npos, (r.out + r.err).find("very-secret"));
}

TEST_F(ToolTest, InterruptedWaitsEndInOneLineAndLeaveTheStoreUsable) {
    tool->run({"agent", "set", "--silent"});
    // Signalled once it has been waiting for half a second.
    auto start = std::chrono::steady_clock::now();
    ToolResult r = tool->runAndSignal(
        {"calibrate", "agent", "--timeout", "30"},
        [&](const std::string&) {
            return std::chrono::steady_clock::now() - start > std::chrono::milliseconds(500);
        },
        SIGINT, 10000);
    EXPECT_EQ(130, r.exitCode) << r.err;
    EXPECT_EQ("orvex: interrupted\n", r.err);
    r = tool->run({"--json", "history"});
    EXPECT_EQ(0, r.exitCode) << r.err;

    r = tool->run({"--json", "recorded"});
    EXPECT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "\"records\"") || has(r.out, "[")) << r.out;
    r = tool->run({"backend"});
    EXPECT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, "sim")) << r.out;
}

}  // namespace
