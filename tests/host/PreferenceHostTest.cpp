#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <orvex_host/control.h>
#include <platform/app_preference.h>

#include "HostFixture.h"

namespace {

class PreferenceHostTest : public orvex_test::HostTest {};

TEST_F(PreferenceHostTest, TypedValuesRoundTrip) {
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("i", -42));
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_double("d", 1013.25));
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_string("s", "T:1;P+2.0 \xc3\xa9"));
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_string("empty", ""));

    int i = 0;
    double d = 0;
    char* s = nullptr;
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("i", &i));
    EXPECT_EQ(-42, i);
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_double("d", &d));
    EXPECT_EQ(1013.25, d);
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_string("s", &s));
    EXPECT_STREQ("T:1;P+2.0 \xc3\xa9", s);
    free(s);
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_string("empty", &s));
    EXPECT_STREQ("", s);
    free(s);

    // A key changes type when written with another one.
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_double("i", 0.5));
    EXPECT_EQ(PREFERENCE_ERROR_TYPE_MISMATCH, preference_get_int("i", &i));
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_double("i", &d));
    EXPECT_EQ(0.5, d);
}

TEST_F(PreferenceHostTest, MissingKeysMismatchesAndBadArguments) {
    int i = 7;
    double d = 7;
    char* s = nullptr;
    EXPECT_EQ(PREFERENCE_ERROR_NO_KEY, preference_get_int("nope", &i));
    EXPECT_EQ(PREFERENCE_ERROR_NO_KEY, preference_get_double("nope", &d));
    EXPECT_EQ(PREFERENCE_ERROR_NO_KEY, preference_get_string("nope", &s));
    EXPECT_EQ(7, i);
    EXPECT_EQ(nullptr, s);
    EXPECT_NE(PREFERENCE_ERROR_NO_KEY, PREFERENCE_ERROR_TYPE_MISMATCH);

    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 1));
    EXPECT_EQ(PREFERENCE_ERROR_TYPE_MISMATCH, preference_get_string("k", &s));
    EXPECT_EQ(PREFERENCE_ERROR_TYPE_MISMATCH, preference_get_double("k", &d));

    EXPECT_EQ(PREFERENCE_ERROR_INVALID_PARAMETER, preference_set_int(nullptr, 1));
    EXPECT_EQ(PREFERENCE_ERROR_INVALID_PARAMETER, preference_set_int("", 1));
    EXPECT_EQ(PREFERENCE_ERROR_INVALID_PARAMETER, preference_set_string("k", nullptr));
    EXPECT_EQ(PREFERENCE_ERROR_INVALID_PARAMETER, preference_get_int("k", nullptr));

    bool exists = false;
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_is_existing("k", &exists));
    EXPECT_TRUE(exists);
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_remove("k"));
    EXPECT_EQ(PREFERENCE_ERROR_NO_KEY, preference_remove("k"));
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_is_existing("k", &exists));
    EXPECT_FALSE(exists);
}

TEST_F(PreferenceHostTest, InjectedFaultsHitTheNamedFunctionForTheGivenCount) {
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 1));
    orvex_host_fail_next("preference_get_int", 2, PREFERENCE_ERROR_IO_ERROR);
    int v = 0;
    EXPECT_EQ(PREFERENCE_ERROR_IO_ERROR, preference_get_int("k", &v));
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 2));  // other functions unaffected
    EXPECT_EQ(PREFERENCE_ERROR_IO_ERROR, preference_get_int("k", &v));
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("k", &v));
    EXPECT_EQ(2, v);

    orvex_host_fail_next("preference_set_string", -1, -99);
    for (int n = 0; n < 5; ++n) EXPECT_EQ(-99, preference_set_string("s", "x"));
    orvex_host_clear_faults();
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_set_string("s", "x"));
}

TEST_F(PreferenceHostTest, ResetStartsFromAnEmptyPrivateDirectory) {
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 1));
    std::string first = orvex_host_data_dir();
    ASSERT_EQ(0, orvex_host_reset());
    EXPECT_NE(first, orvex_host_data_dir());
    int v = 0;
    EXPECT_EQ(PREFERENCE_ERROR_NO_KEY, preference_get_int("k", &v));

    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 1));
    struct stat st;
    ASSERT_EQ(0, stat(orvex_host_data_dir(), &st));
    EXPECT_EQ(0700u, st.st_mode & 0777);
    ASSERT_EQ(0, stat((std::string(orvex_host_data_dir()) + "/host.db").c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 0777);
}

TEST_F(PreferenceHostTest, DataDirectoryFollowsTheEnvironment) {
    std::string scratch = orvex_host_data_dir();
    std::string saved = getenv("ORVEX_HOST_HOME") ? getenv("ORVEX_HOST_HOME") : "";
    setenv("ORVEX_HOST_HOME", (scratch + "/explicit").c_str(), 1);
    ASSERT_EQ(0, orvex_host_set_data_dir(nullptr));
    EXPECT_EQ(scratch + "/explicit", orvex_host_data_dir());

    unsetenv("ORVEX_HOST_HOME");
    setenv("XDG_DATA_HOME", (scratch + "/xdg").c_str(), 1);
    ASSERT_EQ(0, orvex_host_set_data_dir(nullptr));
    EXPECT_EQ(scratch + "/xdg/orvex", orvex_host_data_dir());
    struct stat st;
    ASSERT_EQ(0, stat(orvex_host_data_dir(), &st));
    EXPECT_EQ(0700u, st.st_mode & 0777);

    unsetenv("XDG_DATA_HOME");
    std::string home = getenv("HOME") ? getenv("HOME") : "";
    setenv("HOME", (scratch + "/home").c_str(), 1);
    ASSERT_EQ(0, orvex_host_set_data_dir(nullptr));
    EXPECT_EQ(scratch + "/home/.local/share/orvex", orvex_host_data_dir());

    setenv("HOME", home.c_str(), 1);
    setenv("ORVEX_HOST_HOME", saved.c_str(), 1);
    EXPECT_EQ(-EINVAL, orvex_host_set_data_dir(""));
}

// Values written by one process are there for the next one.
TEST_F(PreferenceHostTest, ValuesPersistAcrossProcesses) {
    std::string dir = orvex_host_data_dir();
    ASSERT_EQ(0, orvex_host_set_data_dir(dir.c_str()));  // no store open across the fork
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        int rc = preference_set_int("from_child", 31) | preference_set_string("text", "kept") |
                 preference_set_double("slp", 1001.5);
        _exit(rc == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    int v = 0;
    double d = 0;
    char* s = nullptr;
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("from_child", &v));
    EXPECT_EQ(31, v);
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_double("slp", &d));
    EXPECT_EQ(1001.5, d);
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_string("text", &s));
    EXPECT_STREQ("kept", s);
    free(s);
}

// A writer killed in the middle of many writes leaves a sound store in which every key holds a
// value that was written whole, and no key is ahead of an earlier one by more than one round.
TEST_F(PreferenceHostTest, WriterKilledMidWriteLeavesAConsistentStore) {
    constexpr int kKeys = 8;
    std::string dir = orvex_host_data_dir();
    ASSERT_EQ(0, orvex_host_set_data_dir(dir.c_str()));
    int progress[2];
    ASSERT_EQ(0, pipe(progress));
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        close(progress[0]);
        for (int round = 1;; ++round) {
            for (int k = 0; k < kKeys; ++k) {
                std::string key = "key" + std::to_string(k);
                std::string text(200 + round % 50, static_cast<char>('a' + round % 26));
                preference_set_int(key.c_str(), round);
                preference_set_string((key + "_text").c_str(), text.c_str());
            }
            if (round == 20) (void)!write(progress[1], "x", 1);
        }
    }
    close(progress[1]);
    char c;
    ASSERT_EQ(1, read(progress[0], &c, 1));
    close(progress[0]);
    kill(pid, SIGKILL);
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));

    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open((dir + "/host.db").c_str(), &db));
    sqlite3_stmt* st = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &st, nullptr));
    ASSERT_EQ(SQLITE_ROW, sqlite3_step(st));
    EXPECT_STREQ("ok", reinterpret_cast<const char*>(sqlite3_column_text(st, 0)));
    sqlite3_finalize(st);
    sqlite3_close(db);

    int first = 0;
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("key0", &first));
    EXPECT_GE(first, 20);
    for (int k = 0; k < kKeys; ++k) {
        std::string key = "key" + std::to_string(k);
        int round = 0;
        ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_int(key.c_str(), &round));
        EXPECT_TRUE(round == first || round == first - 1) << key << " " << round;
        char* text = nullptr;
        ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_string((key + "_text").c_str(), &text));
        std::string t = text;
        free(text);
        // Whole: one of the two strings this key can hold at this point, never a mixture.
        bool matches = false;
        for (int r : {round, round - 1})
            matches |= t == std::string(200 + r % 50, static_cast<char>('a' + r % 26));
        EXPECT_TRUE(matches) << key;
    }
}

}  // namespace
