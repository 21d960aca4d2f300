// The orvex tool as a user runs it: a process per command against its own data directory.
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "BuildConfig.h"
#include "HostFixture.h"
#include "TestHttpServer.h"
#include "ToolRunner.h"

using orvex_test::ToolResult;

namespace {

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// A command and what it must give: on success a part of its output (and nothing on stderr), on
// failure all of its stderr.
struct Step {
    std::vector<std::string> args;
    int exitCode;
    std::string text;
};

class ToolTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        tool = std::make_unique<orvex_test::ToolRunner>(
            ORVEX_TOOL_PATH, std::string(orvex_host_data_dir()) + "/tool-home");
        // The machine's locale must not decide the units under test.
        tool->setEnv("LC_ALL", "de_DE.UTF-8");
    }

    // Runs each step; with keepStore, also checks that the calibration store is as it was.
    void play(const std::vector<Step>& steps, bool keepStore = false) {
        std::string before = history();
        for (const auto& s : steps) {
            ToolResult r = tool->run(s.args);
            const std::string command = testing::PrintToString(s.args);
            EXPECT_EQ(s.exitCode, r.exitCode) << command << r.err;
            EXPECT_TRUE(s.exitCode != 0 || has(r.out, s.text)) << command << "\n" << r.out;
            EXPECT_EQ(s.exitCode ? s.text : "", r.err) << command;
            if (keepStore) {
                EXPECT_EQ(before, history()) << command;
            }
        }
    }

    std::string history() { return tool->run({"--json", "history"}).out; }

    std::unique_ptr<orvex_test::ToolRunner> tool;
};

TEST_F(ToolTest, CommandsKeepTheirStateAndOutput) {
    EXPECT_TRUE(has(tool->run({"-v", "init"}).err, "Preference is not init"));
    // clang-format off
    play({
        {{"--help"}, 0, "usage: orvex [-v] [--json] COMMAND [ARGS]"},
        {{"convert", "--help"}, 0, "usage: orvex convert altitude PRESSURE_HPA"},
        {{"fly"}, 1, "orvex: error: unknown command 'fly' (see 'orvex --help')\n"},
        {{"convert", "altitude", "lots"}, 2,
         "orvex convert: expected: altitude PRESSURE_HPA [--slp HPA] (see 'orvex convert --help')\n"},
        {{"init"}, 0, "sea-level pressure   1013.25 hPa"},
        {{"settings", "set", "pressure", "2"}, 0, "pressure             2  mmHg"},
        {{"--json", "settings"}, 0, R"({"distance":0,"pressure":2,"manual":0,"alert":0,)"
         R"("auto-refresh":0,"distance_unit":"m","pressure_unit":"mmHg","slp_hpa":1013.25})"},
        {{"convert", "altitude", "900"}, 0, "altitude             988.6 m"},
        {{"--json", "convert", "altitude", "900", "--slp", "1020"}, 0,
         R"({"pressure_hpa":900.0,"slp_hpa":1020.0,"altitude_m":1043.37)"},
        {{"--json", "calibrate", "agent"}, 0, R"({"source":"weather agent","slp_hpa":)"},
        {{"--json", "calibrate", "manual", "100", "1000"}, 0, R"("slp_hpa":1011.938)"},
        {{"history"}, 0, "time                  sea-level pressure"},
        {{"--json", "usage", "send", "3", "--extra", "auto"}, 0, R"("feature":"OX04","extra":"auto"}])"},
        {{"location", "set", "45.8326", "6.8652", "4808"}, 0, ""},
        {{"--json", "location"}, 0, R"("altitude_m":4808.0})"},
        {{"settings", "set", "distance", "1"}, 0, ""},
        {{"convert", "altitude", "900"}, 0, "altitude             3208.5 ft"},
    });
    // clang-format on
}

TEST_F(ToolTest, RefusalsAreOneLineAndLeaveTheStoreAsItWas) {
    ASSERT_EQ(0, tool->run({"calibrate", "manual", "100", "1000"}).exitCode);
    ASSERT_EQ(0, tool->run({"keys", "set", "twc_api_key"}, "very-secret\n").exitCode);
    chmod((tool->home() + "/keys.db").c_str(), 0644);
    const std::string implausible = " hPa is implausible (a sea-level pressure is 850 to 1100 hPa)";
    const std::string timeout = "the time-out must be a positive number of seconds (see 'orvex ";
    const std::string error = "orvex: error: ", slp = error + "the sea-level pressure ";
    // clang-format off
    play({
        {{"calibrate", "manual", "100", "1e308"}, 1, slp + "1.01194e+308" + implausible + "; nothing stored\n"},
        {{"calibrate", "manual", "0", "849.9"}, 1, slp + "849.9" + implausible + "; nothing stored\n"},
        {{"calibrate", "manual", "0", "1100.1"}, 1, slp + "1100.1" + implausible + "; nothing stored\n"},
        {{"calibrate", "agent", "--timeout", "-1"}, 2, "orvex calibrate: " + timeout + "calibrate --help')\n"},
        {{"calibrate", "service", "1", "2", "--timeout", "soon"}, 2,
         "orvex calibrate: " + timeout + "calibrate --help')\n"},
        {{"location", "--timeout", "nan"}, 2, "orvex location: " + timeout + "location --help')\n"},
        {{"calibrate", "service", "91", "0"}, 1, error + "latitude is -90 to 90 and longitude -180 to 180\n"},
        {{"calibrate", "service", "1", "2"}, 1,
         error + "the key store refuses to hand out API keys (is keys.db readable by others?)\n"},
        {{"convert", "altitude", "900", "--slp", "0"}, 1, slp + "'0' is not a positive number of hPa\n"},
        {{"convert", "slp", "44330", "900"}, 1, error + "the result is not a finite number\n"},
        {{"agent", "set", "--missing", "time"}, 1, error + "the entry is refreshedTime or pressure\n"},
        {{"live", "--seconds", "0"}, 1, error + "'0' is not a positive whole number of seconds\n"},
    }, true);
    // The library keeps what the agent said; the tool must not report it as a calibration.
    play({{{"agent", "set", "--pressure", "1e300"}, 0, ""},
          {{"calibrate", "agent"}, 1, error + "the weather agent's sea-level pressure 1e+300" + implausible + "\n"}});
    // clang-format on
}

// A store the tool cannot use (a read-only directory, a disk that takes no more, a corrupt file):
// every command fails in one line that says why, and what the store held is still there.
TEST_F(ToolTest, AFailingStoreIsNeverReportedAsSuccess) {
    const std::string home = tool->home();
    ASSERT_EQ(0, tool->run({"calibrate", "manual", "100", "1000"}).exitCode);
    ASSERT_EQ(0, tool->run({"keys", "set", "twc_api_key"}, "very-secret\n").exitCode);
    auto state = [&] {
        return tool->run({"--json", "history"}).out + tool->run({"--json", "settings"}).out +
               tool->run({"keys", "list"}).out;
    };
    const std::string before = state();
    // The tool behind a shell that restricts it first; the shell's own files stay out of the way.
    orvex_test::ToolRunner shell("/bin/sh", home + "/.shell");
    shell.setEnv("ORVEX_HOST_HOME", home);
    const std::string plain = "exec \"$0\" \"$@\"";
    // Root writes anywhere: a read-only directory is read-only to it only without that power.
    const std::string readOnly =
        geteuid() == 0 ? "exec setpriv --bounding-set=-dac_override \"$0\" \"$@\"" : plain;
    const std::string noRoom = "trap '' XFSZ; ulimit -f 1; " + plain;
    const std::vector<std::string> calibrate{"calibrate", "manual", "200", "1000"};
    const struct {
        std::string shell;
        const char* corrupt;  // the file replaced by garbage
        std::vector<std::string> args;
        const char* error;  // %s: the data directory
    } rows[] = {
        {readOnly, nullptr, calibrate, "cannot write to the data directory %s: Permission denied"},
        {readOnly,
         nullptr,
         {"settings", "set", "alert", "3"},
         "cannot write to the data directory %s: Permission denied"},
        {noRoom, nullptr, calibrate, "cannot use %s/host.db: File too large"},
        {plain, "host.db", {"init"}, "%s/host.db is corrupt"},
        {plain, "host.db", {"settings"}, "%s/host.db is corrupt"},
        {plain, "host.db", calibrate, "%s/host.db is corrupt"},
        {plain, "keys.db", {"keys", "list"}, "cannot list the keys: %s/keys.db is corrupt"},
        {plain, "keys.db", {"keys", "set", "a"}, "cannot store the key: %s/keys.db is corrupt"},
    };
    const std::string garbage(3000, 'x');
    for (const auto& row : rows) {
        SCOPED_TRACE(row.shell + " " + testing::PrintToString(row.args));
        const std::string file = home + "/" + (row.corrupt ? row.corrupt : "");
        // The database and its companions make the store; garbage takes the place of all three.
        std::vector<std::string> parts;
        if (row.corrupt) {
            parts = {file, file + "-wal", file + "-shm"};
            for (const auto& part : parts) rename(part.c_str(), (part + ".saved").c_str());
            std::ofstream(file) << garbage;
            chmod(file.c_str(), 0600);
        }
        if (row.shell == readOnly) chmod(home.c_str(), 0500);
        std::vector<std::string> args{"-c", row.shell, ORVEX_TOOL_PATH};
        args.insert(args.end(), row.args.begin(), row.args.end());
        ToolResult r = shell.run(args, "new-secret\n");
        chmod(home.c_str(), 0700);
        EXPECT_EQ(1, r.exitCode);
        EXPECT_EQ("orvex: error: " + orvex_test::fill(row.error, home.c_str()) + "\n", r.err);
        EXPECT_EQ("", r.out);
        std::ifstream in(file);
        EXPECT_TRUE(!row.corrupt || garbage == std::string(std::istreambuf_iterator<char>(in), {}));
        for (const auto& part : parts) rename((part + ".saved").c_str(), part.c_str());
        EXPECT_EQ(before, state());
    }
}

TEST_F(ToolTest, LiveEndsWhenTheSensorHasNothingToShow) {
    const std::string outOfRange = tool->home() + "/high.csv",
                      shortTrace = tool->home() + "/short.csv";
    std::ofstream(outOfRange) << "0,5000\n1,5000\n";
    std::ofstream(shortTrace) << "seconds,hPa\n0,950\n";
    play({{{"backend", "trace", outOfRange}, 0, ""},
          {{"live", "--seconds", "1"},
           1,
           "orvex: error: every reading in 1 s was out of range (see -v for the values)\n"},
          {{"backend", "trace", shortTrace, "--no-loop"}, 0, ""}});
    ToolResult r = tool->run({"live"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_TRUE(has(r.out, "950.00 hPa")) << r.out;
    EXPECT_TRUE(has(r.err, "orvex: error: the pressure sensor sends no more readings")) << r.err;
}

TEST_F(ToolTest, DemoRunsToTheEnd) {
    ToolResult r = tool->run({"demo", "--seconds", "1"});
    EXPECT_EQ(0, r.exitCode);
    EXPECT_EQ("", r.err);
    for (const char* part : {"source               weather agent", "== Calibration history",
                             "== Recorded pressure, last six hours", "min "})
        EXPECT_TRUE(has(r.out, part)) << part << "\n" << r.out;
}

TEST_F(ToolTest, InterruptedWaitsEndInOneLineAndKeepTheStore) {
    ASSERT_EQ(0, tool->run({"agent", "set", "--silent"}).exitCode);
    std::string before = history();
    ToolResult r =
        tool->run({"--json", "live"}, "", [](const std::string& out) { return has(out, "\n"); });
    EXPECT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, R"("pressure_unit":"hPa","altitude":)")) << r.out;
    // A silent agent or location service: signalled after 0.6 s of waiting, which a time-out
    // that wrapped (4294967.5 s as 0.2 s) would not have lasted.
    auto never = [](const std::string&) { return false; };
    const auto interrupted = std::make_pair(130, std::string("orvex: interrupted\n"));
    r = tool->run({"calibrate", "agent", "--timeout", "4294967.5"}, "", never, SIGINT, 600);
    EXPECT_EQ(interrupted, std::make_pair(r.exitCode, r.err));
    tool->setEnv("ORVEX_HOST_LOCATION_ENABLED", "0");
    r = tool->run({"calibrate", "service"}, "", never, SIGTERM, 600);
    EXPECT_EQ(interrupted, std::make_pair(r.exitCode, r.err));
    EXPECT_EQ(before, history());
}

TEST_F(ToolTest, CalibratesFromTheWeatherServiceEndToEnd) {
    orvex_test::TestHttpServer server(orvex_test::TestHttpServer::Mode::Https);
    ASSERT_TRUE(server.ok());
    const std::string answers = std::string(ORVEX_REFERENCE_DATA) + "/answers/";
    g_autofree char* answer = nullptr;
    ASSERT_TRUE(g_file_get_contents((answers + "twc_aggcommon_manhattan_2018-08-22.json").c_str(),
                                    &answer, nullptr, nullptr))
        << "no reference data in " << answers;
    server.route("/v2/aggcommon/v3-location-point;v3-wx-observations-current;v3-links",
                 {200, {}, answer});
    tool->setEnv("LD_PRELOAD", ORVEX_TOOL_PRELOAD);
    tool->setEnv("ORVEX_TEST_URL_FROM", std::string("https://") + ORVEX_TWC_HOST);
    tool->setEnv("ORVEX_TEST_URL_TO", "https://localhost:" + std::to_string(server.port()));
    tool->setEnv("ORVEX_TEST_CA_FILE", orvex_test::TestHttpServer::caFile());
    for (const char* proxy : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        tool->setEnv(proxy, "");
    ASSERT_EQ(0, tool->run({"keys", "set", "twc_api_key"}, "very-secret\n").exitCode);

    ToolResult r = tool->run({"-v", "--json", "calibrate", "service", "40.76", "-73.98"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, R"("provider":"The Weather Company")")) << r.out;
    EXPECT_FALSE(has(r.out + r.err, "very-secret"));
    std::string stored = history();
    EXPECT_TRUE(has(stored, R"({"slp_hpa":1005.7)")) << stored;
    EXPECT_TRUE(has(stored, R"("calibrated_at":1534962664,"history":[{"time":1534962664,)"))
        << stored;

    // No answer at all: one line, and the calibration stays.
    tool->setEnv("https_proxy", "http://127.0.0.1:9");
    play({{{"calibrate", "service", "40.76", "-73.98"},
           1,
           "orvex: error: the weather service could not be reached or gave no usable answer\n"}},
         true);
}

}  // namespace
