// The usage survey logger: what each event inserts, and its failures.
#include <cstdio>

#include <orvex_host/usage_log_control.h>

#include "BuildConfig.h"
#include "HostFixture.h"
#include "OrvexLogging.h"

using namespace orvex_test;

class OrvexLoggingTest : public HostTest {
protected:
    void TearDown() override {
        OrvexLogging::deleteInstance();
        HostTest::TearDown();
    }
};

TEST_F(OrvexLoggingTest, EachEventGoesToItsProviderPathWithItsFieldsThroughAClientOfItsOwn) {
    const std::string provider = std::string("content://") + ORVEX_LOG_PROVIDER_AUTHORITY + "/log/";
    OrvexLogging* log = OrvexLogging::getInstance();
    const int bundles = orvex_host_bundle_count();
    for (int type = -1; type <= 12; ++type)
        EXPECT_EQ(1, log->sendMarvenoLog(static_cast<OrvexLoggingType>(type), "auto", 7));
    EXPECT_EQ(bundles, orvex_host_bundle_count());  // every event's bundle is freed
    ASSERT_EQ(12, orvex_host_usage_log_count());    // the types outside 0..11 send nothing
    for (int type = 0; type < 12; ++type) {
        char expected[96];
        snprintf(expected, sizeof expected, "app_id=com.marveno.orvex\nfeature=OX%02d\n%s",
                 type + 1,
                 type <= 1                               ? "value=7\n"
                 : (type == 3 || type == 6 || type == 8) ? "extra=auto\n"
                                                         : "");
        EXPECT_EQ(expected, adopt(orvex_host_usage_log_fields(type))) << type;
        EXPECT_EQ(provider + (type <= 1 ? "report_app_status_survey" : "use_app_feature_survey"),
                  adopt(orvex_host_usage_log_uri(type, nullptr)))
            << type;
    }
    OrvexLogging::deleteInstance();
    EXPECT_EQ(0, orvex_host_usage_log_open_clients());

    // A client that could not be created is kept and sends nothing.
    orvex_host_fail_next("marveno_log_manager_create", 1, -13);
    EXPECT_EQ(1, OrvexLogging::getInstance()->sendMarvenoLog(ORVEX_LOG_FEATURE_3, nullptr, 0));
    EXPECT_EQ(Lines{"Marveno Log Create -13"}, errors());
    EXPECT_EQ(12, orvex_host_usage_log_count());
}
