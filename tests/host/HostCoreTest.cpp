// What every host service relies on: fault injection, the data directory and durable stores.
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

class HostCoreTest : public orvex_test::HostTest {
protected:
    static mode_t modeOf(const std::string& path) {
        struct stat st {};
        return stat(path.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
    }
};

TEST_F(HostCoreTest, FaultsHitOnlyTheNamedFunctionForTheirCountUntilAReset) {
    int v = 0;
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 1));
    std::string dir = orvex_host_data_dir();  // private: the directory 0700, the store 0600
    EXPECT_EQ(0700u, modeOf(dir));
    EXPECT_EQ(0600u, modeOf(dir + "/host.db"));
    orvex_host_fail_after("preference_get_int", 1, 2, -99);  // one call through, then two fail
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("k", &v));
    EXPECT_EQ(-99, preference_get_int("k", &v));
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 2));  // another function
    EXPECT_EQ(-99, preference_get_int("k", &v));
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("k", &v));
    EXPECT_EQ(2, v);

    orvex_host_fail_next("preference_get_int", -1, -5);  // until cleared
    for (int n = 0; n < 3; ++n) EXPECT_EQ(-5, preference_get_int("k", &v));
    orvex_host_clear_faults();
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("k", &v));
    orvex_host_fail_next("preference_get_int", 1, -5);
    ASSERT_EQ(0, orvex_host_reset());  // a reset clears them too
    EXPECT_EQ(PREFERENCE_ERROR_NO_KEY, preference_get_int("k", &v));
}

// An existing directory is the user's: used with its mode, or refused when others can write to it.
TEST_F(HostCoreTest, ExistingDirectoriesKeepTheirModeAndOpenOnesAreRefused) {
    const std::string base = orvex_host_data_dir();
    const std::string saved = getenv("ORVEX_HOST_HOME");
    for (auto [mode, usable] :
         {std::pair{0750, true}, {0755, true}, {0770, false}, {0702, false}, {0777, false}}) {
        std::string dir = base + "/home" + std::to_string(mode);
        ASSERT_EQ(0, mkdir(dir.c_str(), 0700));
        ASSERT_EQ(0, chmod(dir.c_str(), mode));
        setenv("ORVEX_HOST_HOME", dir.c_str(), 1);
        ASSERT_EQ(0, orvex_host_set_data_dir(nullptr));
        EXPECT_EQ(usable ? PREFERENCE_ERROR_NONE : PREFERENCE_ERROR_IO_ERROR,
                  preference_set_int("k", 1));
        EXPECT_EQ(static_cast<mode_t>(mode), modeOf(dir));
        const char* problem = orvex_host_data_dir_problem();
        EXPECT_EQ(
            usable ? "" : "the data directory " + dir + " is writable by group or others; refused",
            problem ? problem : "");
        EXPECT_EQ(usable ? 0 : -EPERM, orvex_host_set_data_dir(dir.c_str()));
        EXPECT_EQ(usable, access((dir + "/host.db").c_str(), F_OK) == 0);
    }
    setenv("ORVEX_HOST_HOME", saved.c_str(), 1);
}

// A writer killed in the middle of many writes leaves a sound store in which every key holds a
// value that was written whole, and no key is ahead of an earlier one by more than one round.
TEST_F(HostCoreTest, WriterKilledMidWriteLeavesAConsistentStore) {
    constexpr int kKeys = 8;
    auto textOf = [](int round) { return std::string(200 + round % 50, 'a' + round % 26); };
    std::string dir = orvex_host_data_dir();
    ASSERT_EQ(0, orvex_host_set_data_dir(dir.c_str()));  // no store open across the fork
    int progress[2];
    ASSERT_EQ(0, pipe(progress));
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        for (int round = 1;; ++round) {
            for (int k = 0; k < kKeys; ++k) {
                std::string key = "key" + std::to_string(k);
                preference_set_int(key.c_str(), round);
                preference_set_string((key + "_text").c_str(), textOf(round).c_str());
            }
            if (round == 20) (void)!write(progress[1], "x", 1);
        }
    }
    char c;
    ASSERT_EQ(1, read(progress[0], &c, 1));
    kill(pid, SIGKILL);
    close(progress[0]);
    close(progress[1]);
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));

    sqlite3* db = nullptr;
    sqlite3_stmt* st = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open((dir + "/host.db").c_str(), &db));
    ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &st, nullptr));
    ASSERT_EQ(SQLITE_ROW, sqlite3_step(st));
    EXPECT_STREQ("ok", reinterpret_cast<const char*>(sqlite3_column_text(st, 0)));
    sqlite3_finalize(st);
    sqlite3_close(db);

    // Rounds of the keys in order: first, ..., first, first - 1, ..., first - 1; texts whole.
    int first = 0;
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_int("key0", &first));
    EXPECT_GE(first, 20);
    for (int k = 0, previous = first; k < kKeys; ++k) {
        std::string key = "key" + std::to_string(k);
        int round = 0;
        char* text = nullptr;
        ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_int(key.c_str(), &round));
        EXPECT_TRUE(round == previous || round == first - 1) << key << " " << round;
        previous = round;
        ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_get_string((key + "_text").c_str(), &text));
        std::string t = text;
        free(text);
        EXPECT_TRUE(t == textOf(round) || t == textOf(round - 1)) << key;  // killed in between
    }
}

}  // namespace
