#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <string>

#include "HostFixture.h"
#include "OrvexLocationMgr.h"
#include "OrvexSensor.h"
#include "OrvexStorageMgr.h"
#include "WeatherParser.h"

namespace {

class LogFormatTest : public orvex_test::HostTest {
protected:
    void TearDown() override {
        OrvexStorageMgr::deleteInstance();
        OrvexLocationMgr::deleteInstance();
        HostTest::TearDown();
    }
};

TEST_F(LogFormatTest, EveryLineNamesItsOriginAndWrapsTheMessageInItsColour) {
    OrvexStorageMgr::getInstance()->getSettingAlert();
    free(OrvexStorageMgr::getInstance()->getDataSLPHistory());
    {
        OrvexSensor sensor;
        sensor.stopSensorIndicator();
    }
    WeatherParser parser;
    parser.Parse(nullptr, 0);
    double lat, lon, alt;
    OrvexLocationMgr::getInstance()->getCurrentPosition(&lat, &lon, &alt);

    const struct {
        int prio;
        const char* origin;  // file: function
        const char* message;
    } expected[] = {
        {DLOG_ERROR, "OrvexStorageMgr.cpp: getSettingAlert", "No Correct Data"},
        {DLOG_INFO, "OrvexStorageMgr.cpp: getDataSLPHistory", "SLP History "},
        {DLOG_ERROR, "OrvexSensor.cpp: stopSensorIndicator", "stopSonserIndicator is failed!"},
        {DLOG_INFO, "OrvexSensor.cpp: stopSensor", "Stop Sensor"},
        {DLOG_ERROR, "WeatherParser.cpp: Parse", "jsonData is NULL"},
        {DLOG_ERROR, "OrvexLocationMgr.cpp: getCurrentPosition", "_location_manager == nullptr"},
    };
    auto lines = orvex_test::logLines();
    ASSERT_EQ(std::size(expected), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        const auto& e = expected[i];
        std::string wrapped = e.prio == DLOG_ERROR ? orvex_test::errorText(e.message)
                                                   : orvex_test::infoText(e.message);
        EXPECT_EQ(e.prio, lines[i].prio) << lines[i].text;
        EXPECT_EQ("ORVEX", lines[i].tag) << lines[i].text;
        std::smatch m;
        ASSERT_TRUE(std::regex_match(lines[i].text, m, std::regex("(.*)\\(([0-9]+)\\) > (.*)")))
            << lines[i].text;
        EXPECT_EQ(e.origin, m[1].str());
        EXPECT_GT(std::stoi(m[2].str()), 0);
        EXPECT_EQ(wrapped, m[3].str());
    }
}

}  // namespace
