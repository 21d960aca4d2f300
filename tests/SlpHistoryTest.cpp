#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include <orvex_host/control.h>
#include <platform/app_preference.h>

#include "HostFixture.h"
#include "OrvexStorageMgr.h"

namespace {

class SlpHistoryTest : public orvex_test::StoreTest {
protected:
    std::string history() {
        char* h = store->getDataSLPHistory();
        std::string out = h;
        free(h);
        return out;
    }
};

TEST_F(SlpHistoryTest, EntriesAppendInOrder) {
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());
    store->addDataSLPHistory(100, 1013.25);
    EXPECT_EQ("T:100;P+1013.250000", history());
    EXPECT_FALSE(store->isDataSLPHistoryEmpty());
    store->addDataSLPHistory(1500003600, 1012.1);
    store->addDataSLPHistory(-5, 990.0);
    EXPECT_EQ("T:100;P+1013.250000T:1500003600;P+1012.100000T:-5;P+990.000000", history());
    EXPECT_EQ(orvex_test::infoText("SLP History T:100;P+1013.250000T:1500003600;P+1012.100000"
                                   "T:-5;P+990.000000"),
              orvex_test::logLines().back().text.substr(
                  orvex_test::logLines().back().text.find(") > ") + 4));
}

TEST_F(SlpHistoryTest, HugePressuresAreWrittenInFull) {
    store->addDataSLPHistory(-9, 1e300);
    std::string h = history();
    ASSERT_EQ(0u, h.rfind("T:-9;P+1", 0)) << h;
    EXPECT_EQ(std::string("T:-9;P+").size() + 301 + 7, h.size());  // 301 digits, ".000000"
    EXPECT_EQ(".000000", h.substr(h.size() - 7));
}

TEST_F(SlpHistoryTest, ATimeAlreadyInTheTextSuppressesTheEntry) {
    store->addDataSLPHistory(100, 1013.25);
    store->addDataSLPHistory(100, 1000.0);  // same time
    store->addDataSLPHistory(10, 1000.0);   // "10" is inside "100"
    store->addDataSLPHistory(25, 1000.0);   // "25" is inside "1013.250000"
    EXPECT_EQ("T:100;P+1013.250000", history());
    store->addDataSLPHistory(7, 1000.0);  // no 7 anywhere yet
    EXPECT_EQ("T:100;P+1013.250000T:7;P+1000.000000", history());
}

TEST_F(SlpHistoryTest, MissingOrReplacedHistory) {
    ASSERT_EQ(0, preference_remove("ORVEX_DATA_SEE_LEVEL_HISTORY"));
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());
    EXPECT_EQ("", history());
    store->addDataSLPHistory(42, 1001.0);
    EXPECT_EQ("T:42;P+1001.000000", history());
    store->saveDataSLPHistory("");
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());
    // A failed write leaves the previous text.
    store->addDataSLPHistory(1, 2.0);
    orvex_host_fail_next("preference_set_string", 1, PREFERENCE_ERROR_IO_ERROR);
    store->addDataSLPHistory(3, 4.0);
    EXPECT_EQ("T:1;P+2.000000", history());
}

TEST_F(SlpHistoryTest, CalibrationTime) {
    EXPECT_EQ(0, store->getDataCalTime());  // empty after the reset
    store->saveDataCalTime(1700000000);
    EXPECT_EQ(1700000000, store->getDataCalTime());
    store->saveDataCalTime(-12);
    EXPECT_EQ(-12, store->getDataCalTime());

    preference_set_string("ORVEX_DATA_CALIBRATE_TIME", "12abc");
    EXPECT_EQ(12, store->getDataCalTime());
    preference_set_string("ORVEX_DATA_CALIBRATE_TIME", "  34");
    EXPECT_EQ(34, store->getDataCalTime());
    preference_set_string("ORVEX_DATA_CALIBRATE_TIME", "abc");
    EXPECT_THROW(store->getDataCalTime(), std::invalid_argument);
    preference_set_string("ORVEX_DATA_CALIBRATE_TIME", "99999999999999999999999");
    EXPECT_THROW(store->getDataCalTime(), std::out_of_range);
    EXPECT_TRUE(orvex_test::errors().empty());

    ASSERT_EQ(0, preference_remove("ORVEX_DATA_CALIBRATE_TIME"));
    EXPECT_EQ(0, store->getDataCalTime());
    EXPECT_EQ(std::vector<std::string>{"No Correct Data"}, orvex_test::errors());
}

}  // namespace
