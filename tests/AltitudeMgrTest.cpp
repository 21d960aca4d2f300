// The weather-service chains end to end: OrvexAltitudeMgr -> NetworkProxy -> curl engine -> a
// local HTTPS server that plays AccuWeather and TWC, verified against the test CA.
#include <cmath>

#include <orvex_host/connection_control.h>
#include <orvex_host/key_storage_control.h>

#include "BuildConfig.h"
#include "CurlHooks.h"
#include "HostFixture.h"
#include "HostileRoutes.h"
#include "MainLoop.h"
#include "NetworkProxy.h"
#include "OrvexAltitudeMgr.h"
#include "TestHttpServer.h"

using namespace orvex_test;

namespace {

const std::string kTwcPath = "/v2/aggcommon/v3-location-point;v3-wx-observations-current;v3-links";
const std::string kGeoPath = "/locations/v1/cities/geoposition/search.json";
const char* const kGeoAnswer = R"({"Version": 1, "Key": "2283045", "Type": "City"})";
const char* const kAccuAnswer =
    R"([{"EpochTime": 1700000000, "Pressure": {"Metric": {"Value": 1018.3, "Unit": "mb",
        "UnitType": 14}, "Imperial": {"Value": 30.07, "Unit": "inHg", "UnitType": 12}}}])";
const char* const kTwcAnswer =
    R"({"v3-wx-observations-current": {"pressureMeanSeaLevel": 1016.9, "validTimeUtc": 1700000400},
        "v3-location-point": {"location": {"city": "Zermatt"}}})";

struct Recorder : OrvexAltitudeMgrEvent {
    void OnWeatherDataCompleted(std::tr1::shared_ptr<WeatherData> d) override {
        data = d;
        ++completed;
    }
    void OnWeatherDataFailed() override { ++failed; }
    std::tr1::shared_ptr<WeatherData> data;
    int completed = 0;
    int failed = 0;
    bool done() const { return completed + failed > 0; }
};

class AltitudeMgrTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        orvex_host_connection_set_proxy("");
        ASSERT_TRUE(server.ok());
        std::string local = "https://localhost:" + std::to_string(server.port());
        curlRedirect(std::string("https://") + ORVEX_ACCUWEATHER_HOST, local);
        curlRedirect(std::string("https://") + ORVEX_TWC_HOST, local);
        mgr = OrvexAltitudeMgr::getInstance();
        mgr->SetEventListener(&recorder);
    }
    void TearDown() override {
        OrvexAltitudeMgr::deleteInstance();
        NetworkProxy::Destory();
        HostTest::TearDown();
    }

    void serveAccuWeather(HttpRoute geo = {200, {}, kGeoAnswer},
                          HttpRoute weather = {200, {}, kAccuAnswer}) {
        server.route(kGeoPath, geo);
        server.route("/currentconditions/v1/2283045.json", weather);
    }

    // The manager is registered with the front end from a Request until its chain ends (answer,
    // failure, cancel or time-out).
    bool chainEnds() {
        return runUntil(
            [&] { return NetworkProxy::GetInstance()->FindHttpNetworkProxyReqID(mgr) < 0; }, 10000);
    }

    TrustTestCa trust;
    TestHttpServer server{TestHttpServer::Mode::Https};
    OrvexAltitudeMgr* mgr = nullptr;
    Recorder recorder;
};

TEST_F(AltitudeMgrTest, TwcWithATwoCharacterKeyIsOneRequestAndASecondWhileBusyIsIgnored) {
    orvex_host_key_set("twc_api_key", "tw");
    orvex_host_key_set("orvex_accueweather_api_key", "accu-secret-key");
    server.route(kTwcPath, {200, {}, kTwcAnswer});
    mgr->Request(46.021, -7.749, 0.0);
    mgr->Request(3, 4, 0);
    ASSERT_TRUE(runUntil([&] { return recorder.done(); }, 10000));
    drainPending();
    ASSERT_EQ(1, recorder.completed);
    EXPECT_EQ(1016.9, recorder.data->pressure);
    EXPECT_EQ(1, recorder.data->provider);
    EXPECT_EQ(1700000400000.0, recorder.data->updateTime);
    EXPECT_EQ(46.021, recorder.data->latitude);
    EXPECT_EQ(-7.749, recorder.data->longitude);

    auto requests = server.requests();
    ASSERT_EQ(1u, requests.size());
    EXPECT_EQ(kTwcPath, requests[0].path);
    EXPECT_EQ(0u, requests[0].query.find("units=e&geocode=46.021000,-7.749000&"));
}

TEST_F(AltitudeMgrTest, AccuWeatherIsTwoRequestsTheSecondFromTheFirstKey) {
    for (const char* twcKey : {"", "x"}) {
        SCOPED_TRACE(*twcKey ? "with a TWC key that is not stored as one" : "without a TWC key");
        orvex_host_key_set("twc_api_key", *twcKey ? twcKey : nullptr);
        orvex_host_key_set("orvex_accueweather_api_key", "K");
        serveAccuWeather();
        recorder = Recorder();
        mgr->SetEventListener(&recorder);
        size_t before = server.requests().size();
        mgr->Request(-33.8688, 151.2093, 10000.0);
        EXPECT_TRUE(runUntil([&] { return recorder.done(); }, 10000));
        EXPECT_EQ(1, recorder.completed);
        if (recorder.completed != 1) continue;
        EXPECT_EQ(1018.3, recorder.data->pressure);
        EXPECT_EQ(0, recorder.data->provider);
        EXPECT_EQ(-33.8688, recorder.data->latitude);
        auto requests = server.requests();
        EXPECT_EQ(before + 2, requests.size());
        if (requests.size() != before + 2) continue;
        EXPECT_EQ(kGeoPath, requests[before].path);
        EXPECT_EQ(0u, requests[before].query.find("q=-33.868800,151.209300&"));
        EXPECT_EQ("/currentconditions/v1/2283045.json", requests[before + 1].path);
    }
}

TEST_F(AltitudeMgrTest, OutcomesAtEitherStep) {
    struct Case {
        const char* name;
        HttpRoute geo;
        HttpRoute weather;
        int completed;
    };
    const Case cases[] = {
        {"no pressure unit type is a success with 0",
         {200, {}, kGeoAnswer},
         {200, {}, R"([{"EpochTime": 1, "Pressure": {"Metric": {"Value": 1000}}}])"},
         1},
        {"nested past any answer", {200, {}, kGeoAnswer}, {200, {}, std::string(100000, '[')}, 0},
        {"500 at step 1", {500, {}, "oops"}, {200, {}, kAccuAnswer}, 0},
        {"500 at step 2", {200, {}, kGeoAnswer}, {500, {}, "oops"}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        serveAccuWeather(c.geo, c.weather);
        recorder = Recorder();
        mgr->SetEventListener(&recorder);
        mgr->Request(10, 20, 0);
        EXPECT_TRUE(runUntil([&] { return recorder.done(); }, 10000));
        EXPECT_EQ(c.completed, recorder.completed);
        EXPECT_EQ(1 - c.completed, recorder.failed);
        if (c.completed && recorder.data) {
            EXPECT_EQ(0.0, recorder.data->pressure);
        }
    }
}

// A failed request never leaves the manager busy: the next Request is accepted and runs, whether
// the engine could not queue the request (told inside the call) or the front end has no engine
// (told from the main loop).
TEST_F(AltitudeMgrTest, AfterAFailedSendTheNextRequestRuns) {
    orvex_host_key_set("twc_api_key", "tw");
    server.route(kTwcPath, {200, {}, kTwcAnswer});
    curlFailNext("curl_multi_init", 1);
    mgr->Request(1, 2, 5000);
    EXPECT_EQ(1, recorder.failed);
    mgr->Request(1, 2, 5000);
    ASSERT_TRUE(runUntil([&] { return recorder.completed == 1; }, 10000));

    NetworkProxy::Destory();
    {
        FailNothrowNew noEngine(1);
        NetworkProxy::GetInstance();
    }
    mgr->Request(1, 2, 0);
    EXPECT_EQ(1, recorder.failed);
    ASSERT_TRUE(runUntil([&] { return recorder.failed == 2; }, 10000));
    NetworkProxy::Destory();
    mgr->Request(1, 2, 0);
    ASSERT_TRUE(runUntil([&] { return recorder.completed == 2; }, 10000));
}

TEST_F(AltitudeMgrTest, TimeOutAtEitherStepCancelsAndTellsNobody) {
    const HttpRoute held = hostile::silent();
    for (int step = 0; step < 2; ++step) {
        SCOPED_TRACE(step == 0 ? "held at the location key" : "held at the conditions");
        serveAccuWeather(step == 0 ? held : HttpRoute{200, {}, kGeoAnswer},
                         step == 1 ? held : HttpRoute{200, {}, kAccuAnswer});
        recorder = Recorder();
        mgr->SetEventListener(&recorder);
        size_t before = server.requests().size();
        mgr->Request(1, 2, workMs(300) + 0.9);
        EXPECT_TRUE(runUntil(
            [&] {
                return server.requests().size() == before + 1 + step && server.heldCount() == 1;
            },
            10000));
        // The time-out fires, cancels the transfer and tells nobody.
        EXPECT_TRUE(chainEnds());
        server.releaseHeld();
        drainPending();
        EXPECT_FALSE(recorder.done());
    }
    // The listener was cleared by the cancel, and a cancel while idle clears it too: a chain
    // without SetEventListener is silent (setting none is ignored).
    serveAccuWeather();
    for (bool idleCancel : {false, true}) {
        SCOPED_TRACE(idleCancel ? "cancelled while idle" : "cancelled by the time-out");
        if (idleCancel) {
            mgr->SetEventListener(&recorder);
            mgr->RequestCancel();
            mgr->SetEventListener(nullptr);
        }
        mgr->Request(1, 2, 0);
        EXPECT_TRUE(chainEnds());
        EXPECT_EQ(5u + 2 * idleCancel, server.requests().size());
        EXPECT_FALSE(recorder.done());
    }
}

TEST_F(AltitudeMgrTest, TimeOutsAreWholeMillisecondsAndNeverWrap) {
    const std::pair<double, gint64> cases[] = {{2.9, 2},
                                               {15000.0, 15000},
                                               {4294968000.0, G_MAXUINT},
                                               {1e300, G_MAXUINT},
                                               {INFINITY, G_MAXUINT}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.first << " ms");
        const gint64 before = g_get_monotonic_time();
        mgr->StartRequestTimer(c.first);
        const gint64 after = g_get_monotonic_time();
        GSource* timer = g_main_context_find_source_by_user_data(nullptr, mgr);
        EXPECT_NE(nullptr, timer);
        if (!timer) continue;
        // The timer was armed for c.second ms at some moment of the call.
        const gint64 ready = g_source_get_ready_time(timer) - c.second * 1000;
        EXPECT_TRUE(ready >= before && ready <= after) << "off by " << ready - before;
        mgr->StopRequestTimer();
    }
}

TEST_F(AltitudeMgrTest, RefusedRegistrationFailsAtOnceAndItsTimeOutCancelsTheNextRequest) {
    {
        FailNothrowNew noMemory;  // NetworkProxy cannot be created
        NetworkProxy::Destory();
        mgr->Request(1, 2, workMs(300));
    }
    // The failure event came at once; the time-out stays armed although nothing runs.
    EXPECT_EQ(1, recorder.failed);
    orvex_host_key_set("twc_api_key", "tw");
    server.route(kTwcPath, {200, {}, kTwcAnswer, false, 5000});
    mgr->SetEventListener(&recorder);
    mgr->Request(1, 2, 0);
    // The refused request's time-out fires first and cancels this chain without a word.
    ASSERT_TRUE(runUntil([&] { return server.heldCount() == 1; }, 10000));
    ASSERT_TRUE(chainEnds());
    server.releaseHeld();
    drainPending();
    EXPECT_EQ(1, recorder.failed);
    EXPECT_EQ(0, recorder.completed);
    EXPECT_EQ(1u, server.requests().size());
}

TEST_F(AltitudeMgrTest, DeleteInstanceDuringARequest) {
    orvex_host_key_set("twc_api_key", "tw");
    server.route(kTwcPath, {200, {}, kTwcAnswer, false, 5000});
    mgr->Request(1, 2, 5000);
    ASSERT_TRUE(runUntil([&] { return server.heldCount() == 1; }, 10000));
    OrvexAltitudeMgr::deleteInstance();
    server.releaseHeld();
    drainPending();
    EXPECT_FALSE(recorder.done());
    mgr = OrvexAltitudeMgr::getInstance();
    mgr->SetEventListener(&recorder);
    server.route(kTwcPath, {200, {}, kTwcAnswer});
    mgr->Request(1, 2, 5000);
    ASSERT_TRUE(runUntil([&] { return recorder.done(); }, 10000));
    EXPECT_EQ(1, recorder.completed);
}

TEST_F(AltitudeMgrTest, UrlsKeysAndTheirAbsence) {
    EXPECT_EQ("", mgr->GetAPIKeyValueStr());
    EXPECT_FALSE(mgr->isTWCAvailable());
    orvex_host_fail_next("key_storage_get", 1, -5);
    orvex_host_key_set("twc_api_key", "xy");
    EXPECT_FALSE(mgr->isTWCAvailable());  // the failed read counts as no key
    EXPECT_TRUE(mgr->isTWCAvailable());
    orvex_host_key_set("orvex_accueweather_api_key", "K");
    EXPECT_EQ(std::string("https://") + ORVEX_ACCUWEATHER_HOST +
                  "/locations/v1/cities/geoposition/search.json?q=37.566500,126.978000&apikey=K"
                  "&language=en",
              mgr->GetLocationRequestUrl(37.5665, 126.978));
    EXPECT_EQ(std::string("https://") + ORVEX_ACCUWEATHER_HOST +
                  "/currentconditions/v1/.json?apikey=K&details=true&language=en",
              mgr->GetWeatherInfoRequestUrl(""));
    EXPECT_EQ(std::string("https://") + ORVEX_TWC_HOST +
                  "/v2/aggcommon/v3-location-point;v3-wx-observations-current;v3-links?units=e"
                  "&geocode=-33.868800,-122.400000&language=en-US&format=json&par=marveno_widget"
                  "&apiKey=xy",
              mgr->GetTWCInfoRequestUrl(-33.8688, -122.4));
    EXPECT_TRUE(errors().empty());
}

TEST_F(AltitudeMgrTest, ResponseInAnUnexpectedStateIsOnlyLogged) {
    unsigned char body[] = "{}";
    mgr->OnHttpResponseCompleted(3, body, 2);
    EXPECT_EQ(std::vector<std::string>{"invalid request status"}, errors());
    EXPECT_FALSE(recorder.done());
}

}  // namespace
