// The library's log line: tag, priority, the file, function and line prefix and the colours.
#include <regex>

#include "HostFixture.h"
#include "OrvexStorageMgr.h"

using namespace orvex_test;

class LogFormatTest : public HostTest {};

TEST_F(LogFormatTest, EveryLineNamesItsOriginAndWrapsTheMessageInItsColour) {
    free(OrvexStorageMgr::getInstance()->getDataSLPHistory());
    OrvexStorageMgr::getInstance()->getSettingAlert();
    OrvexStorageMgr::deleteInstance();
    const Lines expected = {
        "OrvexStorageMgr.cpp: getDataSLPHistory() > " + infoText("SLP History "),
        "OrvexStorageMgr.cpp: getSettingAlert() > " + errorText("No Correct Data"),
    };
    Lines got;
    for (const auto& line : logLines()) {
        EXPECT_EQ("ORVEX", line.tag);
        EXPECT_EQ(line.text.find("* Critical *") == std::string::npos ? DLOG_INFO : DLOG_ERROR,
                  line.prio);
        // The line number is any positive one.
        got.push_back(std::regex_replace(line.text, std::regex("\\([1-9][0-9]*\\) > "), "() > "));
    }
    EXPECT_EQ(expected, got);
}
