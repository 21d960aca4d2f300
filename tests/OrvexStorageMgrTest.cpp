#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <regex>
#include <string>
#include <vector>

#include <orvex_host/control.h>
#include <platform/app_preference.h>

#include "HostFixture.h"
#include "OrvexStorageMgr.h"

using orvex_test::errors;
using orvex_test::infos;

namespace {

const char* const kCountry = "db/csc/country_iso";
const char* const kRegion = "db/menu_widget/regionformat";
const char* const kRetail = "db/retailmode/enabled";

class StorageTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        // Independent of the machine's locale unless a test says otherwise.
        orvex_host_vconf_set_str(kCountry, nullptr);
        orvex_host_vconf_set_str(kRegion, nullptr);
        store = OrvexStorageMgr::getInstance();
        ASSERT_NE(nullptr, store);
    }
    void TearDown() override {
        OrvexStorageMgr::deleteInstance();
        HostTest::TearDown();
    }

    int storedInt(const char* key) {
        int v = -12345;
        EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_int(key, &v)) << key;
        return v;
    }

    OrvexStorageMgr* store = nullptr;
};

struct CountryCase {
    const char* country;  // nullptr: the device has no country
    int distance;
    int pressure;
};

class CountryUnitsTest : public StorageTest, public ::testing::WithParamInterface<CountryCase> {};

TEST_P(CountryUnitsTest, FreshStoreTakesUnitsFromTheCountry) {
    orvex_host_vconf_set_str(kCountry, GetParam().country);
    store->initStorage();
    EXPECT_EQ(GetParam().distance, store->getSettingDistance());
    EXPECT_EQ(GetParam().pressure, store->getSettingPressure());
    EXPECT_EQ(std::vector<std::string>{"Preference is not init"}, errors());
}

INSTANTIATE_TEST_SUITE_P(Countries, CountryUnitsTest,
                         ::testing::Values(CountryCase{"US", 1, 1}, CountryCase{"RU", 0, 2},
                                           CountryCase{"DE", 0, 0}, CountryCase{"us", 0, 0},
                                           CountryCase{"USA", 0, 0}, CountryCase{"", 0, 0},
                                           CountryCase{nullptr, 0, 0}),
                         [](const ::testing::TestParamInfo<CountryCase>& info) {
                             std::string c = info.param.country ? info.param.country : "none";
                             return "country_" + (c.empty() ? std::string("empty") : c);
                         });

TEST_F(StorageTest, FreshStoreGetsEveryDefault) {
    store->initStorage();
    EXPECT_EQ(0, storedInt("ORVEX_SETTING_MANUAL"));
    EXPECT_EQ(0, storedInt("ORVEX_SETTING_ALERT"));
    EXPECT_EQ(0, storedInt("ORVEX_SETTING_AUTO_REFRESH"));
    EXPECT_EQ(0, storedInt("ORVEX_DATA_ACCU_WANING_MESSAGE"));
    EXPECT_EQ(0, storedInt("ORVEX_DATA_DEBUG_FEATURE"));
    EXPECT_EQ(1013.25, store->getDataSLP());
    char* text = nullptr;
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_string("ORVEX_DATA_CALIBRATE_TIME", &text));
    EXPECT_STREQ("", text);
    free(text);
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());
}

TEST_F(StorageTest, LaterStartsKeepTheUsersChoicesAndData) {
    orvex_host_vconf_set_str(kCountry, "US");
    store->initStorage();
    store->saveSettingDistance(0);
    store->saveSettingAlert(4);
    store->saveDataSLP(1002.5);
    orvex_test::clearLog();

    store->initStorage();
    EXPECT_EQ(0, store->getSettingDistance());
    EXPECT_EQ(1, store->getSettingPressure());
    EXPECT_EQ(4, store->getSettingAlert());
    EXPECT_EQ(1002.5, store->getDataSLP());
    EXPECT_TRUE(errors().empty());
}

TEST_F(StorageTest, OnlyAnUndecidedUnitIsResolvedAgain) {
    // An earlier start decided the distance and was interrupted before the pressure.
    store->saveSettingManualMode(0);
    store->saveSettingDistance(0);
    store->saveSettingPressure(3);
    orvex_host_vconf_set_str(kCountry, "US");
    store->initStorage();
    EXPECT_EQ(0, store->getSettingDistance());
    EXPECT_EQ(1, store->getSettingPressure());

    store->saveSettingDistance(2);
    store->saveSettingPressure(0);
    store->initStorage();
    EXPECT_EQ(1, store->getSettingDistance());
    EXPECT_EQ(0, store->getSettingPressure());
}

TEST_F(StorageTest, StoreFromBeforeTheWarningFlagGainsIt) {
    store->initStorage();
    store->saveAccuWarningMessage(1);
    store->initStorage();
    EXPECT_EQ(1, store->getAccuWaningMessage());

    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_remove("ORVEX_DATA_ACCU_WANING_MESSAGE"));
    store->initStorage();
    EXPECT_EQ(0, storedInt("ORVEX_DATA_ACCU_WANING_MESSAGE"));
}

TEST_F(StorageTest, DemonstrationUnitResetsAtEveryStartAndFollowsTheRegion) {
    orvex_host_vconf_set_int(kRetail, 1);
    orvex_host_vconf_set_str(kCountry, "RU");  // never consulted in this mode
    orvex_host_vconf_set_str(kRegion, "en_US.UTF-8");
    for (int start = 0; start < 2; ++start) {
        orvex_test::clearLog();
        store->initStorage();
        EXPECT_EQ(1, store->getSettingDistance());
        EXPECT_EQ(1, store->getSettingPressure());
        EXPECT_EQ(1013.25, store->getDataSLP());
        EXPECT_TRUE(store->isDataSLPHistoryEmpty());
        EXPECT_EQ(0, store->getAccuWaningMessage());
        EXPECT_EQ(std::vector<std::string>{"Preference is not init"}, errors());
        // What the user did during the demonstration is gone at the next start.
        store->saveDataSLP(990.0);
        store->addDataSLPHistory(100, 990.0);
        store->saveAccuWarningMessage(1);
    }
}

TEST_F(StorageTest, DemonstrationUnitUnitsForOtherOrMissingRegions) {
    orvex_host_vconf_set_int(kRetail, 7);
    for (const char* region : std::vector<const char*>{"de_DE.UTF-8", "en_GB", "EN_us", nullptr}) {
        orvex_host_vconf_set_str(kRegion, region);
        store->initStorage();
        EXPECT_EQ(0, store->getSettingDistance()) << (region ? region : "(null)");
        EXPECT_EQ(0, store->getSettingPressure()) << (region ? region : "(null)");
    }
    orvex_host_vconf_set_str(kRegion, "xx-en_US-yy");
    store->initStorage();
    EXPECT_EQ(1, store->getSettingDistance());
}

TEST_F(StorageTest, UnreadableRetailModeCountsAsOff) {
    orvex_host_fail_next("vconf_get_int", -1, -1);
    EXPECT_EQ(0, store->getLDUModeEnable());
    orvex_host_vconf_set_str(kCountry, "US");
    store->initStorage();
    store->saveSettingAlert(3);
    store->initStorage();
    EXPECT_EQ(3, store->getSettingAlert());
}

TEST_F(StorageTest, GettersOnAnEmptyStoreLogOrStaySilent) {
    struct Loud {
        const char* name;
        double (*read)(OrvexStorageMgr*);
    } loud[] = {
        {"manual", [](OrvexStorageMgr* s) { return double(s->getSettingManualMode()); }},
        {"distance", [](OrvexStorageMgr* s) { return double(s->getSettingDistance()); }},
        {"pressure", [](OrvexStorageMgr* s) { return double(s->getSettingPressure()); }},
        {"alert", [](OrvexStorageMgr* s) { return double(s->getSettingAlert()); }},
        {"warning", [](OrvexStorageMgr* s) { return double(s->getAccuWaningMessage()); }},
        {"slp", [](OrvexStorageMgr* s) { return s->getDataSLP(); }},
    };
    for (const auto& g : loud) {
        orvex_test::clearLog();
        EXPECT_EQ(0.0, g.read(store)) << g.name;
        EXPECT_EQ(std::vector<std::string>{"No Correct Data"}, errors()) << g.name;
    }

    orvex_test::clearLog();
    EXPECT_EQ(0, store->getAutoRefresh());
    EXPECT_EQ(0, store->getDebugFeature());
    EXPECT_EQ(0, store->getLDUModeEnable());
    EXPECT_EQ(0u, orvex_test::logLines().size());
}

TEST_F(StorageTest, AValueOfAnotherTypeReadsAsMissing) {
    ASSERT_EQ(0, preference_set_string("ORVEX_SETTING_ALERT", "5"));
    ASSERT_EQ(0, preference_set_int("ORVEX_DATA_SEE_LEVEL", 1000));
    EXPECT_EQ(0, store->getSettingAlert());
    EXPECT_EQ(0.0, store->getDataSLP());
    EXPECT_EQ((std::vector<std::string>{"No Correct Data", "No Correct Data"}), errors());
}

TEST_F(StorageTest, ErrorLineCarriesFileFunctionLineTagAndColour) {
    store->getSettingAlert();
    auto lines = orvex_test::logLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(DLOG_ERROR, lines[0].prio);
    EXPECT_EQ("ORVEX", lines[0].tag);
    EXPECT_TRUE(std::regex_match(
        lines[0].text, std::regex("OrvexStorageMgr\\.cpp: getSettingAlert\\([0-9]+\\) > "
                                  "\033\\[0;31m\\* Critical \\* No Correct Data\033\\[0;m")))
        << lines[0].text;

    orvex_test::clearLog();
    store->initStorage();
    char* history = store->getDataSLPHistory();
    free(history);
    lines = orvex_test::logLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(DLOG_INFO, lines.back().prio);
    EXPECT_TRUE(std::regex_match(
        lines.back().text, std::regex("OrvexStorageMgr\\.cpp: getDataSLPHistory\\([0-9]+\\) > "
                                      "\033\\[0;32mSLP History \033\\[0;m")))
        << lines.back().text;
}

TEST_F(StorageTest, SettersStoreAnyValueAndPassTheStoreResultBack) {
    EXPECT_EQ(0, store->saveSettingAlert(-7));
    EXPECT_EQ(-7, store->getSettingAlert());
    EXPECT_EQ(0, store->saveSettingDistance(42));
    EXPECT_EQ(42, store->getSettingDistance());
    EXPECT_EQ(0, store->saveDataSLPHistory("T:1;P+2.000000"));
    char* h = store->getDataSLPHistory();
    EXPECT_STREQ("T:1;P+2.000000", h);
    free(h);

    orvex_host_fail_next("preference_set_int", 1, PREFERENCE_ERROR_IO_ERROR);
    EXPECT_EQ(PREFERENCE_ERROR_IO_ERROR, store->saveAutoRefresh(1));
    EXPECT_EQ(0, store->getAutoRefresh());
    orvex_host_fail_next("preference_set_double", 1, PREFERENCE_ERROR_IO_ERROR);
    EXPECT_EQ(PREFERENCE_ERROR_IO_ERROR, store->saveDataSLP(1000.0));
    EXPECT_TRUE(errors().empty());
}

TEST_F(StorageTest, CurrentPressureLivesInMemoryOnly) {
    EXPECT_EQ(0.0, store->getCurrentPressure());
    store->setCurrentPressure(987.6);
    EXPECT_EQ(987.6, store->getCurrentPressure());
    OrvexStorageMgr::deleteInstance();
    store = OrvexStorageMgr::getInstance();
    EXPECT_EQ(0.0, store->getCurrentPressure());
}

TEST_F(StorageTest, SingletonLifecycle) {
    EXPECT_EQ(store, OrvexStorageMgr::getInstance());
    OrvexStorageMgr::deleteInstance();
    OrvexStorageMgr::deleteInstance();  // harmless

    {
        orvex_test::FailNothrowNew noMemory;
        EXPECT_EQ(nullptr, OrvexStorageMgr::getInstance());
        EXPECT_EQ(nullptr, OrvexStorageMgr::getInstance());
    }
    EXPECT_EQ((std::vector<std::string>{"_pInstance is NULL", "_pInstance is NULL"}), errors());
    store = OrvexStorageMgr::getInstance();
    EXPECT_NE(nullptr, store);
}

class ConversionTest : public StorageTest {};

TEST_F(ConversionTest, AltitudeFromPressure) {
    store->initStorage();
    EXPECT_EQ(1013.25, store->getDefaultSLP());
    EXPECT_EQ(0.0, store->getAltivalue(1013.25));
    EXPECT_EQ(0.0, store->getAltivalue(1013.25, 1013.25));
    EXPECT_NEAR(988.6, store->getAltivalue(900.0, 1013.25), 0.05);
    const double expected = (1.0 - std::pow(900.0 / 1013.25, 0.19029495718363465)) * 44330.0;
    EXPECT_EQ(expected, store->getAltivalue(900.0, 1013.25));
    EXPECT_NEAR(-109.7, store->getAltivalue(1026.5, 1013.25), 0.05);

    store->saveDataSLP(1020.0);
    EXPECT_EQ(store->getAltivalue(900.0, 1020.0), store->getAltivalue(900.0));
    EXPECT_TRUE(std::isinf(store->getAltivalue(900.0, 0.0)));
}

TEST_F(ConversionTest, OnlyTheOneArgumentAltitudeFallsBackToStandard) {
    const double standard = store->getAltivalue(900.0, 1013.25);
    for (double bad : {0.0, -5.0}) {
        store->saveDataSLP(bad);
        EXPECT_EQ(standard, store->getAltivalue(900.0)) << bad;
        EXPECT_EQ(bad, store->getBarovalue(0.0)) << bad;  // no fallback here
    }
    // A store that cannot be read behaves like a zero reference, with the error logged.
    ASSERT_EQ(0, preference_remove("ORVEX_DATA_SEE_LEVEL"));
    orvex_test::clearLog();
    EXPECT_EQ(standard, store->getAltivalue(900.0));
    EXPECT_EQ(0.0, store->getBarovalue(100.0));
    EXPECT_EQ((std::vector<std::string>{"No Correct Data", "No Correct Data"}), errors());
}

TEST_F(ConversionTest, PressureFromAltitudeIsCutToTenths) {
    store->initStorage();
    EXPECT_EQ(1013.2, store->getBarovalue(0.0));
    store->saveDataSLP(1013.29);
    EXPECT_EQ(1013.2, store->getBarovalue(0.0));
    store->saveDataSLP(1013.25);
    EXPECT_EQ(898.7, store->getBarovalue(1000.0));  // 898.76...: cut, not rounded
    EXPECT_GT(store->getBarovalue(-100.0), 1013.25);
    // Beyond 44330 m the base goes negative and the power is NaN, which converts to 0.
    EXPECT_EQ(0.0, store->getBarovalue(50000.0));
    // A reference so large that the tenths overflow a 32-bit integer saturates.
    store->saveDataSLP(1e12);
    EXPECT_EQ(2147483647 / 10.0, store->getBarovalue(0.0));
    store->saveDataSLP(-1e12);
    EXPECT_EQ(-2147483648.0 / 10.0, store->getBarovalue(0.0));
}

TEST_F(ConversionTest, ManualSeaLevelPressure) {
    EXPECT_EQ(1000.0, store->getManualSLP(0.0, 1000.0));
    EXPECT_NEAR(1011.9, store->getManualSLP(100.0, 1000.0), 0.05);
    // Round trip: the derived reference puts the pressure back at the altitude.
    const double slp = store->getManualSLP(1234.0, 870.0);
    EXPECT_NEAR(1234.0, store->getAltivalue(870.0, slp), 1e-6);
    EXPECT_TRUE(errors().empty());
}

}  // namespace
