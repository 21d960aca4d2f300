// The settings store: first start, later starts, reads, failures and the altitude arithmetic.
#include <cstdio>
#include <functional>
#include <stdexcept>

#include <platform/app_preference.h>

#include "HostFixture.h"
#include "OrvexStorageMgr.h"

using namespace orvex_test;

// Every key of the store, in the order of the snapshots below.
const char* const kKeys[] = {"ORVEX_SETTING_MANUAL",           "ORVEX_SETTING_DISTANCE",
                             "ORVEX_SETTING_PRESSURE",         "ORVEX_SETTING_ALERT",
                             "ORVEX_SETTING_AUTO_REFRESH",     "ORVEX_DATA_SEE_LEVEL",
                             "ORVEX_DATA_SEE_LEVEL_HISTORY",   "ORVEX_DATA_CALIBRATE_TIME",
                             "ORVEX_DATA_ACCU_WANING_MESSAGE", "ORVEX_DATA_DEBUG_FEATURE"};
const Lines kDefaults = {"0", "0", "0", "0", "0", "1013.25", "''", "''", "0", "0"};
// What use() leaves in the store.
const Lines kUsed = {"1", "0", "2", "4", "1", "1002.5", "'T:1;P+2.000000'", "'77'", "1", "1"};

class StorageTest : public StoreTest {
protected:
    // An empty data directory on a device of the given country, whatever the machine's locale.
    void fresh(const char* country) {
        ASSERT_EQ(0, orvex_host_reset());
        orvex_host_vconf_set_str("db/csc/country_iso", country);
        orvex_host_vconf_set_str("db/menu_widget/regionformat", nullptr);
    }
    // Every stored value as text: strings quoted, "-" for a missing key.
    static Lines snapshot() {
        Lines out;
        for (const char* key : kKeys) {
            int i;
            double d;
            char* s = nullptr;
            char buf[64] = "-";
            if (preference_get_int(key, &i) == 0) snprintf(buf, sizeof buf, "%d", i);
            if (preference_get_double(key, &d) == 0) snprintf(buf, sizeof buf, "%g", d);
            if (preference_get_string(key, &s) == 0) snprintf(buf, sizeof buf, "'%s'", s);
            free(s);
            out.push_back(buf);
        }
        return out;
    }
    void use() {
        for (int rc :
             {store->saveSettingManualMode(1), store->saveSettingDistance(0),
              store->saveSettingPressure(2), store->saveSettingAlert(4), store->saveAutoRefresh(1),
              store->saveDataSLP(1002.5), store->saveDataSLPHistory("T:1;P+2.000000"),
              store->saveAccuWarningMessage(1), preference_set_int("ORVEX_DATA_DEBUG_FEATURE", 1)})
            ASSERT_EQ(0, rc);
        store->saveDataCalTime(77);
    }
};

TEST_F(StorageTest, FirstStartAndEveryDemonstrationStartWriteTheDefaultsAndTheLocalUnits) {
    // A first start takes the units from the country; a demonstration unit resets at every start
    // and takes both from its region.
    const struct {
        int retail;
        const char *country, *region, *distance, *pressure;
    } cases[] = {
        {0, "US", nullptr, "1", "1"},       {0, "RU", nullptr, "0", "2"},
        {0, "DE", nullptr, "0", "0"},       {0, "us", nullptr, "0", "0"},
        {0, "USA", nullptr, "0", "0"},      {0, nullptr, "en_US", "0", "0"},
        {7, "US", "en_US.UTF-8", "1", "1"}, {7, "RU", "xx-en_US-yy", "1", "1"},
        {7, "US", "de_DE", "0", "0"},       {7, "US", "EN_us", "0", "0"},
        {7, "US", nullptr, "0", "0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "country " << (c.country ? c.country : "(none)") << ", region "
                     << (c.region ? c.region : "(none)") << ", retail " << c.retail);
        fresh(c.country);
        orvex_host_vconf_set_str("db/menu_widget/regionformat", c.region);
        orvex_host_vconf_set_int("db/retailmode/enabled", c.retail);
        if (c.retail) use();
        clearLog();
        store->initStorage();
        Lines expected = kDefaults;
        expected[1] = c.distance;
        expected[2] = c.pressure;
        EXPECT_EQ(expected, snapshot());
        EXPECT_EQ(Lines{"Preference is not init"}, errors());
    }
}

TEST_F(StorageTest, LaterStartsKeepTheDataAndRefillWhatAKilledFirstStartLeftOut) {
    // The key that is missing (-1: none) or holds a unit marker left behind, and what it reads
    // afterwards: on this US device the markers are resolved at once.
    const struct {
        int key;
        int marker;  // 0: the key is missing
        const char* after;
    } cases[] = {{-1, 0, ""}, {1, 0, "1"},       {2, 0, "1"},  {3, 0, "0"},
                 {4, 0, "0"}, {5, 0, "1013.25"}, {6, 0, "''"}, {7, 0, "''"},
                 {8, 0, "0"}, {9, 0, "0"},       {1, 2, "1"},  {2, 3, "1"}};
    for (const auto& [missing, marker, refilled] : cases) {
        SCOPED_TRACE(testing::Message() << (missing < 0 ? "complete" : kKeys[missing])
                                        << (marker ? " holding a unit marker" : " missing"));
        fresh("US");
        store->initStorage();
        use();
        Lines expected = kUsed;
        if (missing >= 0) {
            EXPECT_EQ(0, marker ? preference_set_int(kKeys[missing], marker)
                                : preference_remove(kKeys[missing]));
            expected[missing] = refilled;
        }
        clearLog();
        store->initStorage();
        EXPECT_EQ(expected, snapshot());
        EXPECT_EQ(0u, orvex_host_log_count());
    }
}

TEST_F(StorageTest, ReadsAndFailedPlatformCalls) {
#define CALL(expr) [](OrvexStorageMgr* s) -> double { return s->expr; }
    const char* const kNoData = "No Correct Data";
    const struct {
        const char* fault;
        std::function<double(OrvexStorageMgr*)> call;
        double read, failed;  // the result with the values of use(), and when the call fails
        const char* message;  // nullptr: nothing logged
    } cases[] = {
        {"preference_get_int", CALL(getSettingManualMode()), 1, 0, kNoData},
        {"preference_get_int", CALL(getSettingDistance()), 0, 0, kNoData},
        {"preference_get_int", CALL(getSettingPressure()), 2, 0, kNoData},
        {"preference_get_int", CALL(getSettingAlert()), 4, 0, kNoData},
        {"preference_get_int", CALL(getAccuWaningMessage()), 1, 0, kNoData},
        {"preference_get_int", CALL(getAutoRefresh()), 1, 0, nullptr},
        {"preference_get_int", CALL(getDebugFeature()), 1, 0, nullptr},
        {"vconf_get_int", CALL(getLDUModeEnable()), 1, 0, nullptr},
        {"preference_get_double", CALL(getDataSLP()), 1002.5, 0, kNoData},
        // Without a reference the altitude uses the standard one (10.75 hPa above: about 90 m),
        // the pressure does not.
        {"preference_get_double", CALL(getAltivalue(1002.5)), 0, 89.9, kNoData},
        {"preference_get_double", CALL(getBarovalue(0.0)), 1002.5, 0, kNoData},
        {"preference_get_string", CALL(getDataCalTime()), 77, 0, kNoData},
        {"preference_set_int", CALL(saveAutoRefresh(1)), 0, PREFERENCE_ERROR_IO_ERROR, nullptr},
        {"preference_set_double", CALL(saveDataSLP(1002.5)), 0, PREFERENCE_ERROR_IO_ERROR, nullptr},
    };
#undef CALL
    use();
    orvex_host_vconf_set_int("db/retailmode/enabled", 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases << ", failing " << c.fault);
        EXPECT_NEAR(c.read, c.call(store), 0.05);
        clearLog();
        orvex_host_fail_next(c.fault, 1, PREFERENCE_ERROR_IO_ERROR);
        EXPECT_NEAR(c.failed, c.call(store), 0.5);
        EXPECT_EQ(c.message ? Lines{c.message} : Lines{}, errors());
        orvex_host_clear_faults();
    }
    EXPECT_EQ(kUsed, snapshot());  // failed writes changed nothing
}

TEST_F(StorageTest, ConversionsFollowTheStandardAtmosphere) {
    // ICAO standard atmosphere over 1013.25 hPa: altitude (m), pressure (hPa).
    const std::pair<double, double> standard[] = {
        {-100, 1025.32}, {0, 1013.25}, {1000, 898.76}, {2000, 794.98}, {3000, 701.12}};
    for (const auto& [altitude, pressure] : standard) {
        SCOPED_TRACE(testing::Message() << altitude << " m, " << pressure << " hPa");
        EXPECT_NEAR(altitude, store->getAltivalue(pressure), 0.5);
        EXPECT_NEAR(altitude, store->getAltivalue(pressure, 1013.25), 0.5);
        EXPECT_NEAR(pressure, store->getBarovalue(altitude), 0.1);
        EXPECT_NEAR(1013.25, store->getManualSLP(altitude, pressure), 0.1);
    }
    EXPECT_EQ(898.7, store->getBarovalue(1000.0));  // 898.76 is cut to tenths, not rounded
    EXPECT_EQ(0.0, store->getBarovalue(50000.0));   // above the model's top: NaN becomes 0
    store->saveDataSLP(1e12);                       // tenths saturate at 32 bits
    EXPECT_EQ(2147483647 / 10.0, store->getBarovalue(0.0));
    store->saveDataSLP(-5.0);  // only the altitude replaces a reference that is not positive
    EXPECT_NEAR(1000.0, store->getAltivalue(898.76), 0.5);
    EXPECT_EQ(-5.0, store->getBarovalue(0.0));
}

TEST_F(StorageTest, HistoryAndCalibrationTime) {
    EXPECT_TRUE(store->isDataSLPHistoryEmpty());
    EXPECT_EQ(0, store->getDataCalTime());
    store->addDataSLPHistory(1500000000, 1013.25);
    EXPECT_FALSE(store->isDataSLPHistoryEmpty());
    store->addDataSLPHistory(1500003600, 1012.1);
    store->addDataSLPHistory(1500003600, 1000.0);  // a time already recorded
    store->addDataSLPHistory(150000, 1000.0);  // its digits show in the text: counts as recorded
    store->addDataSLPHistory(-5, 990.0);
    const std::string text =
        "T:1500000000;P+1013.250000T:1500003600;P+1012.100000T:-5;P+990.000000";
    EXPECT_EQ(text, adopt(store->getDataSLPHistory()));
    store->saveDataSLPHistory("");
    store->addDataSLPHistory(-9, 1e300);  // written in full: 301 digits and ".000000"
    EXPECT_EQ(std::string("T:-9;P+").size() + 301 + 7, adopt(store->getDataSLPHistory()).size());

    preference_set_string("ORVEX_DATA_CALIBRATE_TIME", "-12abc");
    EXPECT_EQ(-12, store->getDataCalTime());
    preference_set_string("ORVEX_DATA_CALIBRATE_TIME", "abc");
    EXPECT_THROW(store->getDataCalTime(), std::invalid_argument);
}
