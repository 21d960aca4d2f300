// What the location manager tells the application: positions and the service's state.
#ifndef I_ORVEX_LOCATION_LISTENER_H
#define I_ORVEX_LOCATION_LISTENER_H

/** @brief What the application hears from the location manager. */
class IOrvexLocationListener {
public:
    /** @brief Listeners are owned by the application. */
    virtual ~IOrvexLocationListener() {}

    /** @brief The location service became available (state 1); positions can be read now. */
    virtual void onLocationStateChanged(int state) = 0;
    /** @brief The outcome of a request to enable location: 1 accepted, 0 refused. */
    virtual void onLocationEnableResult(int state) = 0;
};

#endif
