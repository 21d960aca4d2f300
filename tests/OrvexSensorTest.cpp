#include "OrvexSensor.h"

#include <gtest/gtest.h>
#include <orvex_host/sensor_control.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "HostFixture.h"
#include "MainLoop.h"

using orvex_test::errors;
using orvex_test::infos;
using orvex_test::runUntil;

namespace {

// Keeps the order of everything it hears, so that tests can check sequences.
class RecordingListener : public IOrvexSensorListener {
public:
    bool onBarometricPressure(float pressure) override {
        pressures.push_back(pressure);
        calls.push_back("pressure");
        return true;
    }
    bool onRecordedPressure(long long time, double pressure) override {
        recorded.emplace_back(time, pressure);
        calls.push_back("recorded");
        return true;
    }
    bool onRecorderCBComplete() override {
        calls.push_back("complete");
        return true;
    }
    bool onBarometricTrendIndicator(float value) override {
        trends.push_back(value);
        return true;
    }
    std::vector<float> pressures;
    std::vector<float> trends;
    std::vector<std::pair<long long, double>> recorded;
    std::vector<std::string> calls;
};

// Only pressure is overridden: the defaults of the other three must be harmless.
class MinimalListener : public IOrvexSensorListener {
public:
    bool onBarometricPressure(float) override { return true; }
};

orvex_host_sensor_listener_info info(int type) {
    orvex_host_sensor_listener_info i{};
    orvex_host_sensor_listener_info_get(type, &i);
    return i;
}

void injectPressure(float p, float status = 1.0f) {
    float values[4] = {p, 0.0f, 20.0f, status};
    orvex_host_sensor_inject(SENSOR_PRESSURE, values, 4);
}

class OrvexSensorTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        // Only the events a test injects, so that counts are exact however slow the machine.
        orvex_host_sensor_set_generating(0);
    }
    void makeBackendUnavailable() {
        ASSERT_EQ(0, orvex_host_sensor_set_backend("iio"));
        ASSERT_EQ(0, orvex_host_sensor_set_iio_root("/nonexistent/iio"));
    }
    RecordingListener listener;
};

TEST_F(OrvexSensorTest, DeliversReadingsInsideTheInclusiveWindowOnly) {
    OrvexSensor sensor(&listener);
    ASSERT_TRUE(sensor.startSensor());
    orvex_test::clearLog();
    for (float p :
         {260.0f, 1260.0f, 259.99f, 1260.01f, std::numeric_limits<float>::quiet_NaN(), 1013.25f})
        injectPressure(p);
    ASSERT_TRUE(runUntil([&] { return listener.pressures.size() == 3 && errors().size() == 3; }));
    EXPECT_EQ((std::vector<float>{260.0f, 1260.0f, 1013.25f}), listener.pressures);
    EXPECT_EQ((std::vector<std::string>{"SENSOR OVER LIMITATION 259.989990",
                                        "SENSOR OVER LIMITATION 1260.010010",
                                        "SENSOR OVER LIMITATION nan"}),
              errors());
}

TEST_F(OrvexSensorTest, ZeroStatusReportsMinusOneEvenForAnInRangeReading) {
    OrvexSensor sensor(&listener);
    ASSERT_TRUE(sensor.startSensor());
    injectPressure(1000.0f, 0.0f);
    ASSERT_TRUE(runUntil([&] { return !listener.pressures.empty(); }));
    EXPECT_EQ(std::vector<float>{-1.0f}, listener.pressures);
    EXPECT_EQ(std::vector<std::string>{"SENSOR IS NOT WORKING"}, errors());
    // The raw line carries the file, the function and the line before the coloured message.
    bool found = false;
    for (const auto& l : orvex_test::logLines()) {
        if (l.prio != DLOG_ERROR) continue;
        EXPECT_EQ("ORVEX", l.tag);
        EXPECT_EQ(0u, l.text.rfind("OrvexSensor.cpp: _sensorCallBack(", 0)) << l.text;
        EXPECT_NE(std::string::npos,
                  l.text.find(") > " + orvex_test::errorText("SENSOR IS NOT WORKING")));
        found = true;
    }
    EXPECT_TRUE(found);
}

TEST_F(OrvexSensorTest, EventsWithoutAListenerAreLoggedAndDropped) {
    { OrvexSensor first(&listener); }  // its destructor clears the class-wide listener
    OrvexSensor sensor;
    ASSERT_TRUE(sensor.startSensor());
    injectPressure(1000.0f);
    ASSERT_TRUE(runUntil([] { return !errors().empty(); }));
    EXPECT_EQ(std::vector<std::string>{"Sensor Listner is NULL"}, errors());
    EXPECT_TRUE(listener.pressures.empty());
}

TEST_F(OrvexSensorTest, StartCreatesOneListenerAndASecondStartReusesIt) {
    OrvexSensor sensor(&listener);
    ASSERT_TRUE(sensor.startSensor());
    auto i = info(SENSOR_PRESSURE);
    EXPECT_EQ(1, i.created);
    EXPECT_EQ(1, i.started);
    EXPECT_EQ(1000u, i.interval_ms);
    EXPECT_EQ(SENSOR_OPTION_DEFAULT, i.option);
    EXPECT_EQ((std::vector<std::string>{"Start Sensor", "Sensor Start Success"}), infos());

    sensor.pauseSensor();
    EXPECT_EQ(0, info(SENSOR_PRESSURE).started);
    orvex_test::clearLog();
    ASSERT_TRUE(sensor.startSensor());
    EXPECT_EQ(1, info(SENSOR_PRESSURE).created);
    EXPECT_EQ(1, info(SENSOR_PRESSURE).started);
    EXPECT_EQ((std::vector<std::string>{"Start Sensor", "Sensor is Already Created Resume it"}),
              infos());

    EXPECT_TRUE(sensor.stopSensor());
    EXPECT_EQ(0, info(SENSOR_PRESSURE).live);
    EXPECT_TRUE(sensor.stopSensor());  // stopping a stopped sensor is fine
    EXPECT_EQ("Stop Sensor", infos().back());
}

TEST_F(OrvexSensorTest, EveryFailedStartStepCleansUpAndLeavesTheObjectStopped) {
    struct Step {
        const char* function;
        const char* message;
    };
    const Step steps[] = {
        {"sensor_get_default_sensor", "sensor_get_default_sensor failed with error [-5]"},
        {"sensor_create_listener", "sensor_create_listener failed with error [-5]"},
        {"sensor_listener_set_option", "sensor_listener_set_option failed with error [-5]"},
        {"sensor_listener_set_event_cb", "sensor_listener_set_event_cb failed with error [-5]"},
        {"sensor_listener_start", "sensor_listener_start failed with error [-5]"},
    };
    OrvexSensor sensor(&listener);
    int created = 0;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.function);
        orvex_test::clearLog();
        orvex_host_fail_next(step.function, 1, SENSOR_ERROR_IO_ERROR);
        EXPECT_FALSE(sensor.startSensor());
        EXPECT_EQ(std::vector<std::string>{step.message}, errors());
        EXPECT_EQ(0, info(SENSOR_PRESSURE).live);
        // Nothing was kept: the next start builds a new listener instead of resuming.
        orvex_test::clearLog();
        ASSERT_TRUE(sensor.startSensor());
        EXPECT_EQ("Sensor Start Success", infos().back());
        created = info(SENSOR_PRESSURE).created;
        sensor.stopSensor();
    }
    EXPECT_EQ(8, created);  // three failed creations never happened
}

TEST_F(OrvexSensorTest, PauseAndResumeCoverBothListeners) {
    OrvexSensor sensor(&listener);
    sensor.pauseSensor();  // nothing to pause yet
    ASSERT_TRUE(sensor.startSensor());
    ASSERT_EQ(0, sensor.startSensorIndicator());
    sensor.pauseSensor();
    EXPECT_EQ(0, info(SENSOR_PRESSURE).started);
    EXPECT_EQ(0, info(SENSOR_PRESSURE_TREND).started);
    EXPECT_EQ(1, info(SENSOR_PRESSURE).live);
    sensor.resumeSensor();
    EXPECT_EQ(1, info(SENSOR_PRESSURE).started);
    EXPECT_EQ(1, info(SENSOR_PRESSURE_TREND).started);
    sensor.stopSensorIndicator();
}

TEST_F(OrvexSensorTest, TrendSensorPassesItsFirstValueAndSetsItsAttributes) {
    OrvexSensor sensor(&listener);
    ASSERT_EQ(0, sensor.startSensorIndicator());
    auto i = info(SENSOR_PRESSURE_TREND);
    EXPECT_EQ(1, i.started);
    EXPECT_EQ(0u, i.interval_ms);
    int value = -1;
    EXPECT_EQ(0, orvex_host_sensor_listener_attribute(SENSOR_PRESSURE_TREND, 0x200A81, &value));
    EXPECT_EQ(0, value);
    EXPECT_EQ(0, orvex_host_sensor_listener_attribute(SENSOR_PRESSURE_TREND, 0x200A83, &value));
    EXPECT_EQ(-ENOENT,
              orvex_host_sensor_listener_attribute(SENSOR_PRESSURE_TREND, 0x200A82, &value));

    // No range check on the trend: even an absurd value goes through unchanged.
    float values[2] = {-2.5f, -1.0f};
    orvex_host_sensor_inject(SENSOR_PRESSURE_TREND, values, 2);
    values[0] = 5000.0f;
    orvex_host_sensor_inject(SENSOR_PRESSURE_TREND, values, 2);
    ASSERT_TRUE(runUntil([&] { return listener.trends.size() == 2; }));
    EXPECT_EQ((std::vector<float>{-2.5f, 5000.0f}), listener.trends);

    sensor.stopSensorIndicator();
    EXPECT_EQ(0, orvex_host_sensor_listener_attribute(SENSOR_PRESSURE_TREND, 0x200A82, &value));
    EXPECT_EQ(0, info(SENSOR_PRESSURE_TREND).live);
    EXPECT_TRUE(errors().empty());

    sensor.stopSensorIndicator();
    EXPECT_EQ(std::vector<std::string>{"stopSonserIndicator is failed!"}, errors());
}

TEST_F(OrvexSensorTest, TrendSensorFailures) {
    OrvexSensor sensor(&listener);
    orvex_host_fail_next("sensor_is_supported", 1, SENSOR_ERROR_IO_ERROR);
    EXPECT_EQ(-1, sensor.startSensorIndicator());
    EXPECT_EQ(std::vector<std::string>{"sensor_is_supported is failed"}, errors());
    EXPECT_EQ(0, info(SENSOR_PRESSURE_TREND).created);

    orvex_test::clearLog();
    orvex_host_fail_next("sensor_listener_start", 1, SENSOR_ERROR_IO_ERROR);
    EXPECT_EQ(-1, sensor.startSensorIndicator());
    EXPECT_EQ(std::vector<std::string>{"sensor_listener_start is failed"}, errors());
    // The listener stays behind, but the object did not keep it.
    EXPECT_EQ(1, info(SENSOR_PRESSURE_TREND).live);
    int value;
    EXPECT_EQ(-ENOENT,
              orvex_host_sensor_listener_attribute(SENSOR_PRESSURE_TREND, 0x200A81, &value));
    orvex_test::clearLog();
    sensor.stopSensorIndicator();
    EXPECT_EQ(std::vector<std::string>{"stopSonserIndicator is failed!"}, errors());

    orvex_test::clearLog();
    makeBackendUnavailable();
    EXPECT_EQ(-1, sensor.startSensorIndicator());
    EXPECT_EQ(std::vector<std::string>{"Not supported"}, errors());
}

TEST_F(OrvexSensorTest, DestructionStopsPressureAndRecorderButNotTheTrendSensor) {
    {
        OrvexSensor sensor(&listener);
        ASSERT_TRUE(sensor.startSensor());
        ASSERT_EQ(0, sensor.startSensorIndicator());
        ASSERT_TRUE(sensor.startSensorRecorder());
    }
    EXPECT_EQ(0, info(SENSOR_PRESSURE).live);
    EXPECT_EQ(1, info(SENSOR_PRESSURE_TREND).started);
    int started = -1;
    orvex_host_sensor_recorder_state(SENSOR_PRESSURE, &started, nullptr);
    EXPECT_EQ(0, started);
    EXPECT_TRUE(errors().empty());
}

TEST_F(OrvexSensorTest, ListenerDefaultsDoNothingAndReturnTrue) {
    MinimalListener minimal;
    IOrvexSensorListener& l = minimal;
    EXPECT_TRUE(l.onRecordedPressure(1, 1000.0));
    EXPECT_TRUE(l.onRecorderCBComplete());
    EXPECT_TRUE(l.onBarometricTrendIndicator(1.0f));
    // A read through the defaults completes quietly.
    OrvexSensor sensor(&minimal);
    ASSERT_EQ(0, orvex_host_sensor_record_insert(SENSOR_PRESSURE, 1700000000 - 600, 1000.0));
    ASSERT_TRUE(sensor.getSensorRecorder(1700000000));
    ASSERT_TRUE(runUntil([] { return !infos().empty(); }));
}

TEST_F(OrvexSensorTest, RecorderStartCountsAlreadyStartedAsSuccess) {
    {
        OrvexSensor sensor(&listener);
        ASSERT_TRUE(sensor.startSensorRecorder());
        EXPECT_EQ(std::vector<std::string>{"Succeeded to start sensor"}, infos());
        int started = 0, retention = 0;
        orvex_host_sensor_recorder_state(SENSOR_PRESSURE, &started, &retention);
        EXPECT_EQ(1, started);
        EXPECT_EQ(720, retention);

        // A second start finds the recording running and says so with its own code.
        orvex_test::clearLog();
        OrvexSensor other;
        ASSERT_TRUE(other.startSensorRecorder());
        EXPECT_EQ(std::vector<std::string>{"Succeeded to start sensor"}, infos());
        EXPECT_TRUE(other.stopSensorRecorder());
        orvex_test::clearLog();
        // `other` keeps its flag after the stop, so its destructor stops again and fails; then
        // `sensor`'s does too.
    }
    EXPECT_EQ((std::vector<std::string>{"Failed to stop sensor", "Failed to stop sensor"}),
              errors());

    orvex_test::clearLog();
    OrvexSensor sensor(&listener);
    orvex_host_fail_next("sensor_recorder_start", 1, static_cast<int>(0xFDBC0007));
    EXPECT_TRUE(sensor.startSensorRecorder());
    EXPECT_EQ(std::vector<std::string>{"Succeeded to start sensor"}, infos());
}

TEST_F(OrvexSensorTest, RecorderStartAndStopFailures) {
    OrvexSensor sensor(&listener);
    orvex_host_fail_next("sensor_recorder_is_supported", 1, SENSOR_ERROR_IO_ERROR);
    EXPECT_FALSE(sensor.startSensorRecorder());
    orvex_host_fail_next("sensor_recorder_create_option", 1, SENSOR_ERROR_OUT_OF_MEMORY);
    EXPECT_FALSE(sensor.startSensorRecorder());
    orvex_host_fail_next("sensor_recorder_start", 1, SENSOR_ERROR_IO_ERROR);
    EXPECT_FALSE(sensor.startSensorRecorder());
    orvex_host_fail_next("sensor_recorder_stop", 1, SENSOR_ERROR_IO_ERROR);
    EXPECT_FALSE(sensor.stopSensorRecorder());
    makeBackendUnavailable();
    EXPECT_FALSE(sensor.startSensorRecorder());
    EXPECT_EQ((std::vector<std::string>{"Failed to call is_supported() API fffffffb",
                                        "Failed to create option", "Failed to start sensor",
                                        "Failed to stop sensor", "sensor is not supported"}),
              errors());
    EXPECT_TRUE(infos().empty());
    int started = -1;
    orvex_host_sensor_recorder_state(SENSOR_PRESSURE, &started, nullptr);
    EXPECT_EQ(0, started);
}

TEST_F(OrvexSensorTest, ReadAsksForTheSixHoursBeforeTheAnchorInTwoMinuteRecords) {
    const long t = 1700000040;  // a multiple of two minutes, so each sample opens its own record
    OrvexSensor sensor(&listener);
    for (long long at : {t - 21601L, t - 3000L, t - 2040L, t - 1200L, t + 1L})
        ASSERT_EQ(0,
                  orvex_host_sensor_record_insert(SENSOR_PRESSURE, at, 1000.0 + (t - at) / 1000.0));
    ASSERT_TRUE(sensor.getSensorRecorder(t));

    orvex_host_sensor_read_info read{};
    ASSERT_EQ(0, orvex_host_sensor_recorder_last_read(&read));
    EXPECT_EQ(t - 21600, read.start);
    EXPECT_EQ(t, read.end);
    EXPECT_EQ(t, read.anchor);
    EXPECT_EQ(2, read.interval);

    ASSERT_TRUE(runUntil([&] { return listener.calls.size() == 4; }));
    orvex_test::runFor(20);
    EXPECT_EQ((std::vector<std::string>{"recorded", "recorded", "recorded", "complete"}),
              listener.calls);
    EXPECT_EQ((std::vector<std::pair<long long, double>>{
                  {t - 3000, 1003.0}, {t - 2040, 1002.04}, {t - 1200, 1001.2}}),
              listener.recorded);
    EXPECT_EQ(std::vector<std::string>{"The Last Recorded Data :  TIME = " +
                                       std::to_string(t - 1200) + ", Data = 1001.200000 "},
              infos());
}

TEST_F(OrvexSensorTest, ReadThatFindsNothingNeverCompletes) {
    OrvexSensor sensor(&listener);
    ASSERT_TRUE(sensor.getSensorRecorder(1700000000));
    orvex_test::runFor(30);
    EXPECT_TRUE(listener.calls.empty());
    EXPECT_TRUE(infos().empty());
}

TEST_F(OrvexSensorTest, ReadFailures) {
    OrvexSensor sensor(&listener);
    orvex_host_fail_next("sensor_recorder_create_query", 1, SENSOR_ERROR_OUT_OF_MEMORY);
    EXPECT_FALSE(sensor.getSensorRecorder(1700000000));
    orvex_host_fail_next("sensor_recorder_read", 1, SENSOR_ERROR_IO_ERROR);
    EXPECT_FALSE(sensor.getSensorRecorder(1700000000));
    EXPECT_EQ((std::vector<std::string>{"Sensor Query Create Error : -12",
                                        "Failed to read data :  fffffffb"}),
              errors());
}

}  // namespace
