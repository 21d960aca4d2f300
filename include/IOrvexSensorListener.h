// What the sensor wrapper tells the application: pressure readings and trend values.
#ifndef IORVEX_SENSOR_LISTENER_H
#define IORVEX_SENSOR_LISTENER_H

/**
 * @brief What the application hears from OrvexSensor: live pressure, recorded pressure and the
 * barometric trend. Results are ignored by the library.
 */
class IOrvexSensorListener {
public:
    virtual ~IOrvexSensorListener() {}

    /** @brief A live reading in hPa, or -1.0 when the sensor says it is not working. */
    virtual bool onBarometricPressure(float pressure) = 0;
    /** @brief One recorded value: the start of its time range (seconds) and the pressure (hPa). */
    virtual bool onRecordedPressure(long long /*time*/, double /*pressure*/) { return true; }
    /** @brief The last recorded value of a read has been delivered. */
    virtual bool onRecorderCBComplete() { return true; }
    /** @brief A reading of the barometric trend sensor, passed on unchanged. */
    virtual bool onBarometricTrendIndicator(float /*value*/) { return true; }
};

#endif
