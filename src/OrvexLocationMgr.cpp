// The location manager: creating, starting and stopping the platform's location service.
#include "OrvexLocationMgr.h"

#include <new>

#include "OrvexLog.h"

OrvexLocationMgr* OrvexLocationMgr::_pInstance = nullptr;
IOrvexLocationListener* OrvexLocationMgr::_listner = nullptr;

OrvexLocationMgr::OrvexLocationMgr()
    : mLocationState(LOCATION_STATE_DISABLED), mLocationManager(nullptr) {}

OrvexLocationMgr::~OrvexLocationMgr() {
    if (mLocationManager != nullptr) {
        location_manager_unset_position_updated_cb(mLocationManager);
        location_manager_unset_service_state_changed_cb(mLocationManager);
        location_manager_destroy(mLocationManager);
        mLocationManager = nullptr;
    }
    _listner = nullptr;
    location_setting_unset_changed_cb();
    location_enabling_method_unset_result_cb();
}

OrvexLocationMgr* OrvexLocationMgr::getInstance() {
    if (_pInstance == nullptr) {
        _pInstance = new (std::nothrow) OrvexLocationMgr();
        if (_pInstance == nullptr) ORVEX_LOGE("_pInstance is NULL");
    }
    return _pInstance;
}

void OrvexLocationMgr::deleteInstance() {
    if (_pInstance != nullptr) {
        delete _pInstance;
        _pInstance = nullptr;
    }
    _listner = nullptr;
}

int OrvexLocationMgr::onLocationsetting(IOrvexLocationListener* listener) {
    int rc = location_manager_set_enabling_method_result_cb(
        LOCATIONS_METHOD_HYBRID, &OrvexLocationMgr::location_enabling_method_result_cb, this);
    if (rc != LOCATIONS_ERROR_NONE) {
        ORVEX_LOGE("location_manager_set_enabling_method_result_cb failed(%d)", rc);
        return rc;
    }
    rc = location_manager_set_setting_changed_cb(
        LOCATIONS_METHOD_HYBRID, &OrvexLocationMgr::location_setting_changed_cb, this);
    if (rc != LOCATIONS_ERROR_NONE) {
        location_enabling_method_unset_result_cb();
        ORVEX_LOGE("location_manager_set_setting_changed_cb failed(%d)", rc);
        return rc;
    }
    rc = location_manager_enable_method(LOCATIONS_METHOD_HYBRID, true);
    if (rc != LOCATIONS_ERROR_NONE) {
        ORVEX_LOGE("location_manager_enable_method failed(%d)", rc);
        unsetLocationsetting();
        return rc;
    }
    _listner = listener;
    return 0;
}

int OrvexLocationMgr::createLocationMgr(IOrvexLocationListener* listener) {
    if (!isGpsEnabled()) return LOCATIONS_ERROR_NOT_SUPPORTED;

    if (mLocationManager != nullptr) {
        // A restart keeps the listener of the first creation.
        ORVEX_LOGI("_location_manager is already created!");
        int rc = location_manager_start(mLocationManager);
        if (rc != LOCATIONS_ERROR_NONE) {
            location_manager_stop(mLocationManager);
            ORVEX_LOGE("Failed to location_manager_start(%d)", rc);
            return rc;
        }
        return 0;
    }

    location_manager_h manager = nullptr;
    int rc = location_manager_create(LOCATIONS_METHOD_HYBRID, &manager);
    if (rc != LOCATIONS_ERROR_NONE) {
        ORVEX_LOGE("Failed to location_manager_create = %d", rc);
        return rc;
    }
    rc = location_manager_set_service_state_changed_cb(
        manager, &OrvexLocationMgr::location_state_changed_cb, getInstance());
    if (rc != LOCATIONS_ERROR_NONE) {
        location_manager_unset_position_updated_cb(manager);
        location_manager_destroy(manager);
        ORVEX_LOGE("Failed to location_manager_set_service_state_changed_cb(%d)", rc);
        _listner = nullptr;
        return rc;
    }
    rc = location_manager_start(manager);
    if (rc != LOCATIONS_ERROR_NONE) {
        location_manager_stop(manager);
        location_manager_unset_position_updated_cb(manager);
        location_manager_unset_service_state_changed_cb(manager);
        location_manager_destroy(manager);
        ORVEX_LOGE("Failed to location_manager_start(%d)", rc);
        _listner = nullptr;
        return rc;
    }
    mLocationManager = manager;
    _listner = listener;
    return 0;
}

void OrvexLocationMgr::stopLocationMgr() {
    if (mLocationManager != nullptr) location_manager_stop(mLocationManager);
}

int OrvexLocationMgr::getCurrentPosition(double* latitude, double* longitude, double* altitude) {
    if (mLocationManager == nullptr) {
        ORVEX_LOGE("_location_manager == nullptr");
        return -1;
    }
    time_t timestamp;
    return location_manager_get_position(mLocationManager, altitude, latitude, longitude,
                                         &timestamp);
}

int OrvexLocationMgr::getLastKnownPosition(double* latitude, double* longitude, double* altitude) {
    if (mLocationManager == nullptr) {
        ORVEX_LOGE("_location_manager is null!!");
        return -1;
    }
    time_t timestamp;
    int rc = location_manager_get_last_position(mLocationManager, altitude, latitude, longitude,
                                                &timestamp);
    if (rc != LOCATIONS_ERROR_NONE) {
        // The message names the current-position call; log readers search for this text.
        ORVEX_LOGE("Failed to location_manager_get_position(%d)", rc);
        return -1;
    }
    isGpsEnabled();
    isLocationEnabled();
    return 0;
}

bool OrvexLocationMgr::isGpsEnabled() {
    // Support of the hybrid method, whatever the name says.
    return location_manager_is_supported_method(LOCATIONS_METHOD_HYBRID);
}

bool OrvexLocationMgr::isLocationEnabled() {
    bool enabled = false;
    int rc = location_manager_is_enabled_method(LOCATIONS_METHOD_HYBRID, &enabled);
    if (rc != LOCATIONS_ERROR_NONE) {
        ORVEX_LOGE("Failed to location_manager_is_enabled_method(%d)", rc);
        return false;
    }
    return enabled;
}

OrvexLocationMgr::locationState OrvexLocationMgr::getLocationState() { return mLocationState; }

void OrvexLocationMgr::setLocationState(locationState state) { mLocationState = state; }

void OrvexLocationMgr::unsetLocationsetting() {
    location_setting_unset_changed_cb();
    location_enabling_method_unset_result_cb();
}

void OrvexLocationMgr::location_enabling_method_unset_result_cb() {
    int rc = location_manager_unset_enabling_method_result_cb(LOCATIONS_METHOD_HYBRID);
    if (rc != LOCATIONS_ERROR_NONE)
        ORVEX_LOGE("location_manager_unset_enabling_method_result_cb failed(%d)", rc);
}

void OrvexLocationMgr::location_setting_unset_changed_cb() {
    int rc = location_manager_unset_setting_changed_cb(LOCATIONS_METHOD_HYBRID);
    if (rc != LOCATIONS_ERROR_NONE)
        ORVEX_LOGE("location_manager_unset_setting_changed_cb failed(%d)", rc);
}

void OrvexLocationMgr::location_state_changed_cb(location_service_state_e state, void* self) {
    auto* mgr = static_cast<OrvexLocationMgr*>(self);
    if (mgr == nullptr) {
        ORVEX_LOGE("self is NULL");
        return;
    }
    if (state == LOCATIONS_SERVICE_DISABLED) {
        mgr->setLocationState(LOCATION_STATE_DISABLED);
        return;
    }
    mgr->setLocationState(LOCATION_STATE_ENABLED);
    if (_listner != nullptr) _listner->onLocationStateChanged(mgr->getLocationState());
}

void OrvexLocationMgr::location_enabling_method_result_cb(location_method_e, location_device_e,
                                                          location_enable_method_result_e result,
                                                          void* self) {
    auto* mgr = static_cast<OrvexLocationMgr*>(self);
    if (result == LOCATIONS_ENABLE_METHOD_RESULT_ACCEPTED) {
        mgr->setLocationState(LOCATION_STATE_ENABLED);
        if (_listner != nullptr) _listner->onLocationEnableResult(LOCATION_STATE_ENABLED);
    } else {
        ORVEX_LOGE("location enable failed!!!");
        mgr->location_setting_unset_changed_cb();
        mgr->setLocationState(LOCATION_STATE_DISABLED);
        if (_listner != nullptr) _listner->onLocationEnableResult(LOCATION_STATE_DISABLED);
    }
    mgr->location_enabling_method_unset_result_cb();
}

void OrvexLocationMgr::location_setting_changed_cb(location_method_e, bool enable, void* self) {
    if (_listner == nullptr) return;
    auto* mgr = static_cast<OrvexLocationMgr*>(self);
    if (enable) mgr->createLocationMgr(_listner);
    mgr->location_setting_unset_changed_cb();
}

void OrvexLocationMgr::location_position_updated_cb(double, double, double, time_t, void*) {}
