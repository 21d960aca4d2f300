// The host's network connection service: where the proxy comes from, handles, and faults.
#include <gtest/gtest.h>

#include <cstdlib>

#include <orvex_host/connection_control.h>
#include <platform/connection.h>

#include "HostFixture.h"

using namespace orvex_test;

namespace {

class ConnectionServiceTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        for (const char* v : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) unsetenv(v);
        ASSERT_EQ(CONNECTION_ERROR_NONE, connection_create(&handle));
    }
    void TearDown() override {
        if (handle) connection_destroy(handle);
        HostTest::TearDown();
    }

    // The proxy as the service answers it; "(null)" for none.
    std::string proxy() {
        char* p = nullptr;
        EXPECT_EQ(CONNECTION_ERROR_NONE,
                  connection_get_proxy(handle, CONNECTION_ADDRESS_FAMILY_IPV4, &p));
        std::string s = p ? p : "(null)";
        free(p);
        return s;
    }

    connection_h handle = nullptr;
};

TEST_F(ConnectionServiceTest, ProxyComesFromTheEnvironmentOrTheOverride) {
    EXPECT_EQ("(null)", proxy());
    setenv("all_proxy", "http://all:1", 1);
    EXPECT_EQ("http://all:1", proxy());
    setenv("HTTPS_PROXY", "http://upper:2", 1);
    EXPECT_EQ("http://upper:2", proxy());
    setenv("https_proxy", "http://lower:3", 1);
    EXPECT_EQ("http://lower:3", proxy());

    orvex_host_connection_set_proxy("10.0.0.1:8080");
    EXPECT_EQ("10.0.0.1:8080", proxy());
    orvex_host_connection_set_proxy("");
    EXPECT_EQ("(null)", proxy());
    orvex_host_connection_set_proxy(nullptr);
    EXPECT_EQ("http://lower:3", proxy());
    orvex_host_connection_set_proxy("1.2.3.4:5");
    ASSERT_EQ(0, orvex_host_reset());
    EXPECT_EQ("http://lower:3", proxy());
    for (const char* v : {"https_proxy", "HTTPS_PROXY", "all_proxy"}) unsetenv(v);
}

TEST_F(ConnectionServiceTest, HandlesAreCountedAndChecked) {
    EXPECT_EQ(1, orvex_host_connection_open_handles());
    connection_h second = nullptr;
    ASSERT_EQ(CONNECTION_ERROR_NONE, connection_create(&second));
    EXPECT_EQ(2, orvex_host_connection_open_handles());
    EXPECT_EQ(CONNECTION_ERROR_NONE, connection_destroy(second));
    EXPECT_EQ(1, orvex_host_connection_open_handles());

    char* p = nullptr;
    EXPECT_EQ(CONNECTION_ERROR_INVALID_PARAMETER, connection_create(nullptr));
    EXPECT_EQ(CONNECTION_ERROR_INVALID_PARAMETER, connection_destroy(nullptr));
    EXPECT_EQ(CONNECTION_ERROR_INVALID_PARAMETER,
              connection_get_proxy(nullptr, CONNECTION_ADDRESS_FAMILY_IPV4, &p));
    EXPECT_EQ(CONNECTION_ERROR_INVALID_PARAMETER,
              connection_get_proxy(handle, CONNECTION_ADDRESS_FAMILY_IPV4, nullptr));
    EXPECT_EQ(CONNECTION_ERROR_INVALID_PARAMETER,
              connection_get_proxy(handle, static_cast<connection_address_family_e>(7), &p));
}

TEST_F(ConnectionServiceTest, FaultsAreInjectable) {
    connection_h other = nullptr;
    orvex_host_fail_next("connection_create", 1, CONNECTION_ERROR_OUT_OF_MEMORY);
    EXPECT_EQ(CONNECTION_ERROR_OUT_OF_MEMORY, connection_create(&other));
    EXPECT_EQ(nullptr, other);

    orvex_host_connection_set_proxy("1.2.3.4:5");
    char* p = nullptr;
    orvex_host_fail_next("connection_get_proxy", 1, CONNECTION_ERROR_INVALID_OPERATION);
    EXPECT_EQ(CONNECTION_ERROR_INVALID_OPERATION,
              connection_get_proxy(handle, CONNECTION_ADDRESS_FAMILY_IPV4, &p));
    EXPECT_EQ(nullptr, p);
    EXPECT_EQ("1.2.3.4:5", proxy());

    orvex_host_fail_next("connection_destroy", 1, CONNECTION_ERROR_INVALID_OPERATION);
    EXPECT_EQ(CONNECTION_ERROR_INVALID_OPERATION, connection_destroy(handle));
    EXPECT_EQ(1, orvex_host_connection_open_handles());
}

}  // namespace
