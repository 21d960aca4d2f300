// The settings store: the preference keys, first-start defaults and the altitude arithmetic.
#include "OrvexStorageMgr.h"

#include <platform/app_preference.h>
#include <platform/vconf.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "OrvexLog.h"

namespace {

const char* const KEY_SETTING_MANUAL = "ORVEX_SETTING_MANUAL";
const char* const KEY_SETTING_DISTANCE = "ORVEX_SETTING_DISTANCE";
const char* const KEY_SETTING_PRESSURE = "ORVEX_SETTING_PRESSURE";
const char* const KEY_SETTING_ALERT = "ORVEX_SETTING_ALERT";
const char* const KEY_SETTING_AUTO_REFRESH = "ORVEX_SETTING_AUTO_REFRESH";
const char* const KEY_DATA_SEE_LEVEL = "ORVEX_DATA_SEE_LEVEL";
const char* const KEY_DATA_SEE_LEVEL_HISTORY = "ORVEX_DATA_SEE_LEVEL_HISTORY";
const char* const KEY_DATA_CALIBRATE_TIME = "ORVEX_DATA_CALIBRATE_TIME";
const char* const KEY_DATA_ACCU_WANING_MESSAGE = "ORVEX_DATA_ACCU_WANING_MESSAGE";
const char* const KEY_DATA_DEBUG_FEATURE = "ORVEX_DATA_DEBUG_FEATURE";

const char* const VCONF_RETAIL_MODE = "db/retailmode/enabled";
const char* const VCONF_COUNTRY = "db/csc/country_iso";
const char* const VCONF_REGION_FORMAT = "db/menu_widget/regionformat";

// Markers for a unit that the next initStorage() still has to decide.
const int DISTANCE_UNDECIDED = 2;
const int PRESSURE_UNDECIDED = 3;

const double STANDARD_SLP = 1013.25;
const double SCALE_ALTITUDE = 44330.0;
const double EXPONENT = 5.255;
const double INVERSE_EXPONENT = 0.19029495718363465;  // the double nearest to 1 / 5.255

// What the reset of initStorage() writes, in the order it writes it.
struct ResetValue {
    const char* key;
    enum { INT, DOUBLE, STRING } type;
    double value;  // int and double keys; string keys are reset to ""
};

const ResetValue RESET_VALUES[] = {
    {KEY_SETTING_MANUAL, ResetValue::INT, 0},
    {KEY_SETTING_DISTANCE, ResetValue::INT, DISTANCE_UNDECIDED},
    {KEY_SETTING_PRESSURE, ResetValue::INT, PRESSURE_UNDECIDED},
    {KEY_SETTING_ALERT, ResetValue::INT, 0},
    {KEY_SETTING_AUTO_REFRESH, ResetValue::INT, 0},
    {KEY_DATA_CALIBRATE_TIME, ResetValue::STRING, {}},
    {KEY_DATA_SEE_LEVEL, ResetValue::DOUBLE, STANDARD_SLP},
    {KEY_DATA_SEE_LEVEL_HISTORY, ResetValue::STRING, {}},
    {KEY_DATA_ACCU_WANING_MESSAGE, ResetValue::INT, 0},
    {KEY_DATA_DEBUG_FEATURE, ResetValue::INT, 0},
};

void writeResetValue(const ResetValue& v) {
    switch (v.type) {
        case ResetValue::INT:
            preference_set_int(v.key, static_cast<int>(v.value));
            break;
        case ResetValue::DOUBLE:
            preference_set_double(v.key, v.value);
            break;
        case ResetValue::STRING:
            preference_set_string(v.key, "");
            break;
    }
}

bool readInt(const char* key, int* value) {
    *value = 0;
    if (preference_get_int(key, value) == PREFERENCE_ERROR_NONE) return true;
    *value = 0;
    return false;
}

int readIntSilently(const char* key) {
    int value = 0;
    preference_get_int(key, &value);
    return value;
}

// Text of a string key, with a missing key (or no text) read as empty.
std::string readString(const char* key) {
    char* text = nullptr;
    preference_get_string(key, &text);
    std::string result = text ? text : "";
    free(text);
    return result;
}

std::string vconfString(const char* key) {
    char* text = vconf_get_str(key);
    std::string result = text ? text : "";
    free(text);
    return result;
}

std::string formatTime(long long time) {
    char buf[32];
    snprintf(buf, sizeof buf, "%lld", time);
    return buf;
}

// The conversion to a 32-bit integer as a saturating processor does it, so that the result does
// not depend on the machine: NaN gives 0, values beyond the range give its ends.
int saturatingToInt(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT_MAX;
    if (v <= -2147483648.0) return INT_MIN;
    return static_cast<int>(v);
}

}  // namespace

OrvexStorageMgr* OrvexStorageMgr::_pInstance = nullptr;

OrvexStorageMgr::OrvexStorageMgr() : mCurrentPressure(0.0) {}

OrvexStorageMgr::~OrvexStorageMgr() {}

OrvexStorageMgr* OrvexStorageMgr::getInstance() {
    if (_pInstance == nullptr) {
        _pInstance = new (std::nothrow) OrvexStorageMgr();
        if (_pInstance == nullptr) ORVEX_LOGE("_pInstance is NULL");
    }
    return _pInstance;
}

void OrvexStorageMgr::deleteInstance() {
    if (_pInstance != nullptr) {
        delete _pInstance;
        _pInstance = nullptr;
    }
}

int OrvexStorageMgr::getLDUModeEnable() {
    int enabled = 0;
    vconf_get_int(VCONF_RETAIL_MODE, &enabled);
    return enabled;
}

void OrvexStorageMgr::initStorage() {
    bool reset = getLDUModeEnable() != 0;
    if (!reset) {
        int manual = 0;
        reset = preference_get_int(KEY_SETTING_MANUAL, &manual) != PREFERENCE_ERROR_NONE;
    }

    if (reset) {
        ORVEX_LOGE("Preference is not init");
        for (const ResetValue& v : RESET_VALUES) writeResetValue(v);
    } else {
        // A first start killed half-way leaves the marker key without some of the others; each
        // missing one gets its reset value. The warning flag has its own step below.
        for (const ResetValue& v : RESET_VALUES) {
            if (v.key == KEY_SETTING_MANUAL || v.key == KEY_DATA_ACCU_WANING_MESSAGE) continue;
            bool existing = false;
            if (preference_is_existing(v.key, &existing) == PREFERENCE_ERROR_NONE && !existing)
                writeResetValue(v);
        }
    }

    if (getLDUModeEnable() != 0) {
        preference_set_int(KEY_DATA_ACCU_WANING_MESSAGE, 0);
    } else {
        // A store made before the flag existed gains it here.
        int shown = 0;
        if (preference_get_int(KEY_DATA_ACCU_WANING_MESSAGE, &shown) != PREFERENCE_ERROR_NONE)
            preference_set_int(KEY_DATA_ACCU_WANING_MESSAGE, 0);
    }

    getInstance();
    if (getLDUModeEnable() == 0) {
        // Only an undecided unit follows the country, so the user's choice survives restarts.
        int distance = 0;
        if (preference_get_int(KEY_SETTING_DISTANCE, &distance) == PREFERENCE_ERROR_NONE &&
            distance == DISTANCE_UNDECIDED) {
            std::string country = vconfString(VCONF_COUNTRY);
            preference_set_int(KEY_SETTING_DISTANCE, country == "US" ? 1 : 0);
        }
        int pressure = 0;
        if (preference_get_int(KEY_SETTING_PRESSURE, &pressure) == PREFERENCE_ERROR_NONE &&
            pressure == PRESSURE_UNDECIDED) {
            std::string country = vconfString(VCONF_COUNTRY);
            preference_set_int(KEY_SETTING_PRESSURE,
                               country == "US" ? 1 : (country == "RU" ? 2 : 0));
        }
    } else {
        // Demonstration units show the units of the region they are sold in.
        int unit = vconfString(VCONF_REGION_FORMAT).find("en_US") != std::string::npos ? 1 : 0;
        preference_set_int(KEY_SETTING_DISTANCE, unit);
        preference_set_int(KEY_SETTING_PRESSURE, unit);
    }
}

int OrvexStorageMgr::saveSettingManualMode(int mode) {
    return preference_set_int(KEY_SETTING_MANUAL, mode);
}

int OrvexStorageMgr::saveSettingDistance(int unit) {
    return preference_set_int(KEY_SETTING_DISTANCE, unit);
}

int OrvexStorageMgr::saveSettingPressure(int unit) {
    return preference_set_int(KEY_SETTING_PRESSURE, unit);
}

int OrvexStorageMgr::saveSettingAlert(int alert) {
    return preference_set_int(KEY_SETTING_ALERT, alert);
}

int OrvexStorageMgr::saveAutoRefresh(int autoRefresh) {
    return preference_set_int(KEY_SETTING_AUTO_REFRESH, autoRefresh);
}

int OrvexStorageMgr::saveAccuWarningMessage(int shown) {
    return preference_set_int(KEY_DATA_ACCU_WANING_MESSAGE, shown);
}

int OrvexStorageMgr::saveDataSLP(double slp) {
    return preference_set_double(KEY_DATA_SEE_LEVEL, slp);
}

int OrvexStorageMgr::saveDataSLPHistory(std::string history) {
    return preference_set_string(KEY_DATA_SEE_LEVEL_HISTORY, history.c_str());
}

int OrvexStorageMgr::getSettingManualMode() {
    int value;
    if (!readInt(KEY_SETTING_MANUAL, &value)) ORVEX_LOGE("No Correct Data");
    return value;
}

int OrvexStorageMgr::getSettingDistance() {
    int value;
    if (!readInt(KEY_SETTING_DISTANCE, &value)) ORVEX_LOGE("No Correct Data");
    return value;
}

int OrvexStorageMgr::getSettingPressure() {
    int value;
    if (!readInt(KEY_SETTING_PRESSURE, &value)) ORVEX_LOGE("No Correct Data");
    return value;
}

int OrvexStorageMgr::getSettingAlert() {
    int value;
    if (!readInt(KEY_SETTING_ALERT, &value)) ORVEX_LOGE("No Correct Data");
    return value;
}

int OrvexStorageMgr::getAutoRefresh() { return readIntSilently(KEY_SETTING_AUTO_REFRESH); }

int OrvexStorageMgr::getAccuWaningMessage() {
    int value;
    if (!readInt(KEY_DATA_ACCU_WANING_MESSAGE, &value)) ORVEX_LOGE("No Correct Data");
    return value;
}

int OrvexStorageMgr::getDebugFeature() { return readIntSilently(KEY_DATA_DEBUG_FEATURE); }

double OrvexStorageMgr::getDataSLP() {
    double slp = 0.0;
    if (preference_get_double(KEY_DATA_SEE_LEVEL, &slp) != PREFERENCE_ERROR_NONE) {
        ORVEX_LOGE("No Correct Data");
        return 0.0;
    }
    return slp;
}

double OrvexStorageMgr::getCurrentPressure() { return mCurrentPressure; }

void OrvexStorageMgr::setCurrentPressure(double pressure) { mCurrentPressure = pressure; }

double OrvexStorageMgr::getDefaultSLP() { return STANDARD_SLP; }

double OrvexStorageMgr::getAltivalue(double pressure) {
    double slp = getInstance()->getDataSLP();
    if (slp <= 0.0) slp = STANDARD_SLP;
    return (1.0 - pow(pressure / slp, INVERSE_EXPONENT)) * SCALE_ALTITUDE;
}

double OrvexStorageMgr::getAltivalue(double pressure, double slp) {
    return (1.0 - pow(pressure / slp, INVERSE_EXPONENT)) * SCALE_ALTITUDE;
}

double OrvexStorageMgr::getBarovalue(double altitude) {
    double slp = getInstance()->getDataSLP();
    double pressure = slp * pow(1.0 - altitude / SCALE_ALTITUDE, EXPONENT);
    return static_cast<double>(saturatingToInt(pressure * 10.0)) / 10.0;
}

double OrvexStorageMgr::getManualSLP(double altitude, double pressure) {
    return pressure / pow(1.0 - altitude / SCALE_ALTITUDE, EXPONENT);
}

void OrvexStorageMgr::addDataSLPHistory(long long time, double slp) {
    char* stored = getDataSLPHistory();
    std::string history = stored ? stored : "";
    free(stored);

    std::string t = formatTime(time);
    // Deliberately a search for the bare digits: a time that already shows anywhere in the text
    // counts as recorded.
    if (history.find(t) != std::string::npos) return;

    // "%f" of a huge value runs to hundreds of digits: sized to fit, never cut.
    int length = snprintf(nullptr, 0, "%f", slp);
    std::string pressure(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    snprintf(&pressure[0], pressure.size() + 1, "%f", slp);
    history += "T:" + t + ";P+" + pressure;
    preference_set_string(KEY_DATA_SEE_LEVEL_HISTORY, history.c_str());
}

char* OrvexStorageMgr::getDataSLPHistory() {
    std::string history = readString(KEY_DATA_SEE_LEVEL_HISTORY);
    ORVEX_LOGI("SLP History %s", history.c_str());
    return strdup(history.c_str());
}

bool OrvexStorageMgr::isDataSLPHistoryEmpty() {
    return readString(KEY_DATA_SEE_LEVEL_HISTORY).empty();
}

void OrvexStorageMgr::saveDataCalTime(long long time) {
    preference_set_string(KEY_DATA_CALIBRATE_TIME, formatTime(time).c_str());
}

long long OrvexStorageMgr::getDataCalTime() {
    char* raw = nullptr;
    if (preference_get_string(KEY_DATA_CALIBRATE_TIME, &raw) != PREFERENCE_ERROR_NONE) {
        ORVEX_LOGE("No Correct Data");
        return 0;
    }
    if (raw == nullptr) return 0;
    // Owned here so that the text is released also when the conversion throws.
    std::unique_ptr<char, decltype(&free)> text(raw, &free);
    if (text.get()[0] == '\0') return 0;
    return std::stoll(text.get(), nullptr, 10);
}
