// The location manager: the platform's location service, wrapped for the application.
#ifndef ORVEX_LOCATION_MGR_H
#define ORVEX_LOCATION_MGR_H

#include <platform/location_manager.h>

#include <ctime>

#include "IOrvexLocationListener.h"

/**
 * @brief The position source: enables location when needed, runs one location manager on the
 * hybrid method and reads the current or last known position. A main-loop singleton.
 */
class OrvexLocationMgr {
public:
    /** @brief The service's availability as the manager tracks it. */
    enum locationState {
        /** @brief Not available, or enabling was refused. */
        LOCATION_STATE_DISABLED = 0,
        /** @brief Available. */
        LOCATION_STATE_ENABLED = 1,
    };

    /** @brief Destroys the platform manager and drops every callback. */
    virtual ~OrvexLocationMgr();

    /** @brief The one instance, created on first use; null when memory runs out. */
    static OrvexLocationMgr* getInstance();
    /** @brief Destroys the instance and forgets the listener; harmless when there is none. */
    static void deleteInstance();

    /** @brief Asks the platform to switch location on; the answer reaches the listener later. */
    int onLocationsetting(IOrvexLocationListener* listener);
    /** @brief Creates (or restarts) and starts the location manager; 0 or the platform's code. */
    int createLocationMgr(IOrvexLocationListener* listener);
    /** @brief Stops the location manager, keeping it for a later start. */
    void stopLocationMgr();
    /** @brief The position now; 0, the platform's code, or -1 without a manager. */
    int getCurrentPosition(double* latitude, double* longitude, double* altitude);
    /** @brief The last known position; 0, or -1 without a manager or on failure. */
    int getLastKnownPosition(double* latitude, double* longitude, double* altitude);
    /** @brief Whether the hybrid location method is supported. */
    bool isGpsEnabled();
    /** @brief Whether location is switched on. */
    bool isLocationEnabled();
    /** @brief The tracked service state. */
    locationState getLocationState();
    /** @brief Overrides the tracked service state. */
    void setLocationState(locationState state);
    /** @brief Drops the setting-changed and enabling-result callbacks. */
    void unsetLocationsetting();
    /** @brief Drops the enabling-result callback of the hybrid method. */
    void location_enabling_method_unset_result_cb();
    /** @brief Drops the setting-changed callback of the hybrid method. */
    void location_setting_unset_changed_cb();

    /** @brief Service-state notifications of the platform manager. */
    static void location_state_changed_cb(location_service_state_e state, void* self);
    /** @brief The one-shot outcome of an enabling request. */
    static void location_enabling_method_result_cb(location_method_e method,
                                                   location_device_e device,
                                                   location_enable_method_result_e result,
                                                   void* self);
    /** @brief The one-shot notification that the location setting changed. */
    static void location_setting_changed_cb(location_method_e method, bool enable, void* self);
    /** @brief Position updates; not used (positions are read on demand). */
    static void location_position_updated_cb(double latitude, double longitude, double altitude,
                                             time_t timestamp, void* self);

private:
    OrvexLocationMgr();
    OrvexLocationMgr(const OrvexLocationMgr&) = delete;
    OrvexLocationMgr& operator=(const OrvexLocationMgr&) = delete;

    locationState mLocationState;
    location_manager_h mLocationManager;

    static OrvexLocationMgr* _pInstance;
    static IOrvexLocationListener* _listner;
};

#endif
