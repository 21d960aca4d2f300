// The host's sensor service and recorder as the platform's clients see them.
#include <glib.h>
#include <gtest/gtest.h>
#include <orvex_host/sensor_control.h>
#include <platform/sensor.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "HostFixture.h"
#include "MainLoop.h"
#include "OrvexStorageMgr.h"

namespace fs = std::filesystem;
using orvex_test::runUntil;

namespace {

constexpr double kT = 1700000040.0;

std::vector<sensor_event_s> g_events;

void collect(sensor_h, sensor_event_s* event, void*) { g_events.push_back(*event); }

class SensorHostTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        g_events.clear();
        orvex_host_sensor_set_clock(kT);
    }
    void TearDown() override {
        if (listener_) sensor_destroy_listener(listener_);
        HostTest::TearDown();
    }
    sensor_listener_h listen(sensor_type_e type, unsigned intervalMs) {
        sensor_h sensor = nullptr;
        EXPECT_EQ(SENSOR_ERROR_NONE, sensor_get_default_sensor(type, &sensor));
        EXPECT_EQ(SENSOR_ERROR_NONE, sensor_create_listener(sensor, &listener_));
        EXPECT_EQ(SENSOR_ERROR_NONE,
                  sensor_listener_set_event_cb(listener_, intervalMs, collect, nullptr));
        EXPECT_EQ(SENSOR_ERROR_NONE, sensor_listener_start(listener_));
        return listener_;
    }
    sensor_event_s readNow() {
        sensor_event_s e{};
        EXPECT_EQ(SENSOR_ERROR_NONE, sensor_listener_read_data(listener_, &e));
        return e;
    }
    std::string scratch(const std::string& name) {
        return std::string(orvex_host_data_dir()) + "/" + name;
    }
    sensor_listener_h listener_ = nullptr;
};

TEST_F(SensorHostTest, SimEventsArriveAtTheIntervalUntilStopped) {
    listen(SENSOR_PRESSURE, 10);
    ASSERT_TRUE(runUntil([] { return g_events.size() >= 3; }));
    const sensor_event_s& e = g_events[0];
    EXPECT_EQ(4, e.value_count);
    EXPECT_EQ(1.0f, e.values[3]);
    EXPECT_EQ(static_cast<unsigned long long>(kT * 1e6), e.timestamp);
    EXPECT_NEAR(orvex_host_sensor_sim_pressure(kT), e.values[0], 0.05);

    ASSERT_EQ(SENSOR_ERROR_NONE, sensor_listener_stop(listener_));
    size_t seen = g_events.size();
    orvex_test::runFor(40);
    EXPECT_EQ(seen, g_events.size());
}

TEST_F(SensorHostTest, CalibratingToTheSharedWeatherGivesTheSimulatedAltitude) {
    OrvexStorageMgr* mgr = OrvexStorageMgr::getInstance();
    listen(SENSOR_PRESSURE, 1000);
    for (double t : {kT, kT + 1800, kT + 7200, kT + 86400}) {
        orvex_host_sensor_set_clock(t);
        sensor_event_s e = readNow();
        double altitude = mgr->getAltivalue(e.values[0], orvex_host_weather_slp(t));
        // Noise and the float reading stay within a metre.
        EXPECT_NEAR(orvex_host_sensor_sim_altitude(t), altitude, 1.0) << t;
    }
    OrvexStorageMgr::deleteInstance();
}

TEST_F(SensorHostTest, SeedChoosesTheWalk) {
    double a1 = orvex_host_sensor_sim_altitude(kT);
    ASSERT_EQ(0, orvex_host_sensor_set_seed(7));
    double a7 = orvex_host_sensor_sim_altitude(kT);
    EXPECT_GT(std::fabs(a1 - a7), 0.5);
    ASSERT_EQ(0, orvex_host_sensor_set_seed(1));
    EXPECT_EQ(a1, orvex_host_sensor_sim_altitude(kT));
    // A walk stays on plausible ground.
    for (double t = kT; t < kT + 86400; t += 600) {
        EXPECT_GT(orvex_host_sensor_sim_altitude(t), 0.0);
        EXPECT_LT(orvex_host_sensor_sim_altitude(t), 400.0);
    }
}

TEST_F(SensorHostTest, TrendSensorReportsTheWeathersThreeHourChange) {
    listen(SENSOR_PRESSURE_TREND, 0);
    sensor_event_s e = readNow();
    EXPECT_EQ(2, e.value_count);
    double change = orvex_host_weather_slp(kT) - orvex_host_weather_slp(kT - 3 * 3600);
    EXPECT_NEAR(change, e.values[0], 1e-4);
    EXPECT_EQ(change > 1.0 ? 1.0f : change < -1.0 ? -1.0f : 0.0f, e.values[1]);
}

TEST_F(SensorHostTest, IioDeviceIsFoundAndConvertedFromKilopascals) {
    fs::path root = scratch("iio");
    fs::create_directories(root / "iio:device0");
    fs::create_directories(root / "iio:device1");
    std::ofstream(root / "iio:device0" / "name") << "accel\n";
    std::ofstream(root / "iio:device1" / "in_pressure_input") << "101.325\n";
    std::ofstream(root / "iio:device1" / "in_temp_input") << "21500\n";
    ASSERT_EQ(0, orvex_host_sensor_set_backend("iio"));
    ASSERT_EQ(0, orvex_host_sensor_set_iio_root(root.c_str()));
    EXPECT_STREQ("iio", orvex_host_sensor_backend());
    EXPECT_EQ(nullptr, orvex_host_sensor_backend_problem());

    listen(SENSOR_PRESSURE, 1000);
    sensor_event_s e = readNow();
    EXPECT_NEAR(1013.25, e.values[0], 1e-3);
    EXPECT_NEAR(21.5, e.values[2], 1e-4);
    EXPECT_EQ(1.0f, e.values[3]);

    // A device that stops answering reports itself as not working.
    fs::remove(root / "iio:device1" / "in_pressure_input");
    e = readNow();
    EXPECT_EQ(0.0f, e.values[3]);
    EXPECT_EQ(SENSOR_DATA_ACCURACY_BAD, e.accuracy);
}

TEST_F(SensorHostTest, IioRawCountsUseScaleAndOffset) {
    fs::path dev = fs::path(scratch("iio")) / "iio:device0";
    fs::create_directories(dev);
    std::ofstream(dev / "in_pressure_raw") << "39990\n";
    std::ofstream(dev / "in_pressure_scale") << "0.0025\n";
    std::ofstream(dev / "in_pressure_offset") << "10\n";
    orvex_host_sensor_set_backend("iio");
    orvex_host_sensor_set_iio_root(scratch("iio").c_str());
    listen(SENSOR_PRESSURE, 1000);
    EXPECT_NEAR(1000.0, readNow().values[0], 1e-3);
}

TEST_F(SensorHostTest, MissingIioDeviceMakesPressureUnsupported) {
    fs::create_directories(scratch("iio-empty"));
    orvex_host_sensor_set_backend("iio");
    orvex_host_sensor_set_iio_root(scratch("iio-empty").c_str());
    bool supported = true;
    EXPECT_EQ(SENSOR_ERROR_NONE, sensor_is_supported(SENSOR_PRESSURE, &supported));
    EXPECT_FALSE(supported);
    EXPECT_EQ("no IIO pressure device under " + scratch("iio-empty"),
              orvex_host_sensor_backend_problem());
    sensor_h sensor = nullptr;
    EXPECT_EQ(SENSOR_ERROR_NOT_SUPPORTED, sensor_get_default_sensor(SENSOR_PRESSURE, &sensor));
    EXPECT_EQ(SENSOR_ERROR_NOT_SUPPORTED, sensor_recorder_start(SENSOR_PRESSURE, nullptr));
    EXPECT_EQ(-EINVAL, orvex_host_sensor_set_backend("serial"));
}

TEST_F(SensorHostTest, TraceReplaysRowsByElapsedTimeAndLoops) {
    std::string path = scratch("walk.csv");
    std::ofstream(path) << "time_s,pressure_hpa\n# a comment\n0,1000.0\n10,1001.5\n20,1003.0\n";
    orvex_host_sensor_set_backend("trace");
    ASSERT_EQ(0, orvex_host_sensor_set_trace(path.c_str(), 1));
    listen(SENSOR_PRESSURE, 1000);
    // elapsed -> row: the replay starts at the first read; after the last row it waits one row
    // interval and starts again.
    const std::pair<double, float> expected[] = {{0, 1000.0f},  {9.5, 1000.0f}, {10, 1001.5f},
                                                 {25, 1003.0f}, {31, 1000.0f},  {41, 1001.5f}};
    for (const auto& [elapsed, hpa] : expected) {
        orvex_host_sensor_set_clock(kT + elapsed);
        EXPECT_EQ(hpa, readNow().values[0]) << elapsed;
    }
}

TEST_F(SensorHostTest, TraceWithoutLoopEndsItsEvents) {
    std::string path = scratch("short.csv");
    std::ofstream(path) << "0,990.5\n5,991\n";
    orvex_host_sensor_set_backend("trace");
    orvex_host_sensor_set_trace(path.c_str(), 0);
    listen(SENSOR_PRESSURE, 5);
    ASSERT_TRUE(runUntil([] { return !g_events.empty(); }));
    EXPECT_EQ(990.5f, g_events[0].values[0]);
    orvex_host_sensor_set_clock(kT + 6);  // past the last row's time: it still arrives, once
    ASSERT_TRUE(runUntil([] { return g_events.size() == 2; }));
    EXPECT_EQ(991.0f, g_events[1].values[0]);
    size_t seen = g_events.size();
    orvex_test::runFor(40);
    EXPECT_EQ(seen, g_events.size());
    sensor_event_s e{};
    EXPECT_EQ(SENSOR_ERROR_NO_DATA, sensor_listener_read_data(listener_, &e));
}

TEST_F(SensorHostTest, TraceTrendIsTheChangeOverTheReadingsOfTheLastThreeHours) {
    std::string path = scratch("front.csv");
    std::ofstream(path) << "0,1000\n3600,1002.5\n14400,990\n";
    orvex_host_sensor_set_backend("trace");
    orvex_host_sensor_set_trace(path.c_str(), 0);
    listen(SENSOR_PRESSURE_TREND, 0);
    EXPECT_EQ(0.0f, readNow().values[0]);  // nothing to compare with yet
    orvex_host_sensor_set_clock(kT + 3600);
    sensor_event_s e = readNow();
    EXPECT_FLOAT_EQ(2.5f, e.values[0]);
    EXPECT_EQ(1.0f, e.values[1]);
    // Four hours in, the first reading has left the window.
    orvex_host_sensor_set_clock(kT + 14400);
    EXPECT_FLOAT_EQ(-12.5f, readNow().values[0]);
}

TEST_F(SensorHostTest, MalformedTraceNamesTheLine) {
    std::string path = scratch("bad.csv");
    std::ofstream(path) << "0,1000\n10,abc\n";
    orvex_host_sensor_set_backend("trace");
    orvex_host_sensor_set_trace(path.c_str(), 1);
    EXPECT_EQ(path + ":2: expected 2 numbers (seconds,hPa)",
              std::string(orvex_host_sensor_backend_problem()));
    std::ofstream(path) << "10,1000\n5,1000\n";
    orvex_host_sensor_set_trace(path.c_str(), 0);  // the loop flag changes: the file is read again
    EXPECT_NE(nullptr, strstr(orvex_host_sensor_backend_problem(), ":2: time goes back"));
}

TEST_F(SensorHostTest, InjectedEventsReachOnlyStartedListenersWithACallback) {
    orvex_host_sensor_set_generating(0);
    listen(SENSOR_PRESSURE, 1000);
    sensor_h sensor = nullptr;
    sensor_listener_h idle = nullptr;
    sensor_get_default_sensor(SENSOR_PRESSURE, &sensor);
    sensor_create_listener(sensor, &idle);
    sensor_listener_set_event_cb(idle, 1000, collect, nullptr);  // never started
    float values[4] = {1005.0f, 0, 0, 1.0f};
    EXPECT_EQ(1, orvex_host_sensor_inject(SENSOR_PRESSURE, values, 4));
    EXPECT_TRUE(g_events.empty());  // delivered later, on the main loop
    ASSERT_TRUE(runUntil([] { return !g_events.empty(); }));
    orvex_test::runFor(20);
    ASSERT_EQ(1u, g_events.size());
    EXPECT_EQ(1005.0f, g_events[0].values[0]);
    sensor_destroy_listener(idle);
    EXPECT_EQ(SENSOR_ERROR_INVALID_PARAMETER, sensor_listener_start(idle));
}

struct Delivered {
    long long start, end;
    double mean, min, max;
    int remains;
};
std::vector<Delivered> g_records;
bool g_continue = true;

bool onRecord(sensor_type_e, sensor_recorder_data_h data, int remains, sensor_error_e, void*) {
    Delivered d{};
    time_t s = 0, e = 0;
    sensor_recorder_data_get_time(data, &s, &e);
    d.start = s;
    d.end = e;
    sensor_recorder_data_get_double(data, SENSOR_RECORDER_DATA_PRESSURE, &d.mean);
    sensor_recorder_data_get_double(data, SENSOR_RECORDER_DATA_MIN_PRESSURE, &d.min);
    sensor_recorder_data_get_double(data, SENSOR_RECORDER_DATA_MAX_PRESSURE, &d.max);
    d.remains = remains;
    g_records.push_back(d);
    return g_continue;
}

class RecorderHostTest : public SensorHostTest {
protected:
    void SetUp() override {
        SensorHostTest::SetUp();
        g_records.clear();
        g_continue = true;
    }
    int read(long long start, long long end, long long anchor, int interval) {
        sensor_recorder_query_h q = nullptr;
        EXPECT_EQ(SENSOR_ERROR_NONE, sensor_recorder_create_query(&q));
        if (start >= 0) sensor_recorder_query_set_time(q, SENSOR_RECORDER_QUERY_START_TIME, start);
        if (end >= 0) sensor_recorder_query_set_time(q, SENSOR_RECORDER_QUERY_END_TIME, end);
        if (anchor >= 0)
            sensor_recorder_query_set_time(q, SENSOR_RECORDER_QUERY_ANCHOR_TIME, anchor);
        if (interval >= 0)
            sensor_recorder_query_set_int(q, SENSOR_RECORDER_QUERY_TIME_INTERVAL, interval);
        int rc = sensor_recorder_read(SENSOR_PRESSURE, q, onRecord, nullptr);
        sensor_recorder_destroy_query(q);
        return rc;
    }
};

TEST_F(RecorderHostTest, SimStartBackfillsSixHoursAndAnswersAlreadyStarted) {
    const long long t = static_cast<long long>(kT);
    sensor_recorder_option_h option = nullptr;
    ASSERT_EQ(SENSOR_ERROR_NONE, sensor_recorder_create_option(&option));
    ASSERT_EQ(SENSOR_ERROR_NONE,
              sensor_recorder_option_set_int(option, SENSOR_RECORDER_OPTION_RETENTION_PERIOD, 24));
    ASSERT_EQ(0, orvex_host_sensor_record_insert(SENSOR_PRESSURE, t - 25 * 3600, 1000.0));
    ASSERT_EQ(SENSOR_ERROR_NONE, sensor_recorder_start(SENSOR_PRESSURE, option));
    sensor_recorder_destroy_option(option);
    // One sample a minute from six hours back, plus the one taken at the start.
    EXPECT_EQ(361, orvex_host_sensor_record_count(SENSOR_PRESSURE, t - 6 * 3600, t));
    // Older than the retention: gone.
    EXPECT_EQ(0, orvex_host_sensor_record_count(SENSOR_PRESSURE, 0, t - 24 * 3600 - 1));

    // Ten minutes later another start only catches up.
    orvex_host_sensor_set_clock(kT + 600);
    EXPECT_EQ(SENSOR_ERROR_ALREADY_STARTED, sensor_recorder_start(SENSOR_PRESSURE, nullptr));
    EXPECT_EQ(static_cast<int>(0xFDBC0007), SENSOR_ERROR_ALREADY_STARTED);
    EXPECT_EQ(370, orvex_host_sensor_record_count(SENSOR_PRESSURE, t - 6 * 3600, t + 600));
    int started = 0, retention = 0;
    orvex_host_sensor_recorder_state(SENSOR_PRESSURE, &started, &retention);
    EXPECT_EQ(1, started);
    EXPECT_EQ(24, retention);

    EXPECT_EQ(SENSOR_ERROR_NONE, sensor_recorder_stop(SENSOR_PRESSURE));
    EXPECT_EQ(SENSOR_ERROR_OPERATION_FAILED, sensor_recorder_stop(SENSOR_PRESSURE));
    EXPECT_EQ(-ENOENT, orvex_host_sensor_recorder_sample_now());
}

TEST_F(RecorderHostTest, TraceRecordingHasNoPastToFillIn) {
    std::string path = scratch("flat.csv");
    std::ofstream(path) << "0,1001.0\n";
    orvex_host_sensor_set_backend("trace");
    orvex_host_sensor_set_trace(path.c_str(), 1);
    ASSERT_EQ(SENSOR_ERROR_NONE, sensor_recorder_start(SENSOR_PRESSURE, nullptr));
    EXPECT_EQ(1, orvex_host_sensor_record_count(SENSOR_PRESSURE, 0, static_cast<long long>(kT)));
    orvex_host_sensor_set_clock(kT + 60);
    EXPECT_EQ(0, orvex_host_sensor_recorder_sample_now());
    EXPECT_EQ(2,
              orvex_host_sensor_record_count(SENSOR_PRESSURE, 0, static_cast<long long>(kT) + 60));
}

TEST_F(RecorderHostTest, RecordsAreBinnedFromTheAnchorAndDeliveredOneByOne) {
    const long long t = static_cast<long long>(kT);
    for (auto [at, v] : std::vector<std::pair<long long, double>>{
             {t - 240, 1000.0}, {t - 200, 1002.0}, {t - 130, 1004.0}, {t - 60, 1010.0}})
        orvex_host_sensor_record_insert(SENSOR_PRESSURE, at, v);
    ASSERT_EQ(SENSOR_ERROR_NONE, read(t - 300, t, t, 2));
    EXPECT_TRUE(g_records.empty());
    ASSERT_TRUE(runUntil([] { return g_records.size() == 2; }));
    EXPECT_EQ(t - 240, g_records[0].start);
    EXPECT_EQ(t - 121, g_records[0].end);
    EXPECT_DOUBLE_EQ(1002.0, g_records[0].mean);
    EXPECT_EQ(1000.0, g_records[0].min);
    EXPECT_EQ(1004.0, g_records[0].max);
    EXPECT_EQ(1, g_records[0].remains);
    EXPECT_EQ(t - 120, g_records[1].start);
    EXPECT_EQ(1010.0, g_records[1].mean);
    EXPECT_EQ(0, g_records[1].remains);

    // Interval 0: one record per sample; a callback that says stop gets no more.
    g_records.clear();
    g_continue = false;
    ASSERT_EQ(SENSOR_ERROR_NONE, read(t - 300, t, -1, 0));
    orvex_host_sensor_read_info info{};
    ASSERT_EQ(0, orvex_host_sensor_recorder_last_read(&info));
    EXPECT_EQ(4, info.records);
    ASSERT_TRUE(runUntil([] { return !g_records.empty(); }));
    orvex_test::runFor(20);
    ASSERT_EQ(1u, g_records.size());
    EXPECT_EQ(3, g_records[0].remains);
    EXPECT_EQ(g_records[0].start, g_records[0].end);
}

TEST_F(RecorderHostTest, BadQueriesAndStaleDataHandlesAreRefused) {
    EXPECT_EQ(SENSOR_ERROR_INVALID_PARAMETER, read(-1, 100, -1, 2));
    EXPECT_EQ(SENSOR_ERROR_INVALID_PARAMETER, read(200, 100, -1, 2));
    EXPECT_EQ(SENSOR_ERROR_NONE, read(100, 200, -1, 2));
    orvex_test::runFor(10);
    EXPECT_TRUE(g_records.empty());
    time_t s, e;
    int dummy = 0;
    EXPECT_EQ(SENSOR_ERROR_INVALID_PARAMETER, sensor_recorder_data_get_time(&dummy, &s, &e));
    sensor_recorder_query_h q = nullptr;
    sensor_recorder_create_query(&q);
    EXPECT_EQ(SENSOR_ERROR_INVALID_PARAMETER,
              sensor_recorder_query_set_int(q, SENSOR_RECORDER_QUERY_START_TIME, 3));
    sensor_recorder_query_set_time(q, SENSOR_RECORDER_QUERY_START_TIME, 100);
    sensor_recorder_query_set_time(q, SENSOR_RECORDER_QUERY_END_TIME, 200);
    EXPECT_EQ(SENSOR_ERROR_NOT_SUPPORTED,
              sensor_recorder_read(SENSOR_ACCELEROMETER, q, onRecord, nullptr));
    sensor_recorder_destroy_query(q);
    EXPECT_EQ(SENSOR_ERROR_INVALID_PARAMETER, sensor_recorder_destroy_query(q));
}

TEST_F(RecorderHostTest, EveryFunctionHonoursAnInjectedFault) {
    const int code = -77;
    sensor_listener_h l = nullptr;
    sensor_h sensor = nullptr;
    bool b = false;
    void* handle = nullptr;
    time_t tt;
    double d;
    sensor_event_s e;
    struct Call {
        const char* name;
        std::function<int()> call;
    };
    const std::vector<Call> calls = {
        {"sensor_is_supported", [&] { return sensor_is_supported(SENSOR_PRESSURE, &b); }},
        {"sensor_get_default_sensor",
         [&] { return sensor_get_default_sensor(SENSOR_PRESSURE, &sensor); }},
        {"sensor_create_listener", [&] { return sensor_create_listener(sensor, &l); }},
        {"sensor_destroy_listener", [&] { return sensor_destroy_listener(l); }},
        {"sensor_listener_start", [&] { return sensor_listener_start(l); }},
        {"sensor_listener_stop", [&] { return sensor_listener_stop(l); }},
        {"sensor_listener_set_event_cb",
         [&] { return sensor_listener_set_event_cb(l, 0, collect, nullptr); }},
        {"sensor_listener_unset_event_cb", [&] { return sensor_listener_unset_event_cb(l); }},
        {"sensor_listener_set_option",
         [&] { return sensor_listener_set_option(l, SENSOR_OPTION_DEFAULT); }},
        {"sensor_listener_set_attribute_int",
         [&] { return sensor_listener_set_attribute_int(l, SENSOR_ATTRIBUTE_TREND_ALERT, 0); }},
        {"sensor_listener_read_data", [&] { return sensor_listener_read_data(l, &e); }},
        {"sensor_recorder_is_supported",
         [&] { return sensor_recorder_is_supported(SENSOR_PRESSURE, &b); }},
        {"sensor_recorder_start", [&] { return sensor_recorder_start(SENSOR_PRESSURE, nullptr); }},
        {"sensor_recorder_stop", [&] { return sensor_recorder_stop(SENSOR_PRESSURE); }},
        {"sensor_recorder_create_option", [&] { return sensor_recorder_create_option(&handle); }},
        {"sensor_recorder_destroy_option", [&] { return sensor_recorder_destroy_option(handle); }},
        {"sensor_recorder_option_set_int",
         [&] {
             return sensor_recorder_option_set_int(handle, SENSOR_RECORDER_OPTION_INTERVAL, 1);
         }},
        {"sensor_recorder_create_query", [&] { return sensor_recorder_create_query(&handle); }},
        {"sensor_recorder_destroy_query", [&] { return sensor_recorder_destroy_query(handle); }},
        {"sensor_recorder_query_set_time",
         [&] {
             return sensor_recorder_query_set_time(handle, SENSOR_RECORDER_QUERY_START_TIME, 0);
         }},
        {"sensor_recorder_query_set_int",
         [&] {
             return sensor_recorder_query_set_int(handle, SENSOR_RECORDER_QUERY_TIME_INTERVAL, 0);
         }},
        {"sensor_recorder_read",
         [&] { return sensor_recorder_read(SENSOR_PRESSURE, handle, onRecord, nullptr); }},
        {"sensor_recorder_data_get_time",
         [&] { return sensor_recorder_data_get_time(handle, &tt, &tt); }},
        {"sensor_recorder_data_get_double",
         [&] {
             return sensor_recorder_data_get_double(handle, SENSOR_RECORDER_DATA_PRESSURE, &d);
         }},
    };
    for (const auto& c : calls) {
        orvex_host_fail_next(c.name, 1, code);
        EXPECT_EQ(code, c.call()) << c.name;
    }
}

}  // namespace
