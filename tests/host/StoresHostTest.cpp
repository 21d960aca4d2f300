// The preference store and the key storage: typed values, distinct errors, and a second connection
// (another process, such as the tool) that writes while the service keeps its own open.
#include <glib.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include <orvex_host/key_storage_control.h>
#include <platform/app_preference.h>
#include <platform/key_storage.h>
#include <platform/vconf.h>

#include "HostFixture.h"

using orvex_test::adopt;

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
        return std::to_string(rc) + ":" + adopt(data);
    }
};

TEST_F(StoresHostTest, PreferencesKeepTypeAndValueAcrossAReopenAndAnotherConnection) {
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("i", -42));
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_double("d", 1013.25));
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_string("s", "T:1;P+2.0 \xc3\xa9"));
    ASSERT_EQ(0, orvex_host_set_data_dir(path("").c_str()));  // closes and opens again
    int i = 0;
    double d = 0;
    char* s = nullptr;
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("i", &i));
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_string("s", &s));
    EXPECT_EQ(-42, i);
    EXPECT_EQ("T:1;P+2.0 \xc3\xa9", adopt(s));
    const int failures[][2] = {
        {preference_get_double("x", &d), PREFERENCE_ERROR_NO_KEY},
        {preference_get_double("i", &d), PREFERENCE_ERROR_TYPE_MISMATCH},
        {preference_get_int("s", &i), PREFERENCE_ERROR_TYPE_MISMATCH},
        {preference_set_string("s", nullptr), PREFERENCE_ERROR_INVALID_PARAMETER},
        {preference_remove("i"), PREFERENCE_ERROR_NONE},
        {preference_remove("i"), PREFERENCE_ERROR_NO_KEY},
    };
    for (const auto& [got, expected] : failures) EXPECT_EQ(expected, got);
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_double("d", &d));
    EXPECT_EQ(1013.25, d);
    exec("host.db", "UPDATE preference SET dval=1001.5 WHERE key='d'");
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_double("d", &d));
    EXPECT_EQ(1001.5, d);
}

TEST_F(StoresHostTest, KeysArePrivateAndFollowAnotherConnection) {
    const std::string none = std::to_string(KEY_STORAGE_ERROR_NO_SUCH_ALIAS) + ":";
    const std::string denied = std::to_string(KEY_STORAGE_ERROR_PERMISSION_DENIED) + ":";
    EXPECT_EQ(none, key("twc_api_key"));
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", "first"));
    ASSERT_EQ(0, orvex_host_key_set("another", ""));
    EXPECT_EQ("another\ntwc_api_key\n", adopt(orvex_host_key_aliases()));
    exec("keys.db", "UPDATE secret SET value='second' WHERE alias='twc_api_key'");
    for (mode_t mode : {0640, 0604, 0600}) {
        SCOPED_TRACE(testing::Message() << "mode 0" << std::oct << mode);
        EXPECT_EQ(0, chmod(path("keys.db").c_str(), mode));
        EXPECT_EQ(mode == 0600 ? "0:second" : denied, key("twc_api_key"));
        EXPECT_EQ(mode == 0600 ? 0 : KEY_STORAGE_ERROR_PERMISSION_DENIED,
                  orvex_host_key_set("x", "y"));
    }
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", nullptr));
    EXPECT_EQ(none, key("twc_api_key"));
    // A store replaced under the open connection is opened again.
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", "third"));
    ASSERT_EQ(0, rename(path("keys.db").c_str(), path("old.db").c_str()));
    EXPECT_EQ(none, key("twc_api_key"));
    ASSERT_EQ(0, orvex_host_key_set("twc_api_key", "fourth"));
    EXPECT_EQ("0:fourth", key("twc_api_key"));
}

std::string contents(const std::string& path) {
    g_autofree char* text = nullptr;
    gsize size = 0;
    return g_file_get_contents(path.c_str(), &text, &size, nullptr) ? std::string(text, size) : "";
}

// A store that fails (a full or failing disk, a corrupt file; the tool's suite has the read-only
// directory): one write, one failure with one line saying why, and the store as it was.
TEST_F(StoresHostTest, AFailingStoreFailsOnceSaysWhyAndKeepsWhatItHeld) {
    const auto corrupt = [](const char* file) {
        return [file](const std::string& dir) {
            orvex_host_set_data_dir(nullptr);  // closes the stores
            const std::string name = dir + "/" + file;
            for (const char* suffix : {"", "-wal", "-shm"}) unlink((name + suffix).c_str());
            g_file_set_contents(name.c_str(), std::string(5000, 'x').c_str(), -1, nullptr);
            chmod(name.c_str(), 0600);
            orvex_host_set_data_dir(dir.c_str());
        };
    };
    const struct {
        const char* name;
        std::function<void(const std::string& dir)> breakIt;
        bool keys;            // the key store rather than host.db
        bool unreadable;      // nothing in it can be read either
        const char* problem;  // %s: the data directory
    } cases[] = {
        {"full disk", [](auto&) { orvex_host_fail_next("sqlite3_step", 1, SQLITE_FULL); }, false,
         false, "cannot write %s/host.db: the disk is full"},
        {"failing disk", [](auto&) { orvex_host_fail_next("sqlite3_step", 1, SQLITE_IOERR); }, true,
         false, "cannot use %s/keys.db: disk I/O error"},
        {"corrupt host.db", corrupt("host.db"), false, true, "%s/host.db is corrupt"},
        {"corrupt keys.db", corrupt("keys.db"), true, true, "%s/keys.db is corrupt"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(0, orvex_host_reset());
        const std::string dir = orvex_host_data_dir();
        EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_set_double("slp", 1013.25));
        EXPECT_EQ(0, orvex_host_key_set("twc_api_key", "kept"));
        c.breakIt(dir);
        const std::string file = dir + (c.keys ? "/keys.db" : "/host.db"), before = contents(file);
        EXPECT_EQ(PLATFORM_ERROR_IO_ERROR, c.keys ? orvex_host_key_set("twc_api_key", "new")
                                                  : preference_set_double("slp", 999.0));
        const char* problem =
            c.keys ? orvex_host_key_storage_problem() : orvex_host_store_problem();
        EXPECT_EQ(orvex_test::fill(c.problem, dir.c_str()), problem ? problem : "");
        EXPECT_EQ(before, contents(file));
        int retail = 0;  // an override may hide in a store that cannot be read: no guessing
        EXPECT_EQ(c.unreadable && !c.keys ? VCONF_ERROR : VCONF_OK,
                  vconf_get_int("db/retailmode/enabled", &retail));
        if (c.unreadable) continue;  // the garbage is all there is
        EXPECT_EQ(0, orvex_host_set_data_dir(dir.c_str()));
        double slp = 0;
        EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_double("slp", &slp));
        EXPECT_EQ(1013.25, slp);
        EXPECT_EQ("0:kept", key("twc_api_key"));
    }
}

}  // namespace
