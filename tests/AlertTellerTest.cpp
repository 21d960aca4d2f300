// A storm alert told: the log line, and the hook with the figures in its environment.
#include <glib.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "AlertTeller.h"
#include "HostFixture.h"
#include "MainLoop.h"

namespace {

class AlertTellerTest : public orvex_test::HostTest {};

std::string readAll(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST_F(AlertTellerTest, HookGetsTheFiguresWithoutAShell) {
    const std::string out = std::string(orvex_host_data_dir()) + "/hook.txt";
    const orvex_tool::StormAlertFacts facts{1700000000.4, -3.456, 987.654, 1009.5, 3.0};
    // The path goes in as an argument of its own: quotes and blanks in it reach the hook intact.
    EXPECT_EQ(
        "", orvex_tool::tellStormAlert(facts,
                                       "sh -c 'env | grep ^ORVEX_ALERT_ | sort > \"$1.part\" && mv "
                                       "\"$1.part\" \"$1\"' hook '" +
                                           out + "'"));
    ASSERT_TRUE(orvex_test::runUntil([&] { return g_file_test(out.c_str(), G_FILE_TEST_EXISTS); }));
    EXPECT_EQ(
        "ORVEX_ALERT_PRESSURE_HPA=987.65\nORVEX_ALERT_SLP_HPA=1009.50\n"
        "ORVEX_ALERT_TENDENCY_HPA=-3.46\nORVEX_ALERT_THRESHOLD_HPA=3.0\n"
        "ORVEX_ALERT_TIME=1700000000\n",
        readAll(out));
    EXPECT_TRUE(orvex_test::logged(
        DLOG_WARN,
        "storm alert: the sea-level pressure fell 3.46 hPa in 3 h to 1009.50 hPa (threshold 3.0)"));

    const std::string problem = orvex_tool::tellStormAlert(facts, "/nonexistent/hook");
    EXPECT_NE("", problem);
    EXPECT_TRUE(orvex_test::logged(DLOG_ERROR, "the alert hook did not start: " + problem));
}

}  // namespace
