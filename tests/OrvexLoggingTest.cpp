#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <orvex_host/control.h>
#include <orvex_host/usage_log_control.h>

#include "BuildConfig.h"
#include "HostFixture.h"
#include "OrvexLogging.h"

namespace {

class OrvexLoggingTest : public orvex_test::HostTest {
protected:
    void TearDown() override {
        OrvexLogging::deleteInstance();
        HostTest::TearDown();
    }
    static std::string uri(int i) {
        char* u = orvex_host_usage_log_uri(i, nullptr);
        std::string out = u ? u : "(none)";
        free(u);
        return out;
    }
    static std::string fields(int i) {
        char* f = orvex_host_usage_log_fields(i);
        std::string out = f ? f : "(none)";
        free(f);
        return out;
    }
};

const std::string kStatus =
    std::string("content://") + ORVEX_LOG_PROVIDER_AUTHORITY + "/log/report_app_status_survey";
const std::string kFeature =
    std::string("content://") + ORVEX_LOG_PROVIDER_AUTHORITY + "/log/use_app_feature_survey";

TEST_F(OrvexLoggingTest, EveryTypeSendsItsFields) {
    OrvexLogging* log = OrvexLogging::getInstance();
    ASSERT_NE(nullptr, log);
    for (int type = 0; type < 12; ++type)
        EXPECT_EQ(1, log->sendMarvenoLog(static_cast<OrvexLoggingType>(type), "auto", 7));
    ASSERT_EQ(12, orvex_host_usage_log_count());
    for (int type = 0; type < 12; ++type) {
        char code[16];
        snprintf(code, sizeof code, "OX%02d", type + 1);
        std::string expected = "app_id=com.marveno.orvex\nfeature=" + std::string(code) + "\n";
        if (type <= 1) expected += "value=7\n";
        if (type == 3 || type == 6 || type == 8) expected += "extra=auto\n";
        EXPECT_EQ(expected, fields(type)) << type;
        EXPECT_EQ(type <= 1 ? kStatus : kFeature, uri(type)) << type;
    }
    EXPECT_TRUE(orvex_test::errors().empty());
}

TEST_F(OrvexLoggingTest, OutOfRangeTypesSendNothing) {
    OrvexLogging* log = OrvexLogging::getInstance();
    EXPECT_EQ(1, log->sendMarvenoLog(static_cast<OrvexLoggingType>(12), nullptr, 0));
    EXPECT_EQ(0, orvex_host_usage_log_count());
    EXPECT_EQ(1, log->sendMarvenoLog(ORVEX_LOG_APP_STATUS_1, nullptr, -3));
    EXPECT_EQ("app_id=com.marveno.orvex\nfeature=OX01\nvalue=-3\n", fields(0));
}

TEST_F(OrvexLoggingTest, FailedClientCreationIsLoggedAndSendsFailQuietly) {
    orvex_host_fail_next("marveno_log_manager_create", 1, -13);
    OrvexLogging* log = OrvexLogging::getInstance();
    ASSERT_NE(nullptr, log);
    EXPECT_EQ(std::vector<std::string>{"Marveno Log Create -13"}, orvex_test::errors());
    EXPECT_EQ(1, log->sendMarvenoLog(ORVEX_LOG_FEATURE_3, nullptr, 0));
    EXPECT_EQ(0, orvex_host_usage_log_count());
    OrvexLogging::deleteInstance();
    EXPECT_EQ(0, orvex_host_usage_log_open_clients());
}

TEST_F(OrvexLoggingTest, SingletonLifecycle) {
    OrvexLogging* first = OrvexLogging::getInstance();
    EXPECT_EQ(first, OrvexLogging::getInstance());
    EXPECT_EQ(1, orvex_host_usage_log_open_clients());
    OrvexLogging::deleteInstance();
    OrvexLogging::deleteInstance();
    EXPECT_EQ(0, orvex_host_usage_log_open_clients());
    {
        orvex_test::FailNothrowNew noMemory;
        EXPECT_EQ(nullptr, OrvexLogging::getInstance());
    }
    EXPECT_EQ(std::vector<std::string>{"_pInstance is NULL"}, orvex_test::errors());
    EXPECT_NE(nullptr, OrvexLogging::getInstance());
    EXPECT_EQ(1, orvex_host_usage_log_open_clients());
}

}  // namespace
