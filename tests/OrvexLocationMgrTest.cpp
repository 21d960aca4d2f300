// The location manager over the host location service: life cycle, positions and failures.
#include <cmath>
#include <fstream>
#include <functional>

#include <orvex_host/location_control.h>

#include "HostFixture.h"
#include "MainLoop.h"
#include "OrvexLocationMgr.h"

using namespace orvex_test;
using M = OrvexLocationMgr;
using Fix = std::vector<double>;

struct Listener : IOrvexLocationListener {
    void onLocationStateChanged(int state) override { states.push_back(state); }
    void onLocationEnableResult(int state) override { enables.push_back(state); }
    std::vector<int> states, enables;
};

class OrvexLocationMgrTest : public HostTest {
protected:
    void TearDown() override {
        M::deleteInstance();
        HostTest::TearDown();
    }
    // Latitude, longitude, altitude; or the failure code alone.
    Fix position(bool last = false) {
        double lat, lon, alt;
        int rc = last ? mgr->getLastKnownPosition(&lat, &lon, &alt)
                      : mgr->getCurrentPosition(&lat, &lon, &alt);
        return rc ? Fix{double(rc)} : Fix{lat, lon, alt};
    }
    M* mgr = M::getInstance();
    Listener listener;
};

TEST_F(OrvexLocationMgrTest, StartedManagerFollowsAReplayedTrack) {
    EXPECT_EQ(Fix{-1}, position());
    EXPECT_EQ(Fix{-1}, position(true));
    EXPECT_EQ((Lines{"_location_manager == nullptr", "_location_manager is null!!"}), errors());
    const std::string track = std::string(orvex_host_data_dir()) + "/track.csv";
    std::ofstream(track) << "seconds,latitude,longitude,altitude\n"
                         << "0,46.0,7.0,1000\n0.2,46.1,7.1,1100\n0.4,46.2,7.2,1200\n";
    ASSERT_EQ(0, orvex_host_location_set_track(track.c_str()));
    EXPECT_EQ(0, mgr->createLocationMgr(&listener));
    EXPECT_EQ((Fix{46.0, 7.0, 1000.0}), position());
    EXPECT_EQ((Fix{46.0, 7.0, 1000.0}), position(true));
    ASSERT_TRUE(runUntil([&] { return !listener.states.empty(); }));
    EXPECT_EQ(std::vector<int>{M::LOCATION_STATE_ENABLED}, listener.states);

    Listener other;  // a second creation only restarts, keeping the first listener
    EXPECT_EQ(0, mgr->createLocationMgr(&other));
    EXPECT_EQ(1, orvex_host_location_manager_count());
    orvex_host_location_inject_state(LOCATIONS_SERVICE_ENABLED);
    ASSERT_TRUE(runUntil([&] { return listener.states.size() == 2; }));
    // A disabled service changes the state and tells nobody.
    orvex_host_location_inject_state(LOCATIONS_SERVICE_DISABLED);
    ASSERT_TRUE(runUntil([&] { return mgr->getLocationState() == M::LOCATION_STATE_DISABLED; }));
    EXPECT_EQ(2u, listener.states.size() + other.states.size());

    // Every read asks the platform again.
    ASSERT_TRUE(runUntil([&] { return position() == Fix{46.2, 7.2, 1200.0}; }));
    mgr->stopLocationMgr();
    EXPECT_EQ(1u, position().size());

    // A position without height (a point without ele, a 2D fix) reaches the caller as NAN.
    std::ofstream(track) << "<gpx version=\"1.1\"><trk><trkseg><trkpt lat=\"46.3\" lon=\"7.3\">"
                         << "<time>2024-05-01T10:00:00Z</time></trkpt></trkseg></trk></gpx>";
    EXPECT_EQ(0, mgr->createLocationMgr(&listener));
    EXPECT_TRUE(std::isnan(position().back()));
    EXPECT_TRUE(std::isnan(position(true).back()));
    M::deleteInstance();
    EXPECT_EQ(0, orvex_host_location_manager_count());
}

TEST_F(OrvexLocationMgrTest, EnablingTheSetting) {
    for (int accept : {1, 0}) {
        SCOPED_TRACE(accept ? "accepted" : "refused");
        EXPECT_EQ(0, orvex_host_reset());
        orvex_host_location_set_enabled(0);
        orvex_host_location_set_enable_answer(accept);
        Listener l;
        EXPECT_EQ(0, mgr->onLocationsetting(&l));
        if (!accept) {  // deleted while the request is still open: its callbacks go with it
            M::deleteInstance();
            EXPECT_FALSE(orvex_host_location_has_enabling_result_cb() ||
                         orvex_host_location_has_setting_changed_cb());
            mgr = M::getInstance();
            EXPECT_EQ(0, mgr->onLocationsetting(&l));
        }
        // Accepted: the setting change creates the manager, which then reports its state.
        EXPECT_TRUE(runUntil([&] { return l.enables.size() + l.states.size() == 1u + accept; }));
        EXPECT_EQ(std::vector<int>{accept}, l.enables);
        EXPECT_EQ(accept, mgr->getLocationState());
        EXPECT_EQ(accept == 1, mgr->isLocationEnabled());
        EXPECT_EQ(accept, orvex_host_location_manager_count());
        EXPECT_EQ(accept ? Lines{} : Lines{"location enable failed!!!"}, errors());
        EXPECT_FALSE(orvex_host_location_has_enabling_result_cb() ||
                     orvex_host_location_has_setting_changed_cb());
        M::deleteInstance();
        mgr = M::getInstance();
    }
    orvex_host_location_set_supported(0);
    EXPECT_EQ(LOCATIONS_ERROR_NOT_SUPPORTED, mgr->createLocationMgr(&listener));
}

TEST_F(OrvexLocationMgrTest, FailedPlatformCalls) {
    using F = std::function<int()>;
    F enable = [this] { return mgr->onLocationsetting(&listener); };
    F create = [this] { return mgr->createLocationMgr(&listener); };
    F unset = [this] { return mgr->unsetLocationsetting(), 0; };
    const struct {
        const char* fault;
        bool created;  // a started manager exists before the call
        F call;
        int result;
        const char* message;  // %s: the function; nullptr: nothing logged
    } cases[] = {
        {"location_manager_set_enabling_method_result_cb", false, enable, -77, "%s failed(-77)"},
        {"location_manager_set_setting_changed_cb", false, enable, -77, "%s failed(-77)"},
        {"location_manager_enable_method", false, enable, -77, "%s failed(-77)"},
        {"location_manager_create", false, create, -77, "Failed to %s = -77"},
        {"location_manager_set_service_state_changed_cb", false, create, -77, "Failed to %s(-77)"},
        {"location_manager_start", false, create, -77, "Failed to %s(-77)"},
        {"location_manager_start", true, create, -77, "Failed to %s(-77)"},
        {"location_manager_get_last_position", true, [this] { return int(position(true)[0]); }, -1,
         "Failed to location_manager_get_position(-77)"},
        {"location_manager_get_position", true, [this] { return int(position()[0]); }, -77,
         nullptr},
        {"location_manager_is_enabled_method", false,
         [this] { return int(mgr->isLocationEnabled()); }, 0, "Failed to %s(-77)"},
        {"location_manager_unset_setting_changed_cb", false, unset, 0, "%s failed(-77)"},
        {"location_manager_unset_enabling_method_result_cb", false, unset, 0, "%s failed(-77)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        M::deleteInstance();
        mgr = M::getInstance();
        if (c.created) {
            EXPECT_EQ(0, mgr->createLocationMgr(&listener));
        }
        clearLog();
        orvex_host_fail_next(c.fault, 1, -77);
        EXPECT_EQ(c.result, c.call());
        EXPECT_EQ(c.message ? Lines{fill(c.message, c.fault)} : Lines{}, errors());
        EXPECT_EQ(c.created, orvex_host_location_manager_count());
        EXPECT_FALSE(orvex_host_location_has_enabling_result_cb() ||
                     orvex_host_location_has_setting_changed_cb())
            << c.fault;
        orvex_host_clear_faults();
    }
}
