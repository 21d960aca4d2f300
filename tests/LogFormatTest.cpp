#include <regex>

#include "HostFixture.h"
#include "OrvexLocationMgr.h"
#include "OrvexSensor.h"
#include "OrvexStorageMgr.h"
#include "WeatherParser.h"

class LogFormatTest : public orvex_test::HostTest {};

TEST_F(LogFormatTest, EveryLineNamesItsOriginAndWrapsTheMessageInItsColour) {
    free(OrvexStorageMgr::getInstance()->getDataSLPHistory());
    OrvexStorageMgr::getInstance()->getSettingAlert();
    OrvexStorageMgr::deleteInstance();
    OrvexSensor().stopSensorIndicator();
    WeatherParser().Parse(nullptr, 0);
    double lat, lon, alt;
    OrvexLocationMgr::getInstance()->getCurrentPosition(&lat, &lon, &alt);
    OrvexLocationMgr::deleteInstance();
    const orvex_test::Lines expected = {
        "OrvexStorageMgr.cpp: getDataSLPHistory() > " + orvex_test::infoText("SLP History "),
        "OrvexStorageMgr.cpp: getSettingAlert() > " + orvex_test::errorText("No Correct Data"),
        "OrvexSensor.cpp: stopSensorIndicator() > " +
            orvex_test::errorText("stopSonserIndicator is failed!"),
        "OrvexSensor.cpp: stopSensor() > " + orvex_test::infoText("Stop Sensor"),
        "WeatherParser.cpp: Parse() > " + orvex_test::errorText("jsonData is NULL"),
        "OrvexLocationMgr.cpp: getCurrentPosition() > " +
            orvex_test::errorText("_location_manager == nullptr"),
    };
    orvex_test::Lines got;
    for (const auto& line : orvex_test::logLines()) {
        EXPECT_EQ("ORVEX", line.tag);
        EXPECT_EQ(line.text.find("* Critical *") == std::string::npos ? DLOG_INFO : DLOG_ERROR,
                  line.prio);
        // The line number is any positive one.
        got.push_back(std::regex_replace(line.text, std::regex("\\([1-9][0-9]*\\) > "), "() > "));
    }
    EXPECT_EQ(expected, got);
}
