// The usage survey logger: events sent to the platform's usage-log provider.
#ifndef ORVEX_LOGGING_H
#define ORVEX_LOGGING_H

#include <platform/marveno_log_client.h>

/** @brief The usage events the application reports (feature codes OX01 to OX12). */
enum OrvexLoggingType {
    /** @brief OX01, app status, with a value. */
    ORVEX_LOG_APP_STATUS_1 = 0,
    /** @brief OX02, app status, with a value. */
    ORVEX_LOG_APP_STATUS_2 = 1,
    /** @brief OX03, feature use. */
    ORVEX_LOG_FEATURE_3 = 2,
    /** @brief OX04, feature use, with a text. */
    ORVEX_LOG_FEATURE_4 = 3,
    /** @brief OX05, feature use. */
    ORVEX_LOG_FEATURE_5 = 4,
    /** @brief OX06, feature use. */
    ORVEX_LOG_FEATURE_6 = 5,
    /** @brief OX07, feature use, with a text. */
    ORVEX_LOG_FEATURE_7 = 6,
    /** @brief OX08, feature use. */
    ORVEX_LOG_FEATURE_8 = 7,
    /** @brief OX09, feature use, with a text. */
    ORVEX_LOG_FEATURE_9 = 8,
    /** @brief OX10, feature use. */
    ORVEX_LOG_FEATURE_10 = 9,
    /** @brief OX11, feature use. */
    ORVEX_LOG_FEATURE_11 = 10,
    /** @brief OX12, feature use. */
    ORVEX_LOG_FEATURE_12 = 11,
};

/** @brief Reports usage events to the maker's usage-survey log provider. A singleton. */
class OrvexLogging {
public:
    /** @brief Closes the log client. */
    virtual ~OrvexLogging();

    /** @brief The one instance, created on first use; null when memory runs out. */
    static OrvexLogging* getInstance();
    /** @brief Destroys the instance; harmless when there is none. */
    static void deleteInstance();

    /**
     * @brief Sends one event: value goes with the app-status events, extra (non-null then) with
     * OX04, OX07 and OX09. Types outside the enumeration send nothing. Always returns 1.
     */
    int sendMarvenoLog(OrvexLoggingType type, const char* extra, int value);

private:
    OrvexLogging();
    OrvexLogging(const OrvexLogging&) = delete;
    OrvexLogging& operator=(const OrvexLogging&) = delete;

    marveno_log_manager_h mLogManager;

    static OrvexLogging* _pInstance;
};

#endif
