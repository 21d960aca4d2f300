#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include <orvex_host/control.h>
#include <orvex_host/key_storage_control.h>
#include <platform/key_storage.h>

#include "HostFixture.h"

namespace {

class KeyStorageHostTest : public orvex_test::HostTest {
protected:
    static std::string get(const char* alias, int* rc) {
        char* data = nullptr;
        *rc = key_storage_get(alias, &data);
        std::string out = data ? data : "(none)";
        free(data);
        return out;
    }
    static std::string aliases() {
        char* a = orvex_host_key_aliases();
        std::string out = a ? a : "(unreadable)";
        free(a);
        return out;
    }
};

TEST_F(KeyStorageHostTest, StoreReadAndRemove) {
    int rc = 0;
    EXPECT_EQ("(none)", get("twc_api_key", &rc));
    EXPECT_EQ(KEY_STORAGE_ERROR_NO_SUCH_ALIAS, rc);
    EXPECT_EQ("", aliases());

    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", "s3cret"));
    ASSERT_EQ(0, orvex_host_key_set("another", ""));
    EXPECT_EQ("s3cret", get("twc_api_key", &rc));
    EXPECT_EQ(0, rc);
    EXPECT_EQ("", get("another", &rc));
    EXPECT_EQ("another\ntwc_api_key\n", aliases());

    struct stat st;
    ASSERT_EQ(0, stat((std::string(orvex_host_data_dir()) + "/keys.db").c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 0777);

    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", nullptr));
    get("twc_api_key", &rc);
    EXPECT_EQ(KEY_STORAGE_ERROR_NO_SUCH_ALIAS, rc);
    EXPECT_EQ(KEY_STORAGE_ERROR_INVALID_PARAMETER, key_storage_get(nullptr, nullptr));
}

TEST_F(KeyStorageHostTest, AStoreOthersCanReadIsRefused) {
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", "s3cret"));
    std::string path = std::string(orvex_host_data_dir()) + "/keys.db";
    ASSERT_EQ(0, chmod(path.c_str(), 0640));
    int rc = 0;
    EXPECT_EQ("(none)", get("twc_api_key", &rc));
    EXPECT_EQ(KEY_STORAGE_ERROR_PERMISSION_DENIED, rc);
    EXPECT_EQ(KEY_STORAGE_ERROR_PERMISSION_DENIED, orvex_host_key_set("x", "y"));
    EXPECT_EQ("(unreadable)", aliases());
    ASSERT_EQ(0, chmod(path.c_str(), 0600));
    EXPECT_EQ("s3cret", get("twc_api_key", &rc));

    orvex_host_fail_next("key_storage_get", 1, -5);
    EXPECT_EQ("(none)", get("twc_api_key", &rc));
    EXPECT_EQ(-5, rc);
}

}  // namespace
