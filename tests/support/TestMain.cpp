// Test entry point shared by every suite.
#include <glib.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "HostFixture.h"

int main(int argc, char** argv) {
    // A g_return_if_fail tripped by our code is a bug: make it fail the test on the spot.
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR |
                                                       G_LOG_LEVEL_WARNING));
    // The log capture is what tests read; stderr stays quiet unless asked for.
    setenv("ORVEX_HOST_LOG_LEVEL",
           getenv("ORVEX_TEST_LOG_LEVEL") ? getenv("ORVEX_TEST_LOG_LEVEL") : "silent", 1);
    orvex_test::useScratchRoot();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
