// The preference store and the key storage: typed values, distinct errors, and a second connection
// (another process, such as the tool) that writes while the service keeps its own open.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <cstdio>

#include <cstdlib>
#include <functional>
#include <string>

#include <orvex_host/control.h>
#include <orvex_host/key_storage_control.h>
#include <platform/app_preference.h>
#include <platform/key_storage.h>

#include "HostFixture.h"

namespace {

class StoresHostTest : public orvex_test::HostTest {
protected:
    static std::string path(const char* file) {
        return std::string(orvex_host_data_dir()) + "/" + file;
    }
    // Runs SQL on the file through a connection of its own, as another process would.
    static void exec(const char* file, const char* sql) {
        sqlite3* db = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open(path(file).c_str(), &db));
        sqlite3_busy_timeout(db, 5000);
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, sql, nullptr, nullptr, nullptr)) << sql;
        sqlite3_close(db);
    }
    // "code:value" of a key read.
    static std::string key(const char* alias) {
        char* data = nullptr;
        int rc = key_storage_get(alias, &data);
        std::string out = std::to_string(rc) + ":" + (data ? data : "");
        free(data);
        return out;
    }
};

TEST_F(StoresHostTest, PreferencesKeepTheirTypeAndAnswerEachFailureDistinctly) {
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("i", -42));
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_double("d", 1013.25));
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_string("s", "T:1;P+2.0 \xc3\xa9"));
    int i = 0;
    double d = 0;
    char* s = nullptr;
    const std::pair<std::function<int()>, int> cases[] = {
        {[&] { return preference_get_int("i", &i); }, PREFERENCE_ERROR_NONE},
        {[&] { return preference_get_double("d", &d); }, PREFERENCE_ERROR_NONE},
        {[&] { return preference_get_string("s", &s); }, PREFERENCE_ERROR_NONE},
        {[&] { return preference_get_double("x", &d); }, PREFERENCE_ERROR_NO_KEY},
        {[&] { return preference_get_double("i", &d); }, PREFERENCE_ERROR_TYPE_MISMATCH},
        {[&] { return preference_get_int("s", &i); }, PREFERENCE_ERROR_TYPE_MISMATCH},
        {[&] { return preference_set_string("s", nullptr); }, PREFERENCE_ERROR_INVALID_PARAMETER},
        {[&] { return preference_remove("i"); }, PREFERENCE_ERROR_NONE},
        {[&] { return preference_remove("i"); }, PREFERENCE_ERROR_NO_KEY},
    };
    for (size_t n = 0; n < std::size(cases); ++n) EXPECT_EQ(cases[n].second, cases[n].first()) << n;
    EXPECT_EQ(-42, i);
    EXPECT_EQ(1013.25, d);
    EXPECT_STREQ("T:1;P+2.0 \xc3\xa9", s);
    free(s);
}

TEST_F(StoresHostTest, AnotherConnectionsWritesAreReadAtOnce) {
    double d = 0;
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_double("slp", 1000.0));
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_double("slp", &d));
    exec("host.db", "UPDATE preference SET dval=1001.5 WHERE key='slp'");
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_double("slp", &d));
    EXPECT_EQ(1001.5, d);

    const std::string none = std::to_string(KEY_STORAGE_ERROR_NO_SUCH_ALIAS) + ":";
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", "first"));
    EXPECT_EQ("0:first", key("twc_api_key"));
    exec("keys.db", "UPDATE secret SET value='second' WHERE alias='twc_api_key'");
    EXPECT_EQ("0:second", key("twc_api_key"));
    // A store replaced under the open connection is opened again.
    ASSERT_EQ(0, rename(path("keys.db").c_str(), path("old.db").c_str()));
    EXPECT_EQ(none, key("twc_api_key"));
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", "third"));
    EXPECT_EQ("0:third", key("twc_api_key"));
}

TEST_F(StoresHostTest, KeysArePrivateAndAStoreOthersCanReadIsRefused) {
    const std::string none = std::to_string(KEY_STORAGE_ERROR_NO_SUCH_ALIAS) + ":";
    const std::string denied = std::to_string(KEY_STORAGE_ERROR_PERMISSION_DENIED) + ":";
    EXPECT_EQ(none, key("twc_api_key"));
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", "s3cret"));
    ASSERT_EQ(0, orvex_host_key_set("another", ""));
    char* aliases = orvex_host_key_aliases();
    EXPECT_STREQ("another\ntwc_api_key\n", aliases);
    free(aliases);
    for (mode_t mode : {0640, 0604, 0600}) {
        ASSERT_EQ(0, chmod(path("keys.db").c_str(), mode));
        EXPECT_EQ(mode == 0600 ? "0:s3cret" : denied, key("twc_api_key")) << mode;
        EXPECT_EQ(mode == 0600 ? 0 : KEY_STORAGE_ERROR_PERMISSION_DENIED,
                  orvex_host_key_set("x", "y"));
    }
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", nullptr));
    EXPECT_EQ(none, key("twc_api_key"));
}

}  // namespace
