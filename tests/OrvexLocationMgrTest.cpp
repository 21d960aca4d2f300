#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <orvex_host/control.h>
#include <orvex_host/location_control.h>

#include "HostFixture.h"
#include "MainLoop.h"
#include "OrvexLocationMgr.h"

using orvex_test::errors;

namespace {

struct Listener : IOrvexLocationListener {
    void onLocationStateChanged(int state) override { states.push_back(state); }
    void onLocationEnableResult(int state) override { enables.push_back(state); }
    std::vector<int> states, enables;
};

class OrvexLocationMgrTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        orvex_host_location_set_position(46.5, 7.9, 1034.0);
        mgr = OrvexLocationMgr::getInstance();
        ASSERT_NE(nullptr, mgr);
    }
    void TearDown() override {
        OrvexLocationMgr::deleteInstance();
        HostTest::TearDown();
    }
    OrvexLocationMgr* mgr = nullptr;
    Listener listener;
};

TEST_F(OrvexLocationMgrTest, CreateStartAndReadPositions) {
    double lat = -1, lon = -1, alt = -1;
    EXPECT_EQ(-1, mgr->getCurrentPosition(&lat, &lon, &alt));
    EXPECT_EQ(-1, mgr->getLastKnownPosition(&lat, &lon, &alt));
    EXPECT_EQ(-1, lat);  // untouched
    EXPECT_EQ(
        (std::vector<std::string>{"_location_manager == nullptr", "_location_manager is null!!"}),
        errors());

    EXPECT_EQ(0, mgr->createLocationMgr(&listener));
    ASSERT_TRUE(orvex_test::runUntil([&] { return !listener.states.empty(); }));
    EXPECT_EQ(std::vector<int>{1}, listener.states);
    EXPECT_EQ(OrvexLocationMgr::LOCATION_STATE_ENABLED, mgr->getLocationState());

    EXPECT_EQ(0, mgr->getCurrentPosition(&lat, &lon, &alt));
    EXPECT_EQ(46.5, lat);
    EXPECT_EQ(7.9, lon);
    EXPECT_EQ(1034.0, alt);
    lat = lon = alt = 0;
    EXPECT_EQ(0, mgr->getLastKnownPosition(&lat, &lon, &alt));
    EXPECT_EQ(46.5, lat);

    // A second creation only restarts, keeping the first listener.
    Listener other;
    orvex_test::clearLog();
    EXPECT_EQ(0, mgr->createLocationMgr(&other));
    EXPECT_EQ(std::vector<std::string>{"_location_manager is already created!"},
              orvex_test::infos());
    EXPECT_EQ(1, orvex_host_location_manager_count());
    orvex_host_location_inject_state(1);
    ASSERT_TRUE(orvex_test::runUntil([&] { return listener.states.size() >= 2; }));
    EXPECT_TRUE(other.states.empty());

    // A disabled service changes the state and tells nobody.
    orvex_host_location_inject_state(0);
    ASSERT_TRUE(orvex_test::runUntil(
        [&] { return mgr->getLocationState() == OrvexLocationMgr::LOCATION_STATE_DISABLED; }));
    orvex_test::drainPending();
    EXPECT_EQ(2u, listener.states.size() + other.states.size());

    mgr->stopLocationMgr();
    EXPECT_NE(0, mgr->getCurrentPosition(&lat, &lon, &alt));
    OrvexLocationMgr::deleteInstance();
    EXPECT_EQ(0, orvex_host_location_manager_count());
}

TEST_F(OrvexLocationMgrTest, UnsupportedHybridMethod) {
    orvex_host_location_set_supported(0);
    EXPECT_FALSE(mgr->isGpsEnabled());
    EXPECT_EQ(-1073741822, mgr->createLocationMgr(&listener));
    EXPECT_EQ(0, orvex_host_location_manager_count());
    EXPECT_TRUE(errors().empty());
}

TEST_F(OrvexLocationMgrTest, EnablingAcceptedCreatesTheManagerOnTheSettingChange) {
    orvex_host_location_set_enabled(0);
    EXPECT_FALSE(mgr->isLocationEnabled());
    EXPECT_EQ(0, mgr->onLocationsetting(&listener));
    ASSERT_TRUE(orvex_test::runUntil([&] { return !listener.states.empty(); }));
    EXPECT_EQ(std::vector<int>{1}, listener.enables);
    EXPECT_TRUE(mgr->isLocationEnabled());
    EXPECT_EQ(1, orvex_host_location_manager_count());
    EXPECT_FALSE(orvex_host_location_has_enabling_result_cb());
    EXPECT_FALSE(orvex_host_location_has_setting_changed_cb());
}

TEST_F(OrvexLocationMgrTest, EnablingRefused) {
    orvex_host_location_set_enabled(0);
    orvex_host_location_set_enable_answer(0);
    EXPECT_EQ(0, mgr->onLocationsetting(&listener));
    ASSERT_TRUE(orvex_test::runUntil([&] { return !listener.enables.empty(); }));
    EXPECT_EQ(std::vector<int>{0}, listener.enables);
    EXPECT_EQ(OrvexLocationMgr::LOCATION_STATE_DISABLED, mgr->getLocationState());
    EXPECT_EQ(std::vector<std::string>{"location enable failed!!!"}, errors());
    EXPECT_FALSE(orvex_host_location_has_enabling_result_cb());
    EXPECT_FALSE(orvex_host_location_has_setting_changed_cb());
    EXPECT_EQ(0, orvex_host_location_manager_count());
}

TEST_F(OrvexLocationMgrTest, SettingChangeWithoutListenerDoesNothing) {
    OrvexLocationMgr::location_setting_changed_cb(LOCATIONS_METHOD_HYBRID, true, mgr);
    EXPECT_EQ(0, orvex_host_location_manager_count());
    OrvexLocationMgr::location_state_changed_cb(LOCATIONS_SERVICE_ENABLED, nullptr);
    EXPECT_EQ(std::vector<std::string>{"self is NULL"}, errors());
}

TEST_F(OrvexLocationMgrTest, EveryFailureStepLogsAndReturnsThePlatformCode) {
    struct Step {
        const char* function;
        int (*call)(OrvexLocationMgr*, IOrvexLocationListener*);
        std::vector<std::string> logged;
    };
    auto enable = [](OrvexLocationMgr* m, IOrvexLocationListener* l) {
        return m->onLocationsetting(l);
    };
    auto create = [](OrvexLocationMgr* m, IOrvexLocationListener* l) {
        return m->createLocationMgr(l);
    };
    const Step steps[] = {
        {"location_manager_set_enabling_method_result_cb",
         enable,
         {"location_manager_set_enabling_method_result_cb failed(-77)"}},
        {"location_manager_set_setting_changed_cb",
         enable,
         {"location_manager_set_setting_changed_cb failed(-77)"}},
        {"location_manager_enable_method", enable, {"location_manager_enable_method failed(-77)"}},
        {"location_manager_create", create, {"Failed to location_manager_create = -77"}},
        {"location_manager_set_service_state_changed_cb",
         create,
         {"Failed to location_manager_set_service_state_changed_cb(-77)"}},
        {"location_manager_start", create, {"Failed to location_manager_start(-77)"}},
    };
    for (const auto& s : steps) {
        orvex_test::clearLog();
        orvex_host_fail_next(s.function, 1, -77);
        EXPECT_EQ(-77, s.call(mgr, &listener)) << s.function;
        EXPECT_EQ(s.logged, errors()) << s.function;
        EXPECT_EQ(0, orvex_host_location_manager_count()) << s.function;
        EXPECT_FALSE(orvex_host_location_has_enabling_result_cb()) << s.function;
    }

    // Restart failure of an existing manager.
    ASSERT_EQ(0, mgr->createLocationMgr(&listener));
    orvex_test::clearLog();
    orvex_host_fail_next("location_manager_start", 1, -78);
    EXPECT_EQ(-78, mgr->createLocationMgr(&listener));
    EXPECT_EQ(std::vector<std::string>{"Failed to location_manager_start(-78)"}, errors());

    double lat, lon, alt;
    orvex_test::clearLog();
    orvex_host_fail_next("location_manager_get_last_position", 1, -79);
    EXPECT_EQ(-1, mgr->getLastKnownPosition(&lat, &lon, &alt));
    orvex_host_fail_next("location_manager_get_position", 1, -80);
    EXPECT_EQ(-80, mgr->getCurrentPosition(&lat, &lon, &alt));
    orvex_host_fail_next("location_manager_is_enabled_method", 1, -81);
    EXPECT_FALSE(mgr->isLocationEnabled());
    orvex_host_fail_next("location_manager_unset_enabling_method_result_cb", 1, -82);
    orvex_host_fail_next("location_manager_unset_setting_changed_cb", 1, -83);
    mgr->unsetLocationsetting();
    EXPECT_EQ(
        (std::vector<std::string>{"Failed to location_manager_get_position(-79)",
                                  "Failed to location_manager_is_enabled_method(-81)",
                                  "location_manager_unset_setting_changed_cb failed(-83)",
                                  "location_manager_unset_enabling_method_result_cb failed(-82)"}),
        errors());
}

TEST_F(OrvexLocationMgrTest, SingletonLifecycle) {
    OrvexLocationMgr::deleteInstance();
    OrvexLocationMgr::deleteInstance();
    {
        orvex_test::FailNothrowNew noMemory;
        EXPECT_EQ(nullptr, OrvexLocationMgr::getInstance());
    }
    EXPECT_EQ(std::vector<std::string>{"_pInstance is NULL"}, errors());
    mgr = OrvexLocationMgr::getInstance();
    ASSERT_NE(nullptr, mgr);
    EXPECT_EQ(OrvexLocationMgr::LOCATION_STATE_DISABLED, mgr->getLocationState());
}

}  // namespace
