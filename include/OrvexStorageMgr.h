// The settings store: settings, calibration data and the altitude/pressure arithmetic.
#ifndef ORVEX_STORAGE_MGR_H
#define ORVEX_STORAGE_MGR_H

#include <string>

/**
 * @brief Settings, calibration data and altitude arithmetic of the application.
 *
 * Everything it keeps between runs lives in the platform's preference store, one key per item; the
 * object itself only holds the latest pressure reading. Create it with getInstance() and call
 * initStorage() once at start before relying on the other accessors.
 */
class OrvexStorageMgr {
public:
    virtual ~OrvexStorageMgr();

    /** @brief Returns the one instance, creating it on first use; null when memory runs out. */
    static OrvexStorageMgr* getInstance();
    /** @brief Destroys the instance; harmless when there is none. */
    static void deleteInstance();

    /**
     * @brief Resets the store on first start (and on every start of a retail demonstration unit)
     * and decides the distance and pressure units from the country or the region format.
     */
    void initStorage();
    /** @brief Whether the device is a retail demonstration unit (non-zero); 0 when unknown. */
    int getLDUModeEnable();

    /** @brief Stores the manual sea-level-pressure mode switch; returns the store's result. */
    int saveSettingManualMode(int mode);
    /** @brief Stores the distance unit code (0 metric, 1 imperial). */
    int saveSettingDistance(int unit);
    /** @brief Stores the pressure unit code (0 hPa, 1 inHg, 2 mmHg). */
    int saveSettingPressure(int unit);
    /** @brief Stores the alert setting. */
    int saveSettingAlert(int alert);
    /** @brief Stores the automatic calibration refresh switch. */
    int saveAutoRefresh(int autoRefresh);
    /** @brief Stores the flag of the weather-service warning message. */
    int saveAccuWarningMessage(int shown);
    /** @brief Stores the sea-level pressure (hPa) used as the altitude reference. */
    int saveDataSLP(double slp);
    /** @brief Replaces the whole calibration history text. */
    int saveDataSLPHistory(std::string history);

    /** @brief The manual mode switch; 0 with an error logged when it cannot be read. */
    int getSettingManualMode();
    /** @brief The distance unit code; 0 with an error logged when it cannot be read. */
    int getSettingDistance();
    /** @brief The pressure unit code; 0 with an error logged when it cannot be read. */
    int getSettingPressure();
    /** @brief The alert setting; 0 with an error logged when it cannot be read. */
    int getSettingAlert();
    /** @brief The automatic refresh switch; 0, silently, when it cannot be read. */
    int getAutoRefresh();
    /** @brief The warning-message flag; 0 with an error logged when it cannot be read. */
    int getAccuWaningMessage();
    /** @brief The debug feature switch; 0, silently, when it cannot be read. */
    int getDebugFeature();
    /** @brief The stored sea-level pressure (hPa); 0.0 with an error logged when unreadable. */
    double getDataSLP();

    /** @brief The latest pressure reading kept in memory (hPa); 0.0 after construction. */
    double getCurrentPressure();
    /** @brief Keeps the latest pressure reading in memory; it is never persisted. */
    void setCurrentPressure(double pressure);

    /** @brief The standard sea-level pressure, 1013.25 hPa. */
    double getDefaultSLP();
    /** @brief Altitude (m) of a pressure against the stored sea-level pressure (1013.25 if unset).
     */
    double getAltivalue(double pressure);
    /** @brief Altitude (m) of a pressure against the given sea-level pressure. */
    double getAltivalue(double pressure, double slp);
    /** @brief Pressure (hPa) at an altitude for the stored sea-level pressure, cut to tenths. */
    double getBarovalue(double altitude);
    /** @brief The sea-level pressure that puts the given pressure at the given altitude. */
    double getManualSLP(double altitude, double pressure);

    /** @brief Appends a calibration (time, sea-level pressure) to the history unless present. */
    void addDataSLPHistory(long long time, double slp);
    /** @brief A copy of the history text, to be released with free(). */
    char* getDataSLPHistory();
    /** @brief Whether no calibration has been recorded in the history. */
    bool isDataSLPHistoryEmpty();
    /** @brief Stores the time of the last calibration. */
    void saveDataCalTime(long long time);
    /**
     * @brief The time of the last calibration, 0 when none. Throws std::invalid_argument or
     * std::out_of_range when the stored text is not a number that fits.
     */
    long long getDataCalTime();

private:
    OrvexStorageMgr();
    OrvexStorageMgr(const OrvexStorageMgr&) = delete;
    OrvexStorageMgr& operator=(const OrvexStorageMgr&) = delete;

    double mCurrentPressure;

    static OrvexStorageMgr* _pInstance;
};

#endif
