// The pressure sensor wrapper over the host sensor service: readings, trend, recorder, failures.
#include "OrvexSensor.h"

#include <orvex_host/sensor_control.h>

#include <cmath>
#include <functional>

#include "HostFixture.h"
#include "MainLoop.h"

using namespace orvex_test;

struct RecordingListener : IOrvexSensorListener {
    bool onBarometricPressure(float p) override { return pressures.push_back(p), true; }
    bool onRecordedPressure(long long t, double p) override {
        return recorded.emplace_back(t, p), true;
    }
    bool onRecorderCBComplete() override { return ++completions; }
    bool onBarometricTrendIndicator(float v) override { return trends.push_back(v), true; }
    std::vector<float> pressures, trends;
    std::vector<std::pair<long long, double>> recorded;
    int completions = 0;
};

orvex_host_sensor_listener_info info(int type) {
    orvex_host_sensor_listener_info i{};
    orvex_host_sensor_listener_info_get(type, &i);
    return i;
}

// A trend sensor attribute; -100 for one never set.
int trendAttribute(int attribute) {
    int value = -100;
    orvex_host_sensor_listener_attribute(SENSOR_PRESSURE_TREND, attribute, &value);
    return value;
}

void inject(int type, float value, float status = 1.0f) {
    float values[4] = {value, 0.0f, 20.0f, status};
    orvex_host_sensor_inject(type, values, 4);
}

class OrvexSensorTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        // Only the events a test injects, so that counts are exact however slow the machine.
        orvex_host_sensor_set_generating(0);
    }
    RecordingListener listener;
};

TEST_F(OrvexSensorTest, StartedSensorPassesReadingsInsideTheInclusiveWindow) {
    OrvexSensor sensor(&listener);
    ASSERT_TRUE(sensor.startSensor());
    EXPECT_EQ(1000u, info(SENSOR_PRESSURE).interval_ms);
    clearLog();
    for (float p : {260.0f, 1260.0f, 259.99f, 1260.01f, NAN, 1013.25f}) inject(SENSOR_PRESSURE, p);
    inject(SENSOR_PRESSURE, 1000.0f, 0.0f);  // a zero status: the reading means nothing
    ASSERT_TRUE(runUntil([&] { return listener.pressures.size() == 4; }));
    EXPECT_EQ((std::vector<float>{260.0f, 1260.0f, 1013.25f, -1.0f}), listener.pressures);
    EXPECT_EQ((Lines{"SENSOR OVER LIMITATION 259.989990", "SENSOR OVER LIMITATION 1260.010010",
                     "SENSOR OVER LIMITATION nan", "SENSOR IS NOT WORKING"}),
              errors());

    clearLog();
    { OrvexSensor gone(&listener); }  // its destructor clears the shared listener, quietly
    inject(SENSOR_PRESSURE, 1000.0f);
    ASSERT_TRUE(runUntil([] { return errors() == Lines{"Sensor Listner is NULL"}; }));
    EXPECT_EQ(4u, listener.pressures.size());

    ASSERT_EQ(0, sensor.startSensorIndicator());
    sensor.pauseSensor();
    EXPECT_EQ(0, info(SENSOR_PRESSURE).started + info(SENSOR_PRESSURE_TREND).started);
    sensor.resumeSensor();
    EXPECT_EQ(2, info(SENSOR_PRESSURE).started + info(SENSOR_PRESSURE_TREND).started);
    sensor.pauseSensor();
    ASSERT_TRUE(sensor.startSensor());  // resumes the listener it has
    EXPECT_EQ(2, info(SENSOR_PRESSURE).created + info(SENSOR_PRESSURE).started);
    EXPECT_TRUE(sensor.stopSensor());
    EXPECT_EQ(0, info(SENSOR_PRESSURE).live);
    ASSERT_TRUE(sensor.startSensor());
    EXPECT_EQ(2, info(SENSOR_PRESSURE).created);
}

TEST_F(OrvexSensorTest, TrendSensorAndRecorder) {
    int started = 0, retention = 0;
    {
        OrvexSensor sensor(&listener);
        ASSERT_TRUE(sensor.startSensor());
        ASSERT_EQ(0, sensor.startSensorIndicator());
        EXPECT_EQ(0u, info(SENSOR_PRESSURE_TREND).interval_ms);
        EXPECT_EQ(0, trendAttribute(0x200A81));  // window
        EXPECT_EQ(0, trendAttribute(0x200A83));  // alert
        EXPECT_EQ(-100, trendAttribute(0x200A82));
        inject(SENSOR_PRESSURE_TREND, -2.5f);
        inject(SENSOR_PRESSURE_TREND, 5000.0f);  // no range check on the trend
        ASSERT_TRUE(runUntil([&] { return listener.trends.size() == 2; }));
        EXPECT_EQ((std::vector<float>{-2.5f, 5000.0f}), listener.trends);
        sensor.stopSensorIndicator();
        EXPECT_EQ(0, trendAttribute(0x200A82));  // flushed
        EXPECT_EQ(0, info(SENSOR_PRESSURE_TREND).live);
        sensor.stopSensorIndicator();
        EXPECT_EQ(Lines{"stopSonserIndicator is failed!"}, errors());
        ASSERT_EQ(0, sensor.startSensorIndicator());

        // The recorder keeps a month and reads the six hours before the anchor.
        ASSERT_TRUE(sensor.startSensorRecorder());
        orvex_host_sensor_recorder_state(SENSOR_PRESSURE, &started, &retention);
        EXPECT_EQ(1, started);
        EXPECT_EQ(720, retention);
        ASSERT_TRUE(sensor.stopSensorRecorder());
        // Recording that already runs counts as started.
        orvex_host_fail_next("sensor_recorder_start", 1, static_cast<int>(0xFDBC0007));
        EXPECT_TRUE(sensor.startSensorRecorder());
        ASSERT_TRUE(sensor.startSensorRecorder());  // really recording, for the destructor
        const long t = 1700000040;  // a multiple of two minutes: each sample opens its own record
        for (long long at : {t - 21601L, t - 3000L, t - 2040L, t - 1200L, t + 1L})
            ASSERT_EQ(0,
                      orvex_host_sensor_record_insert(SENSOR_PRESSURE, at, 1000 + (t - at) / 1e3));
        ASSERT_TRUE(sensor.getSensorRecorder(t));
        EXPECT_EQ(0, orvex_host_sensor_recorder_queries());  // the read's query is let go
        orvex_host_sensor_read_info read{};
        ASSERT_EQ(0, orvex_host_sensor_recorder_last_read(&read));
        EXPECT_EQ((std::vector<long long>{t - 21600, t, t, 2}),
                  (std::vector<long long>{read.start, read.end, read.anchor, read.interval}));
        ASSERT_TRUE(runUntil([&] { return listener.completions > 0; }));
        EXPECT_EQ((std::vector<std::pair<long long, double>>{
                      {t - 3000, 1003.0}, {t - 2040, 1002.04}, {t - 1200, 1001.2}}),
                  listener.recorded);
        EXPECT_EQ(1, listener.completions);  // after the last record only
    }
    // Destruction stops the pressure sensor and the recorder but leaves the trend sensor running.
    EXPECT_EQ(0, info(SENSOR_PRESSURE).live);
    EXPECT_EQ(1, info(SENSOR_PRESSURE_TREND).started);
    orvex_host_sensor_recorder_state(SENSOR_PRESSURE, &started, nullptr);
    EXPECT_EQ(0, started);
}

TEST_F(OrvexSensorTest, FailedPlatformCalls) {
    using S = OrvexSensor;
    auto start = [](S& s) { return s.startSensor() ? 0 : -1; };
    auto trend = [](S& s) { return s.startSensorIndicator(); };
    auto record = [](S& s) { return s.startSensorRecorder() ? 0 : -1; };
    auto read = [](S& s) { return s.getSensorRecorder(1700000000) ? 0 : -1; };
    const struct {
        const char* fault;  // nullptr: no sensor on the machine at all
        std::function<int(S&)> call;
        const char* message;  // %s: the function
        int live;             // trend listeners left behind
        int code = SENSOR_ERROR_IO_ERROR;
    } cases[] = {
        {"sensor_get_default_sensor", start, "%s failed with error [-5]", 0},
        {"sensor_create_listener", start, "%s failed with error [-5]", 0},
        {"sensor_listener_set_option", start, "%s failed with error [-5]", 0},
        {"sensor_listener_set_event_cb", start, "%s failed with error [-5]", 0},
        {"sensor_listener_start", start, "%s failed with error [-5]", 0},
        {"sensor_is_supported", trend, "%s is failed", 0},
        {"sensor_listener_start", trend, "%s is failed", 1},
        {"sensor_recorder_is_supported", record, "Failed to call is_supported() API fffffffb", 0},
        {"sensor_recorder_create_option", record, "Failed to create option", 0},
        {"sensor_recorder_start", record, "Failed to start sensor", 0},
        {"sensor_recorder_stop", [](S& s) { return s.stopSensorRecorder() ? 0 : -1; },
         "Failed to stop sensor", 0},
        {"sensor_recorder_create_query", read, "Sensor Query Create Error : -5", 0},
        {"sensor_recorder_read", read, "Failed to read data :  fffffffb", 0},
        {nullptr, trend, "Not supported", 0},
        {nullptr, record, "sensor is not supported", 0},
        // Success without an answer is no support either.
        {"sensor_is_supported", trend, "Not supported", 0, SENSOR_ERROR_NONE},
        {"sensor_recorder_is_supported", record, "sensor is not supported", 0, SENSOR_ERROR_NONE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << fill(c.message, c.fault) << ", code " << c.code);
        EXPECT_EQ(0, orvex_host_reset());
        if (c.fault)
            orvex_host_fail_next(c.fault, 1, c.code);
        else
            EXPECT_EQ(0, orvex_host_sensor_set_backend("iio") +
                             orvex_host_sensor_set_iio_root("/nonexistent/iio"));
        OrvexSensor sensor(&listener);
        EXPECT_EQ(-1, c.call(sensor));
        EXPECT_EQ(Lines{fill(c.message, c.fault)}, errors());
        EXPECT_EQ(0, info(SENSOR_PRESSURE).live);
        EXPECT_EQ(c.live, info(SENSOR_PRESSURE_TREND).live) << c.message;
    }
}
