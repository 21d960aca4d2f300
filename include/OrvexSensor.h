// The pressure sensor wrapper: live readings, the trend and the recorded history.
#ifndef ORVEX_SENSOR_H
#define ORVEX_SENSOR_H

#include <platform/sensor.h>

#include "IOrvexSensorListener.h"

/**
 * @brief The pressure sensor, the barometric trend sensor and the pressure recorder, reporting to
 * one IOrvexSensorListener.
 *
 * The listener is class-wide: the constructor that takes one replaces it for every instance and
 * the destructor clears it, so keep one OrvexSensor per application. Everything runs on the main
 * loop, where the platform delivers events and records.
 */
class OrvexSensor {
public:
    /** @brief A stopped sensor; the class-wide listener is left as it is. */
    OrvexSensor();
    /** @brief A stopped sensor that reports to `listener` (replacing any earlier listener). */
    OrvexSensor(IOrvexSensorListener* listener);
    /**
     * @brief Stops the pressure listener and, when it was started here, the recorder, and clears
     * the listener. A running trend listener is left to stopSensorIndicator().
     */
    virtual ~OrvexSensor();

    /** @brief Starts live pressure, one reading a second; resumes a paused one. */
    bool startSensor();
    /** @brief Stops live pressure and releases its listener; always true. */
    bool stopSensor();
    /** @brief Pauses whichever of the pressure and trend listeners exist. */
    void pauseSensor();
    /** @brief Resumes whichever of the pressure and trend listeners exist. */
    void resumeSensor();
    /** @brief Starts the trend sensor; 0 on success, -1 when unsupported or failing. */
    int startSensorIndicator();
    /** @brief Stops the trend sensor started by startSensorIndicator(). */
    void stopSensorIndicator();

    /** @brief Asks the platform to record pressure in the background (30 days kept). */
    bool startSensorRecorder();
    /** @brief Stops background recording. */
    bool stopSensorRecorder();
    /**
     * @brief Reads the six hours before `time` (seconds since the epoch) in two-minute records;
     * they arrive later through onRecordedPressure() and onRecorderCBComplete().
     */
    bool getSensorRecorder(long time);

    /** @brief Pressure events from the sensor service, checked and passed to the listener. */
    static void _sensorCallBack(void* sensor, sensor_event_s* event, void* data);
    /** @brief Trend sensor events, passed to the listener unchanged. */
    static void _indicatorSensorCb(void* sensor, sensor_event_s* event, void* data);
    /** @brief One recorded value from the recorder; the last one also completes the read. */
    static bool _sensorRecorderCallBack(sensor_type_e type, void* data, int remains,
                                        sensor_error_e error, void* userData);

private:
    OrvexSensor(const OrvexSensor&) = delete;
    OrvexSensor& operator=(const OrvexSensor&) = delete;

    sensor_h mSensor;
    sensor_h mIndicatorSensor;
    sensor_listener_h mListener;
    sensor_listener_h mIndicatorListener;
    bool mRecorderStarted;

    static IOrvexSensorListener* _listener;
};

#endif
