// The altimeter's commands as a user runs them: analyse a trace, the alert settings, the totals.
#include <json-glib/json-glib.h>

#include <cmath>
#include <fstream>

#include "HostFixture.h"
#include "ToolRunner.h"

using orvex_test::ToolResult;

namespace {

class AltimeterToolTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        tool = std::make_unique<orvex_test::ToolRunner>(
            ORVEX_TOOL_PATH, std::string(orvex_host_data_dir()) + "/tool-home");
    }

    // The object a --json command printed; fails the test when there is none.
    JsonObject* json(const std::vector<std::string>& args) {
        ToolResult r = tool->run(args);
        EXPECT_EQ(0, r.exitCode) << r.err;
        parser_.reset(json_parser_new());
        JsonNode* root = json_parser_load_from_data(parser_.get(), r.out.c_str(), -1, nullptr)
                             ? json_parser_get_root(parser_.get())
                             : nullptr;
        EXPECT_TRUE(root && JSON_NODE_HOLDS_OBJECT(root)) << r.out;
        return root && JSON_NODE_HOLDS_OBJECT(root) ? json_node_get_object(root) : nullptr;
    }

    std::unique_ptr<orvex_test::ToolRunner> tool;
    std::unique_ptr<JsonParser, decltype(&g_object_unref)> parser_{nullptr, g_object_unref};
};

TEST_F(AltimeterToolTest, AnalysesATrace) {
    // Five minutes at rest, a 60 m climb in ten minutes, five minutes at rest; a fix only at the
    // start.
    const std::string trace = tool->home() + "/climb.csv";
    {
        std::ofstream out(trace);
        out << "seconds,hPa,gnss_alt_m\n";
        for (int t = 0; t <= 1200; ++t) {
            double altitude = 200.0 + std::clamp(t - 300, 0, 600) / 10.0;
            out << t << "," << 1013.25 * std::pow(1.0 - altitude / 44330.0, 5.255) << ","
                << (t == 0 ? "200" : "") << "\n";
        }
    }
    JsonObject* o = json({"--json", "analyse", trace, "--alert-threshold", "2.5"});
    ASSERT_TRUE(o);
    EXPECT_EQ(1201, json_object_get_int_member(o, "rows"));
    EXPECT_NEAR(60.0, json_object_get_double_member(o, "ascent_m"), 1.0);
    EXPECT_NEAR(0.0, json_object_get_double_member(o, "descent_m"), 0.5);
    EXPECT_NEAR(200.0, json_object_get_double_member(o, "min_altitude_m"), 0.5);
    EXPECT_NEAR(260.0, json_object_get_double_member(o, "max_altitude_m"), 0.5);
    EXPECT_EQ(0u, json_array_get_length(json_object_get_array_member(o, "alerts")));
    EXPECT_EQ(1, json_object_get_int_member(o, "mode_switches"));
    EXPECT_EQ(2.5, json_object_get_double_member(o, "alert_threshold_hpa"));

    ToolResult r = tool->run({"analyse", trace});
    // Recognised as a move a minute after it began.
    EXPECT_NE(std::string::npos, r.out.find("ascent          60.0 m\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("  0:06:03  moving\n")) << r.out;

    std::ofstream(trace) << "0,1000\n1,1000,x\n";
    // clang-format off
    const std::pair<std::vector<std::string>, std::string> refusals[] = {
        {{"analyse", trace}, "orvex: error: " + trace + ":2: expected seconds,hPa[,gnss_alt_m]\n"},
        {{"analyse", trace, "--alert-threshold", "11"},
         "orvex: error: the alert threshold is 1 to 10 hPa, not '11'\n"},
        {{"settings", "set", "alert-threshold", "0.5"}, "orvex: error: alert-threshold is 1 to 10 hPa\n"},
        {{"settings", "set", "alert", "2"}, "orvex: error: alert is 0 (off) or 1 (on)\n"},
    };
    // clang-format on
    for (const auto& [args, error] : refusals) {
        SCOPED_TRACE(error);
        r = tool->run(args);
        EXPECT_EQ(1, r.exitCode);
        EXPECT_EQ(error, r.err);
    }
}

TEST_F(AltimeterToolTest, SettingsAndTotalsOutliveTheProcess) {
    ASSERT_EQ(0, tool->run({"settings", "set", "alert-threshold", "4.5"}).exitCode);
    ASSERT_EQ(0, tool->run({"settings", "set", "alert-hook", "logger -t storm"}).exitCode);
    JsonObject* o = json({"--json", "settings"});
    ASSERT_TRUE(o);
    EXPECT_EQ(4.5, json_object_get_double_member(o, "alert-threshold"));
    EXPECT_STREQ("logger -t storm", json_object_get_string_member(o, "alert-hook"));

    // Live readings count; a reset starts again.
    ASSERT_EQ(0, tool->run({"live", "--seconds", "2"}).exitCode);
    o = json({"--json", "stats"});
    ASSERT_TRUE(o);
    EXPECT_FALSE(json_object_get_null_member(o, "updated"));
    EXPECT_FALSE(json_object_get_null_member(o, "min_altitude_m"));
    o = json({"--json", "stats", "--reset"});
    ASSERT_TRUE(o);
    EXPECT_FALSE(json_object_get_null_member(o, "since"));
    EXPECT_TRUE(json_object_get_null_member(o, "updated"));
    EXPECT_TRUE(json_object_get_null_member(o, "min_altitude_m"));
    EXPECT_EQ(0.0, json_object_get_double_member(o, "ascent_m"));
}

}  // namespace
