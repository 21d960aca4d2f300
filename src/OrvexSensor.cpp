// The pressure sensor wrapper: listeners on the pressure and trend sensors, and the recorder.
#include "OrvexSensor.h"

#include "OrvexLog.h"

namespace {

constexpr unsigned int kPressureIntervalMs = 1000;
// The trend sensor reports at its own pace.
constexpr unsigned int kTrendIntervalMs = 0;
constexpr float kMinPressure = 260.0f;
constexpr float kMaxPressure = 1260.0f;
constexpr int kRetentionHours = 720;
constexpr long kReadSpanSeconds = 21600;
constexpr int kReadIntervalMinutes = 2;

}  // namespace

IOrvexSensorListener* OrvexSensor::_listener = nullptr;

OrvexSensor::OrvexSensor()
    : mSensor(nullptr),
      mIndicatorSensor(nullptr),
      mListener(nullptr),
      mIndicatorListener(nullptr),
      mRecorderStarted(false) {}

OrvexSensor::OrvexSensor(IOrvexSensorListener* listener) : OrvexSensor() { _listener = listener; }

OrvexSensor::~OrvexSensor() {
    stopSensor();
    if (mRecorderStarted) stopSensorRecorder();
    _listener = nullptr;
}

bool OrvexSensor::startSensor() {
    ORVEX_LOGI("Start Sensor");
    if (mSensor && mListener) {
        ORVEX_LOGI("Sensor is Already Created Resume it");
        sensor_listener_start(mListener);
        return true;
    }

    sensor_h sensor = nullptr;
    int rc = sensor_get_default_sensor(SENSOR_PRESSURE, &sensor);
    if (rc != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("sensor_get_default_sensor failed with error [%d]", rc);
        return false;
    }
    sensor_listener_h listener = nullptr;
    rc = sensor_create_listener(sensor, &listener);
    if (rc != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("sensor_create_listener failed with error [%d]", rc);
        return false;
    }
    rc = sensor_listener_set_option(listener, SENSOR_OPTION_DEFAULT);
    if (rc != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("sensor_listener_set_option failed with error [%d]", rc);
        sensor_destroy_listener(listener);
        return false;
    }
    rc = sensor_listener_set_event_cb(listener, kPressureIntervalMs, _sensorCallBack, this);
    if (rc != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("sensor_listener_set_event_cb failed with error [%d]", rc);
        sensor_destroy_listener(listener);
        return false;
    }
    rc = sensor_listener_start(listener);
    if (rc != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("sensor_listener_start failed with error [%d]", rc);
        sensor_listener_unset_event_cb(listener);
        sensor_destroy_listener(listener);
        return false;
    }
    // Kept only now, so that a failed start leaves the object stopped.
    mSensor = sensor;
    mListener = listener;
    ORVEX_LOGI("Sensor Start Success");
    return true;
}

bool OrvexSensor::stopSensor() {
    ORVEX_LOGI("Stop Sensor");
    if (mSensor && mListener) {
        sensor_listener_unset_event_cb(mListener);
        sensor_destroy_listener(mListener);
        mSensor = nullptr;
        mListener = nullptr;
    }
    return true;
}

void OrvexSensor::pauseSensor() {
    if (mSensor && mListener) sensor_listener_stop(mListener);
    if (mIndicatorSensor && mIndicatorListener) sensor_listener_stop(mIndicatorListener);
}

void OrvexSensor::resumeSensor() {
    if (mSensor && mListener) sensor_listener_start(mListener);
    if (mIndicatorSensor && mIndicatorListener) sensor_listener_start(mIndicatorListener);
}

void OrvexSensor::_sensorCallBack(void* /*sensor*/, sensor_event_s* event, void* /*data*/) {
    if (!_listener) {
        ORVEX_LOGE("Sensor Listner is NULL");
        return;
    }
    // A zero status value is how the sensor says that its readings mean nothing.
    if (event->values[3] == 0.0f) {
        _listener->onBarometricPressure(-1.0f);
        ORVEX_LOGE("SENSOR IS NOT WORKING");
        return;
    }
    float pressure = event->values[0];
    if (pressure >= kMinPressure && pressure <= kMaxPressure) {
        _listener->onBarometricPressure(pressure);
        return;
    }
    ORVEX_LOGE("SENSOR OVER LIMITATION %f", pressure);
}

int OrvexSensor::startSensorIndicator() {
    bool supported = false;
    if (sensor_is_supported(SENSOR_PRESSURE_TREND, &supported) != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("sensor_is_supported is failed");
        return -1;
    }
    if (!supported) {
        ORVEX_LOGE("Not supported");
        return -1;
    }
    sensor_h sensor = nullptr;
    sensor_listener_h listener = nullptr;
    sensor_get_default_sensor(SENSOR_PRESSURE_TREND, &sensor);
    sensor_create_listener(sensor, &listener);
    sensor_listener_set_event_cb(listener, kTrendIntervalMs, _indicatorSensorCb, nullptr);
    sensor_listener_set_option(listener, SENSOR_OPTION_DEFAULT);
    if (sensor_listener_start(listener) != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("sensor_listener_start is failed");
        return -1;
    }
    sensor_listener_set_attribute_int(listener, SENSOR_ATTRIBUTE_TREND_WINDOW, 0);
    sensor_listener_set_attribute_int(listener, SENSOR_ATTRIBUTE_TREND_ALERT, 0);
    mIndicatorSensor = sensor;
    mIndicatorListener = listener;
    return 0;
}

void OrvexSensor::stopSensorIndicator() {
    if (!mIndicatorListener) {
        ORVEX_LOGE("stopSonserIndicator is failed!");
        return;
    }
    sensor_listener_set_attribute_int(mIndicatorListener, SENSOR_ATTRIBUTE_TREND_FLUSH, 0);
    sensor_listener_unset_event_cb(mIndicatorListener);
    sensor_listener_stop(mIndicatorListener);
    sensor_destroy_listener(mIndicatorListener);
    mIndicatorSensor = nullptr;
    mIndicatorListener = nullptr;
}

// The trend sensor is only started while a listener is set, so there is nothing to check here.
void OrvexSensor::_indicatorSensorCb(void* /*sensor*/, sensor_event_s* event, void* /*data*/) {
    _listener->onBarometricTrendIndicator(event->values[0]);
}

bool OrvexSensor::startSensorRecorder() {
    bool supported = false;
    int rc = sensor_recorder_is_supported(SENSOR_PRESSURE, &supported);
    if (rc != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("Failed to call is_supported() API %0x", static_cast<unsigned>(rc));
        return false;
    }
    if (!supported) {
        ORVEX_LOGE("sensor is not supported");
        return false;
    }
    sensor_recorder_option_h option = nullptr;
    if (sensor_recorder_create_option(&option) != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("Failed to create option");
        return false;
    }
    sensor_recorder_option_set_int(option, SENSOR_RECORDER_OPTION_RETENTION_PERIOD,
                                   kRetentionHours);
    // Recording that runs already (from an earlier start) is what we asked for.
    rc = sensor_recorder_start(SENSOR_PRESSURE, option);
    if (rc != SENSOR_ERROR_NONE && rc != SENSOR_ERROR_ALREADY_STARTED) {
        ORVEX_LOGE("Failed to start sensor");
        return false;
    }
    ORVEX_LOGI("Succeeded to start sensor");
    mRecorderStarted = true;
    sensor_recorder_destroy_option(option);
    return true;
}

bool OrvexSensor::stopSensorRecorder() {
    if (sensor_recorder_stop(SENSOR_PRESSURE) != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("Failed to stop sensor");
        return false;
    }
    return true;
}

bool OrvexSensor::getSensorRecorder(long time) {
    sensor_recorder_query_h query = nullptr;
    int rc = sensor_recorder_create_query(&query);
    if (rc != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("Sensor Query Create Error : %d", rc);
        return false;
    }
    sensor_recorder_query_set_time(query, SENSOR_RECORDER_QUERY_START_TIME,
                                   static_cast<time_t>(time - kReadSpanSeconds));
    sensor_recorder_query_set_time(query, SENSOR_RECORDER_QUERY_END_TIME,
                                   static_cast<time_t>(time));
    sensor_recorder_query_set_time(query, SENSOR_RECORDER_QUERY_ANCHOR_TIME,
                                   static_cast<time_t>(time));
    sensor_recorder_query_set_int(query, SENSOR_RECORDER_QUERY_TIME_INTERVAL, kReadIntervalMinutes);
    rc = sensor_recorder_read(SENSOR_PRESSURE, query, _sensorRecorderCallBack, nullptr);
    if (rc != SENSOR_ERROR_NONE) {
        ORVEX_LOGE("Failed to read data :  %0x", static_cast<unsigned>(rc));
        return false;
    }
    sensor_recorder_destroy_query(query);
    return true;
}

bool OrvexSensor::_sensorRecorderCallBack(sensor_type_e /*type*/, void* data, int remains,
                                          sensor_error_e /*error*/, void* /*userData*/) {
    time_t start = 0;
    time_t end = 0;
    double value = 0.0;
    sensor_recorder_data_get_time(data, &start, &end);
    sensor_recorder_data_get_double(data, SENSOR_RECORDER_DATA_PRESSURE, &value);
    _listener->onRecordedPressure(static_cast<long long>(start), value);
    if (remains == 0) {
        _listener->onRecorderCBComplete();
        ORVEX_LOGI("The Last Recorded Data :  TIME = %lld, Data = %lf ",
                   static_cast<long long>(start), value);
    }
    return true;
}
