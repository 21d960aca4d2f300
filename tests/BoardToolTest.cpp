// The tool on a real board: calibration from Open-Meteo, the recorded hours as CSV and as SVG.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>
#include <sstream>

#include "HostFixture.h"
#include "TestHttpServer.h"
#include "ToolRunner.h"

using orvex_test::TestHttpServer;

namespace {

using BoardToolTest = orvex_test::HostTest;

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TEST_F(BoardToolTest, CalibrateFromOpenMeteoThenKeepTheRecordedHours) {
    const std::string dir = orvex_host_data_dir();
    orvex_test::ToolRunner tool(ORVEX_TOOL_PATH, dir + "/home");
    TestHttpServer server(TestHttpServer::Mode::Https);
    const std::string now = std::to_string(time(nullptr)), slp = ",\"pressure_msl\":1017}}";
    server.route("/v1/forecast", {200, {}, "{\"current\":{\"time\":" + now + slp});
    tool.setEnv("ORVEX_HOST_AGENT_CA_FILE", TestHttpServer::caFile());
    ASSERT_EQ(0, tool.run({"agent", "backend", "open-meteo", "--url", server.url("")}).exitCode);
    auto r = tool.run({"calibrate", "agent"});
    EXPECT_TRUE(!r.exitCode && r.out.find("1017.00 hPa") != r.out.npos) << r.out << r.err;

    auto rows = splitLines(tool.run({"recorded", "--csv"}).out);
    ASSERT_GT(rows.size(), 100u);
    EXPECT_EQ("time,pressure_hpa,altitude_m", rows[0]);
    const std::regex row("([-0-9]{10}T[0-9:]{8}Z),([0-9]+\\.[0-9]{2}),-?[0-9]+\\.[0-9]");
    std::smatch last;
    for (size_t i = 1; i < rows.size(); ++i) {
        ASSERT_TRUE(std::regex_match(rows[i], last, row)) << rows[i];
        if (i > 1) {
            EXPECT_LT(rows[i - 1], rows[i]);
        }
    }
    // Calibrated to 123 m at that pressure: lower pressures lie above it, higher ones below.
    const double calibrated = std::stod(last[2]);
    ASSERT_EQ(0, tool.run({"calibrate", "manual", "123", last[2]}).exitCode);
    ASSERT_EQ(0, tool.run({"settings", "set", "distance", "1"}).exitCode);
    rows = splitLines(tool.run({"recorded", "--csv"}).out);
    EXPECT_EQ("time,pressure_hpa,altitude_ft", rows.at(0));
    for (size_t i = 1; i < rows.size(); ++i) {
        double hpa = atof(rows[i].c_str() + 21), ft = atof(strrchr(rows[i].c_str(), ',') + 1);
        if (std::fabs(hpa - calibrated) > 0.05) {
            EXPECT_EQ(calibrated > hpa, ft > 123 / 0.3048) << rows[i];
        }
    }

    // The chart marks the calibrations and renders to a picture that is not blank.
    const std::string svg = dir + "/chart.svg";
    ASSERT_EQ(0, tool.run({"recorded", "--svg", svg}).exitCode);
    EXPECT_EQ(0, system(("grep -q 'class=\"calibration\"' " + svg).c_str()));
    if (system("command -v rsvg-convert >/dev/null && command -v pamsumm >/dev/null") != 0)
        GTEST_SKIP() << "rsvg-convert (librsvg2-bin) and pamsumm (netpbm) render the chart";
    FILE* render =
        popen(("rsvg-convert -b white " + svg + " | pngtopnm | pamsumm -mean -brief").c_str(), "r");
    double mean = 255;  // 255 when all white; lines and labels bring it down
    EXPECT_EQ(1, fscanf(render, "%lf", &mean));
    EXPECT_EQ(0, pclose(render));
    EXPECT_LT(mean, 254) << "a blank chart";
}

}  // namespace
