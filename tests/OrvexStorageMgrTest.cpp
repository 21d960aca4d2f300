#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <orvex_host/control.h>
#include <platform/app_preference.h>

#include "HostFixture.h"
#include "OrvexStorageMgr.h"

using orvex_test::errors;
using V = std::vector<std::string>;

namespace {

const char* const kCountry = "db/csc/country_iso";
const char* const kRegion = "db/menu_widget/regionformat";
const char* const kRetail = "db/retailmode/enabled";

// Every key the store keeps, in the order of the snapshots below.
const char* const kKeys[] = {
    "ORVEX_SETTING_MANUAL",         "ORVEX_SETTING_DISTANCE",     "ORVEX_SETTING_PRESSURE",
    "ORVEX_SETTING_ALERT",          "ORVEX_SETTING_AUTO_REFRESH", "ORVEX_DATA_SEE_LEVEL",
    "ORVEX_DATA_SEE_LEVEL_HISTORY", "ORVEX_DATA_CALIBRATE_TIME",  "ORVEX_DATA_ACCU_WANING_MESSAGE",
    "ORVEX_DATA_DEBUG_FEATURE",
};
const V kDefaults = {"0", "0", "0", "0", "0", "1013.25", "''", "''", "0", "0"};

class StorageTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        fresh(nullptr);
    }
    void TearDown() override {
        OrvexStorageMgr::deleteInstance();
        HostTest::TearDown();
    }
    // An empty data directory on a device of the given country, whatever the machine's locale.
    void fresh(const char* country) {
        ASSERT_EQ(0, orvex_host_reset());
        orvex_host_vconf_set_str(kCountry, country);
        orvex_host_vconf_set_str(kRegion, nullptr);
        store = OrvexStorageMgr::getInstance();
    }
    // The stored value of every key as text: strings quoted, "-" for a missing key.
    static V snapshot() {
        V out;
        for (const char* key : kKeys) {
            int i = 0;
            double d = 0;
            char* s = nullptr;
            char buf[64] = "-";
            if (preference_get_int(key, &i) == PREFERENCE_ERROR_NONE)
                snprintf(buf, sizeof buf, "%d", i);
            else if (preference_get_double(key, &d) == PREFERENCE_ERROR_NONE)
                snprintf(buf, sizeof buf, "%g", d);
            else if (preference_get_string(key, &s) == PREFERENCE_ERROR_NONE)
                snprintf(buf, sizeof buf, "'%s'", s);
            free(s);
            out.push_back(buf);
        }
        return out;
    }
    std::string history() {
        char* h = store->getDataSLPHistory();
        std::string out = h;
        free(h);
        return out;
    }
    // What a store holds after some use, written through the library's setters.
    void use() {
        store->saveSettingManualMode(1);
        store->saveSettingDistance(0);
        store->saveSettingPressure(2);
        store->saveSettingAlert(4);
        store->saveAutoRefresh(1);
        store->saveDataSLP(1002.5);
        store->saveDataSLPHistory("T:1;P+2.000000");
        store->saveDataCalTime(77);
        store->saveAccuWarningMessage(1);
        preference_set_int("ORVEX_DATA_DEBUG_FEATURE", 1);
    }
    const V used = {"1", "0", "2", "4", "1", "1002.5", "'T:1;P+2.000000'", "'77'", "1", "1"};

    OrvexStorageMgr* store = nullptr;
};

TEST_F(StorageTest, FirstStartWritesTheDefaultsAndTakesUnitsFromTheCountry) {
    const struct {
        const char* country;
        const char* distance;
        const char* pressure;
    } cases[] = {{"US", "1", "1"}, {"RU", "0", "2"},  {"DE", "0", "0"},
                 {"us", "0", "0"}, {"USA", "0", "0"}, {nullptr, "0", "0"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.country ? c.country : "no country");
        fresh(c.country);
        store->initStorage();
        V expected = kDefaults;
        expected[1] = c.distance;
        expected[2] = c.pressure;
        EXPECT_EQ(expected, snapshot());
        EXPECT_EQ(V{"Preference is not init"}, errors());
    }
}

TEST_F(StorageTest, LaterStartsKeepTheDataAndRefillWhatAKilledFirstStartLeftOut) {
    // Index of the key that is missing (-1: none) and what it reads after the start; on this
    // US device the undecided units come back resolved.
    const std::pair<int, const char*> cases[] = {
        {-1, nullptr},  {1, "1"},  {2, "1"},  {3, "0"}, {4, "0"},
        {5, "1013.25"}, {6, "''"}, {7, "''"}, {8, "0"}, {9, "0"},
    };
    for (const auto& [missing, refilled] : cases) {
        SCOPED_TRACE(missing < 0 ? "complete store" : kKeys[missing]);
        fresh("US");
        store->initStorage();
        use();
        ASSERT_EQ(used, snapshot());
        V expected = used;
        if (missing >= 0) {
            ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_remove(kKeys[missing]));
            expected[missing] = refilled;
        }
        orvex_test::clearLog();
        store->initStorage();
        EXPECT_EQ(expected, snapshot());
        EXPECT_EQ(0u, orvex_host_log_count());
    }
}

TEST_F(StorageTest, DemonstrationUnitResetsAtEveryStartWithTheUnitsOfItsRegion) {
    const std::pair<const char*, const char*> regions[] = {
        {"en_US.UTF-8", "1"}, {"xx-en_US-yy", "1"}, {"de_DE.UTF-8", "0"},
        {"EN_us", "0"},       {nullptr, "0"},
    };
    orvex_host_vconf_set_int(kRetail, 7);
    orvex_host_vconf_set_str(kCountry, "US");  // never consulted in this mode
    for (const auto& [region, unit] : regions) {
        SCOPED_TRACE(region ? region : "no region");
        orvex_host_vconf_set_str(kRegion, region);
        use();
        orvex_test::clearLog();
        store->initStorage();
        V expected = kDefaults;
        expected[1] = expected[2] = unit;
        EXPECT_EQ(expected, snapshot());
        EXPECT_EQ(V{"Preference is not init"}, errors());
    }
}

TEST_F(StorageTest, FailedPlatformCalls) {
    using S = OrvexStorageMgr;
    const struct {
        const char* fault;
        std::function<double(S*)> call;
        double result;
        const char* message;  // nullptr: nothing logged
    } cases[] = {
        {"preference_get_int", [](S* s) { return s->getSettingManualMode(); }, 0,
         "No Correct Data"},
        {"preference_get_int", [](S* s) { return s->getSettingDistance(); }, 0, "No Correct Data"},
        {"preference_get_int", [](S* s) { return s->getSettingPressure(); }, 0, "No Correct Data"},
        {"preference_get_int", [](S* s) { return s->getSettingAlert(); }, 0, "No Correct Data"},
        {"preference_get_int", [](S* s) { return s->getAccuWaningMessage(); }, 0,
         "No Correct Data"},
        {"preference_get_int", [](S* s) { return s->getAutoRefresh(); }, 0, nullptr},
        {"preference_get_int", [](S* s) { return s->getDebugFeature(); }, 0, nullptr},
        {"vconf_get_int", [](S* s) { return s->getLDUModeEnable(); }, 0, nullptr},
        {"preference_get_double", [](S* s) { return s->getDataSLP(); }, 0, "No Correct Data"},
        // An unreadable reference: the altitude falls back to the standard one, the pressure not.
        {"preference_get_double", [](S* s) { return s->getAltivalue(898.76); }, 1000.0,
         "No Correct Data"},
        {"preference_get_double", [](S* s) { return s->getBarovalue(100.0); }, 0,
         "No Correct Data"},
        {"preference_get_string", [](S* s) { return s->getDataCalTime(); }, 0, "No Correct Data"},
        {"preference_set_int", [](S* s) { return s->saveAutoRefresh(0); },
         PREFERENCE_ERROR_IO_ERROR, nullptr},
        {"preference_set_double", [](S* s) { return s->saveDataSLP(990.0); },
         PREFERENCE_ERROR_IO_ERROR, nullptr},
    };
    store->initStorage();
    use();
    orvex_host_vconf_set_int(kRetail, 1);
    for (const auto& c : cases) {
        orvex_test::clearLog();
        orvex_host_fail_next(c.fault, 1, PREFERENCE_ERROR_IO_ERROR);
        EXPECT_NEAR(c.result, c.call(store), 0.5) << c.fault;
        EXPECT_EQ(c.message ? V{c.message} : V{}, errors()) << c.fault;
        orvex_host_clear_faults();
    }
    EXPECT_EQ(used, snapshot());  // failed writes changed nothing
}

TEST_F(StorageTest, ConversionsFollowTheStandardAtmosphere) {
    store->initStorage();
    // ICAO standard atmosphere over 1013.25 hPa: altitude (m), pressure (hPa).
    const std::pair<double, double> standard[] = {
        {-100, 1025.32}, {0, 1013.25}, {1000, 898.76}, {2000, 794.98}, {3000, 701.12}};
    for (const auto& [altitude, pressure] : standard) {
        EXPECT_NEAR(altitude, store->getAltivalue(pressure), 0.5) << pressure;
        EXPECT_NEAR(altitude, store->getAltivalue(pressure, 1013.25), 0.5) << pressure;
        EXPECT_NEAR(pressure, store->getBarovalue(altitude), 0.1) << altitude;
        EXPECT_NEAR(1013.25, store->getManualSLP(altitude, pressure), 0.1) << altitude;
    }
    EXPECT_EQ(1013.25, store->getDefaultSLP());
    EXPECT_EQ(898.7, store->getBarovalue(1000.0));  // 898.76 is cut to tenths, not rounded
    EXPECT_EQ(0.0, store->getBarovalue(50000.0));   // above the model's top: NaN becomes 0
    store->saveDataSLP(1e12);
    EXPECT_EQ(2147483647 / 10.0, store->getBarovalue(0.0));  // tenths saturate at 32 bits
    store->saveDataSLP(-1e12);
    EXPECT_EQ(-2147483648.0 / 10.0, store->getBarovalue(0.0));
    store->saveDataSLP(1020.0);
    EXPECT_NEAR(56.0, store->getAltivalue(1013.25), 0.1);  // about 8.3 m per hPa
    // Only the stored-reference altitude replaces a reference that is not positive.
    for (double bad : {0.0, -5.0}) {
        store->saveDataSLP(bad);
        EXPECT_NEAR(1000.0, store->getAltivalue(898.76), 0.5) << bad;
        EXPECT_EQ(bad, store->getBarovalue(0.0)) << bad;
    }
}

TEST_F(StorageTest, HistoryAppendsEachNewTimeWithItsPressureInFull) {
    store->initStorage();
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());
    store->addDataSLPHistory(1500000000, 1013.25);
    EXPECT_FALSE(store->isDataSLPHistoryEmpty());
    store->addDataSLPHistory(1500003600, 1012.1);
    store->addDataSLPHistory(1500003600, 1000.0);  // a time already recorded
    store->addDataSLPHistory(150000, 1000.0);  // its digits show in the text: counts as recorded
    store->addDataSLPHistory(-5, 990.0);
    const std::string expected =
        "T:1500000000;P+1013.250000T:1500003600;P+1012.100000T:-5;P+990.000000";
    EXPECT_EQ(expected, history());
    EXPECT_EQ("SLP History " + expected, orvex_test::infos().back());

    orvex_host_fail_next("preference_set_string", 1, PREFERENCE_ERROR_IO_ERROR);
    store->addDataSLPHistory(7, 4.0);
    EXPECT_EQ(expected, history());

    store->saveDataSLPHistory("");
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());
    store->addDataSLPHistory(-9, 1e300);
    std::string huge = history();
    EXPECT_EQ(0u, huge.rfind("T:-9;P+1", 0)) << huge;
    EXPECT_EQ(std::string("T:-9;P+").size() + 301 + 7, huge.size());  // 301 digits, ".000000"
}

TEST_F(StorageTest, CalibrationTimeReadsTheLeadingNumber) {
    store->initStorage();
    EXPECT_EQ(0, store->getDataCalTime());  // empty after the reset
    const std::pair<const char*, long long> texts[] = {
        {"1700000000", 1700000000}, {"-12", -12}, {"12abc", 12}, {"  34", 34}};
    for (const auto& [text, time] : texts) {
        preference_set_string("ORVEX_DATA_CALIBRATE_TIME", text);
        EXPECT_EQ(time, store->getDataCalTime()) << text;
    }
    preference_set_string("ORVEX_DATA_CALIBRATE_TIME", "abc");
    EXPECT_THROW(store->getDataCalTime(), std::invalid_argument);
    preference_set_string("ORVEX_DATA_CALIBRATE_TIME", "99999999999999999999999");
    EXPECT_THROW(store->getDataCalTime(), std::out_of_range);
}

}  // namespace
