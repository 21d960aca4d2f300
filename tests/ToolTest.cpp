// The orvex tool as a user runs it: a process per command against its own data directory.
#include <glib.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>

#include "BuildConfig.h"
#include "HostFixture.h"
#include "ReplaceFile.h"
#include "TestHttpServer.h"
#include "ToolRunner.h"

using orvex_test::HttpRoute;
using orvex_test::TestHttpServer;
using orvex_test::ToolResult;

namespace {

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string contents(const std::string& path) {
    g_autofree char* text = nullptr;
    gsize size = 0;
    return g_file_get_contents(path.c_str(), &text, &size, nullptr) ? std::string(text, size) : "";
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
            SCOPED_TRACE(testing::PrintToString(s.args));
            ToolResult r = tool->run(s.args);
            EXPECT_EQ(s.exitCode, r.exitCode) << r.err;
            EXPECT_TRUE(s.exitCode != 0 || has(r.out, s.text)) << r.out;
            EXPECT_EQ(s.exitCode ? s.text : "", r.err);
            if (keepStore) {
                EXPECT_EQ(before, history());
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
         R"("auto-refresh":0,"alert-threshold":3.0,"alert-hook":null,"distance_unit":"m",)"
         R"("pressure_unit":"mmHg","slp_hpa":1013.25})"},
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
        std::vector<std::string> args{"-c", row.shell};
        for (const auto& part : orvex_test::programCommand(ORVEX_TOOL_PATH)) args.push_back(part);
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

TEST_F(ToolTest, AnImplausibleAgentValueLeavesTheEarlierCalibration) {
    TestHttpServer server(TestHttpServer::Mode::Https);
    tool->setEnv("ORVEX_HOST_AGENT_CA_FILE", TestHttpServer::caFile());
    ASSERT_EQ(0, tool->run({"calibrate", "manual", "100", "1000"}).exitCode);
    const std::string error = "orvex: error: the weather agent";
    const std::string implausible = " hPa is implausible (a sea-level pressure is 850 to 1100 hPa)";
    const std::string putBack = "; the earlier calibration was put back\n";
    const std::string meteo = error + " could not answer: Open-Meteo";
    const std::vector<std::string> calibrate{"calibrate", "agent"};
    // clang-format off
    const struct {
        const char* name;
        std::vector<std::string> setUp;
        HttpRoute route;
        std::string err;
    } cases[] = {
        {"simulator sends 1e308", {"agent", "set", "--pressure", "1e308"}, {},
         error + "'s sea-level pressure 1e+308" + implausible + putBack},
        {"Open-Meteo sends 2000", {"agent", "backend", "open-meteo", "--url", server.url("")},
         {200, {}, "{\"current\":{\"time\":1789459200,\"pressure_msl\":2000}}"},
         meteo + "'s pressure_msl 2000" + implausible + "\n"},
        {"Open-Meteo's reason holds escape codes", {"agent", "backend", "open-meteo", "--url", server.url("")},
         {400, {}, "{\"reason\":\"\\u001b[2J\\r\\nforged line\"}"},
         meteo + " answered HTTP 400: \\x1b[2J\\x0d\\x0aforged line\n"},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        server.route("/v1/forecast", c.route);
        EXPECT_EQ(0, tool->run(c.setUp).exitCode);
        play({{calibrate, 1, c.err}}, true);
    }

    // An observation far in the future: the time is what gives it away.
    ASSERT_EQ(0, tool->run({"agent", "backend", "sim"}).exitCode);
    ASSERT_EQ(0, tool->run({"agent", "reset"}).exitCode);
    ASSERT_EQ(0, tool->run({"agent", "set", "--age", "-4000000000"}).exitCode);
    std::string before = history();
    ToolResult r = tool->run(calibrate);
    EXPECT_TRUE(has(r.err, error + "'s observation time ") &&
                has(r.err, " is implausible (a time is 2000 to 2100)" + putBack))
        << r.err;
    EXPECT_EQ(before, history());

    // The store refuses to take the sea-level pressure back: said in the same line.
    ASSERT_EQ(0, tool->run({"agent", "set", "--age", "0", "--pressure", "1e308"}).exitCode);
    before = history();
    orvex_test::ToolRunner failing(ORVEX_TOOL_PATH, tool->home());
    failing.setEnv("LD_PRELOAD", ORVEX_TOOL_FAULT_PRELOAD);
    failing.setEnv("ORVEX_TEST_FAIL", "preference_set_double:1:1:-5");
    r = failing.run(calibrate);
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(error + "'s sea-level pressure 1e+308" + implausible +
                  "; putting the earlier calibration back failed: the sea-level pressure cannot be "
                  "stored (error -5)\n",
              r.err);
    EXPECT_NE(before, history());
}

TEST_F(ToolTest, LiveEndsWhenTheSensorHasNothingToShow) {
    const std::string outOfRange = tool->home() + "/high.csv", twoRows = tool->home() + "/two.csv",
                      shortTrace = tool->home() + "/short.csv";
    std::ofstream(outOfRange) << "0,5000\n1,5000\n";
    std::ofstream(twoRows) << "0,950\n1,951\n";
    std::ofstream(shortTrace) << "seconds,hPa\n0,950\n";
    play({{{"backend", "trace", outOfRange}, 0, ""},
          {{"live", "--seconds", "1"},
           1,
           "orvex: error: no valid reading from the pressure sensor in 1 s (5000 hPa is outside "
           "the plausible 260 to 1260 hPa at the sensor)\n"},
          // A trace that ends just as the asked readings are shown has shown them all.
          {{"backend", "trace", twoRows, "--no-loop"}, 0, ""},
          {{"live", "--seconds", "2"}, 0, "951.00 hPa"},
          {{"backend", "trace", shortTrace, "--no-loop"}, 0, ""}});
    ToolResult r = tool->run({"live"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_TRUE(has(r.out, "950.00 hPa")) << r.out;
    EXPECT_TRUE(has(r.err, "orvex: error: the pressure sensor sends no more readings")) << r.err;
}

TEST_F(ToolTest, LiveEndsOnASignalWhateverTheSensorDoes) {
    const std::string root = tool->home() + "/iio", input = root + "/iio:device0/in_pressure_input";
    g_mkdir_with_parents((root + "/iio:device0").c_str(), 0700);
    ASSERT_EQ(0, mkfifo(input.c_str(), 0600));  // no writer: opening it for reading would block
    const std::string noReading = "orvex: error: no valid reading from the pressure sensor (" +
                                  input + ": not a regular file)\n";
    const struct {
        const char* backend;
        int signal;
        int exitCode;
        std::string err;
    } cases[] = {
        {"iio", SIGTERM, 1, noReading}, {"iio", SIGINT, 1, noReading}, {"sim", SIGTERM, 0, ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.backend) + " " + strsignal(c.signal));
        EXPECT_EQ(0, tool->run({"backend", c.backend, "--root", root}).exitCode);
        ToolResult r = tool->run(
            {"live"}, "", [](const std::string& out) { return has(out, "\n"); }, c.signal);
        EXPECT_EQ(c.exitCode, r.exitCode);
        EXPECT_EQ(c.err, r.err);
    }
}

TEST_F(ToolTest, ExportsReplaceTheirFileWholeAndLeaveAbsurdRecordsOut) {
    const std::string dir = tool->home() + "/out/", trace = dir + "steady.csv";
    g_mkdir_with_parents(dir.c_str(), 0700);
    std::ofstream(trace) << "0,1000\n";
    std::ofstream(dir + "earlier.svg") << "earlier\n";  // what the link points at
    symlink((dir + "earlier.svg").c_str(), (dir + "link").c_str());
    symlink((dir + "nowhere").c_str(), (dir + "dangling").c_str());
    ASSERT_EQ(0, tool->run({"backend", "trace", trace}).exitCode);
    const std::string link = "' is a symbolic link; not writing through it\n";
    play({{{"recorded", "--svg", dir + "link"}, 1, "orvex: error: '" + dir + "link" + link},
          {{"recorded", "--csv", dir + "dangling"},
           1,
           "orvex: error: '" + dir + "dangling" + link}});
    EXPECT_EQ("earlier\n", contents(dir + "earlier.svg"));
    EXPECT_FALSE(g_file_test((dir + "nowhere").c_str(), G_FILE_TEST_EXISTS));

    // Records of an older store, or of another program, that no barometer reads (1e999 is stored
    // as infinity); 9 is the pressure sensor.
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open((tool->home() + "/host.db").c_str(), &db));
    const std::string now = std::to_string(g_get_real_time() / G_USEC_PER_SEC);
    const std::string sql = "INSERT INTO sensor_record VALUES(9," + now + "-3600,1e300),(9," + now +
                            "-7200,-5),(9," + now + "-10800,1e999)";
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr));
    sqlite3_close(db);
    const std::string note = "orvex: note: 3 records left out (not a plausible pressure)\n";
    for (const char* file : {"rows.csv", "chart.svg"}) {
        SCOPED_TRACE(file);
        ToolResult r = tool->run({"recorded", file[0] == 'r' ? "--csv" : "--svg", dir + file});
        EXPECT_EQ(0, r.exitCode);
        EXPECT_EQ(note, r.err);
        const std::string text = contents(dir + file);
        for (const char* absurd : {"nan", "inf"}) EXPECT_FALSE(has(text, absurd)) << text;
        EXPECT_TRUE(has(text, file[0] == 'r' ? ",1000.00," : "3 records left out")) << text;
    }
}

// A full disk, as a file-size limit: nothing of the new text replaces the earlier file, and no
// temporary file is left beside it.
TEST_F(ToolTest, AFailedExportLeavesTheEarlierFileWhole) {
    const std::string dir = tool->home() + "/full", path = dir + "/chart.svg";
    g_mkdir_with_parents(dir.c_str(), 0700);
    std::string error;
    ASSERT_TRUE(orvex_tool::replaceFile(path, "earlier\n", &error)) << error;
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit small{16, saved.rlim_max};
    auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    bool written = orvex_tool::replaceFile(path, std::string(4096, 'x'), &error);
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, handler);
    EXPECT_FALSE(written);
    EXPECT_EQ("cannot write '" + path + "' (File too large); the earlier file is unchanged", error);
    EXPECT_EQ("earlier\n", contents(path));
    g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
    EXPECT_STREQ("chart.svg", g_dir_read_name(listing));
    EXPECT_EQ(nullptr, g_dir_read_name(listing));
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
    g_autofree char* answer = nullptr;
    ASSERT_TRUE(
        g_file_get_contents(ORVEX_TEST_DATA "/twc-aggcommon.json", &answer, nullptr, nullptr));
    server.route("/v2/aggcommon/v3-location-point;v3-wx-observations-current;v3-links",
                 {200, {}, answer});
    tool->setEnv("LD_PRELOAD", ORVEX_TOOL_PRELOAD);
    tool->setEnv("ORVEX_TEST_URL_FROM", std::string("https://") + ORVEX_TWC_HOST);
    tool->setEnv("ORVEX_TEST_URL_TO", "https://localhost:" + std::to_string(server.port()));
    tool->setEnv("ORVEX_TEST_CA_FILE", orvex_test::TestHttpServer::caFile());
    for (const char* proxy : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        tool->setEnv(proxy, "");
    ASSERT_EQ(0, tool->run({"keys", "set", "twc_api_key"}, "very-secret\n").exitCode);

    ToolResult r = tool->run({"-v", "--json", "calibrate", "service", "47.27", "11.40"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(has(r.out, R"("provider":"The Weather Company")")) << r.out;
    EXPECT_FALSE(has(r.out + r.err, "very-secret"));
    std::string stored = history();
    EXPECT_TRUE(has(stored, R"({"slp_hpa":1018.4)")) << stored;
    EXPECT_TRUE(has(stored, R"("calibrated_at":1763820200,"history":[{"time":1763820200,)"))
        << stored;

    // No answer at all: one line, and the calibration stays.
    tool->setEnv("https_proxy", "http://127.0.0.1:9");
    play({{{"calibrate", "service", "47.27", "11.40"},
           1,
           "orvex: error: the weather service could not be reached or gave no usable answer\n"}},
         true);
}

}  // namespace
