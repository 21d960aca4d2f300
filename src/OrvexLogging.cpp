// The usage survey logger: each event as one insert into the usage-log provider.
#include "OrvexLogging.h"

#include <cstdio>
#include <new>
#include <string>

#include "BuildConfig.h"
#include "OrvexLog.h"

namespace {

const char* const APP_ID = "com.marveno.orvex";
const char* const PATH_APP_STATUS = "/log/report_app_status_survey";
const char* const PATH_FEATURE_USE = "/log/use_app_feature_survey";

enum Field { FIELD_NONE, FIELD_VALUE, FIELD_EXTRA };

struct EventKind {
    const char* feature;
    const char* path;
    Field field;
};

const EventKind EVENTS[] = {
    {"OX01", PATH_APP_STATUS, FIELD_VALUE},  {"OX02", PATH_APP_STATUS, FIELD_VALUE},
    {"OX03", PATH_FEATURE_USE, FIELD_NONE},  {"OX04", PATH_FEATURE_USE, FIELD_EXTRA},
    {"OX05", PATH_FEATURE_USE, FIELD_NONE},  {"OX06", PATH_FEATURE_USE, FIELD_NONE},
    {"OX07", PATH_FEATURE_USE, FIELD_EXTRA}, {"OX08", PATH_FEATURE_USE, FIELD_NONE},
    {"OX09", PATH_FEATURE_USE, FIELD_EXTRA}, {"OX10", PATH_FEATURE_USE, FIELD_NONE},
    {"OX11", PATH_FEATURE_USE, FIELD_NONE},  {"OX12", PATH_FEATURE_USE, FIELD_NONE},
};

}  // namespace

OrvexLogging* OrvexLogging::_pInstance = nullptr;

OrvexLogging::OrvexLogging() : mLogManager(nullptr) {
    int rc = marveno_log_manager_create(&mLogManager);
    // Kept either way: later sends go to the unset handle and fail unnoticed.
    if (rc != 0) ORVEX_LOGE("Marveno Log Create %d", rc);
}

OrvexLogging::~OrvexLogging() { marveno_log_manager_destroy(mLogManager); }

OrvexLogging* OrvexLogging::getInstance() {
    if (_pInstance == nullptr) {
        _pInstance = new (std::nothrow) OrvexLogging();
        if (_pInstance == nullptr) ORVEX_LOGE("_pInstance is NULL");
    }
    return _pInstance;
}

void OrvexLogging::deleteInstance() {
    if (_pInstance != nullptr) {
        delete _pInstance;
        _pInstance = nullptr;
    }
}

int OrvexLogging::sendMarvenoLog(OrvexLoggingType type, const char* extra, int value) {
    bundle* b = bundle_create();
    bundle_add_str(b, "app_id", APP_ID);
    int index = static_cast<int>(type);
    if (index >= 0 && index < static_cast<int>(sizeof EVENTS / sizeof EVENTS[0])) {
        const EventKind& kind = EVENTS[index];
        bundle_add_str(b, "feature", kind.feature);
        if (kind.field == FIELD_VALUE) {
            char text[16];
            snprintf(text, sizeof text, "%d", value);
            bundle_add_str(b, "value", text);
        } else if (kind.field == FIELD_EXTRA) {
            bundle_add_str(b, "extra", extra);
        }
        std::string uri = std::string("content://") + ORVEX_LOG_PROVIDER_AUTHORITY + kind.path;
        int requestId = 0;
        marveno_log_manager_insert(mLogManager, uri.c_str(), b, nullptr, nullptr, &requestId);
    }
    if (b) bundle_free(b);
    return 1;
}
