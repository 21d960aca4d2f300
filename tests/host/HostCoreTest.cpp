// What every host service relies on: fault injection and the data directory.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include <platform/app_preference.h>

#include "HostFixture.h"

namespace {

mode_t modeOf(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
}

using HostCoreTest = orvex_test::HostTest;

TEST_F(HostCoreTest, FaultsHitOnlyTheNamedFunctionForTheirCountUntilAReset) {
    int v = 0;
    ASSERT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 1));
    std::string dir = orvex_host_data_dir();  // private: the directory 0700, the store 0600
    EXPECT_EQ(0700u, modeOf(dir));
    EXPECT_EQ(0600u, modeOf(dir + "/host.db"));
    orvex_host_fail_after("preference_get_int", 1, 2, -99);  // one call through, then two fail
    EXPECT_EQ(PREFERENCE_ERROR_NONE, preference_set_int("k", 2));  // another function
    for (int expected : {0, -99, -99, 0}) EXPECT_EQ(expected, preference_get_int("k", &v));
    EXPECT_EQ(2, v);

    orvex_host_fail_next("preference_get_int", -1, -5);  // every call until cleared
    for (int n = 0; n < 2; ++n) EXPECT_EQ(-5, preference_get_int("k", &v));
    ASSERT_EQ(0, orvex_host_reset());  // as a reset does
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

}  // namespace
