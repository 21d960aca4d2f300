// The tool on a real board: calibration from Open-Meteo, the recorded hours as CSV and as SVG.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>

#include "HostFixture.h"
#include "TestHttpServer.h"
#include "ToolRunner.h"

using orvex_test::TestHttpServer;

namespace {

using BoardToolTest = orvex_test::HostTest;

TEST_F(BoardToolTest, CalibrateFromOpenMeteoThenKeepTheRecordedHours) {
    const std::string dir = orvex_host_data_dir();
    orvex_test::ToolRunner tool(ORVEX_TOOL_PATH, dir + "/home");
    TestHttpServer server(TestHttpServer::Mode::Https);
    const std::string now = std::to_string(time(nullptr)), slp = ",\"pressure_msl\":1017}}";
    server.route("/v1/forecast", {200, {}, "{\"current\":{\"time\":" + now + slp});
    tool.setEnv("ORVEX_HOST_AGENT_CA_FILE", TestHttpServer::caFile());
    ASSERT_EQ(0, tool.run({"agent-backend", "open-meteo", "--url", server.url("")}).exitCode);
    auto r = tool.run({"calibrate", "agent"});
    EXPECT_NE(std::string::npos, r.out.find("1017.00 hPa")) << r.out << r.err;

    // Rows in time order; the altitude follows the stored sea-level pressure and the unit.
    auto rows = orvex_test::splitLines(tool.run({"recorded-export", "--csv"}).out);
    ASSERT_GT(rows.size(), 100u);
    EXPECT_EQ("time,pressure_hpa,altitude_m", rows[0]);
    const std::regex row(
        "(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ),(\\d+\\.\\d\\d),-?\\d+\\.\\d");
    std::smatch last;
    for (size_t i = 1; i < rows.size(); ++i) {
        ASSERT_TRUE(std::regex_match(rows[i], last, row)) << rows[i];
        if (i > 1) EXPECT_LT(rows[i - 1], rows[i]);
    }
    ASSERT_EQ(0, tool.run({"calibrate", "manual", "1234", last[2]}).exitCode);
    ASSERT_EQ(0, tool.run({"settings", "set", "distance", "1"}).exitCode);
    auto feet = tool.run({"recorded-export", "--csv"}).out;
    size_t at = feet.find(last[1].str() + ",");
    ASSERT_NE(std::string::npos, at) << feet;
    EXPECT_EQ(0u, feet.find("time,pressure_hpa,altitude_ft\n"));
    EXPECT_NEAR(1234 * 3.28084, atof(feet.c_str() + feet.find(',', at + 21) + 1), 0.25);

    // The chart marks the calibrations and renders to a picture that is not blank.
    ASSERT_EQ(0, tool.run({"recorded-export", "--svg", dir + "/chart.svg"}).exitCode);
    std::ifstream svg(dir + "/chart.svg");
    std::string text((std::istreambuf_iterator<char>(svg)), {});
    EXPECT_NE(std::string::npos, text.find("class=\"calibration\"")) << text;
    if (system("command -v rsvg-convert pngtopnm >/dev/null") != 0)
        GTEST_SKIP() << "rsvg-convert (librsvg2-bin) and pngtopnm (netpbm) render the chart";
    ASSERT_EQ(
        0, system(("rsvg-convert -b white " + dir + "/chart.svg | pngtopnm >" + dir + "/chart.ppm")
                      .c_str()));
    std::ifstream ppm(dir + "/chart.ppm", std::ios::binary);
    std::string magic;
    int width = 0, height = 0, depth = 0;
    (ppm >> magic >> width >> height >> depth).get();
    long total = 0, ink = 0;
    for (char rgb[3]; ppm.read(rgb, 3); ++total) ink += (rgb[0] & rgb[1] & rgb[2]) != char(0xff);
    EXPECT_EQ(long(width) * height, total) << magic;
    EXPECT_GT(ink, total / 100) << "a blank chart";
}

}  // namespace
