// What every host service relies on: fault injection and the data directory.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <tuple>

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

// Each value from the environment is refused in one line naming it, as its setter refuses it.
TEST_F(HostCoreTest, EnvironmentValuesAreCheckedLikeTheirSetters) {
    const std::string home = getenv("ORVEX_HOST_HOME");
    for (auto [name, value, problem] : {
             std::tuple{"ORVEX_HOST_LOG_LEVEL", "loud",
                        "ORVEX_HOST_LOG_LEVEL is 'loud', not a log level (verbose, debug, info, "
                        "warn, error, fatal or silent)"},
             {"ORVEX_HOST_WEATHER_SLP", "1020.5", ""},
             {"ORVEX_HOST_WEATHER_SLP", "5",
              "ORVEX_HOST_WEATHER_SLP is '5', not a number from 260 to 1260"},
             {"ORVEX_HOST_HOME", "relative", "ORVEX_HOST_HOME is 'relative', not an absolute path"},
             {"ORVEX_HOST_SENSOR_SEED", "abc",
              "ORVEX_HOST_SENSOR_SEED is 'abc', not a whole number from 0 to 4294967295"},
             {"ORVEX_HOST_SENSOR_TRACE_LOOP", "maybe",
              "ORVEX_HOST_SENSOR_TRACE_LOOP is 'maybe', not 0 or 1"},
             {"ORVEX_HOST_AGENT_TIMEOUT_MS", "0",
              "ORVEX_HOST_AGENT_TIMEOUT_MS is '0', not a whole number from 1 to 86400000"},
         }) {
        SCOPED_TRACE(value);
        setenv(name, value, 1);
        const char* found = orvex_host_config_problem();
        EXPECT_EQ(std::string(problem), found ? found : "");
        unsetenv(name);
    }
    setenv("ORVEX_HOST_HOME", home.c_str(), 1);
    EXPECT_EQ(-EINVAL, orvex_host_set_data_dir("relative"));
    EXPECT_EQ(-EINVAL, orvex_host_weather_set_slp(5));
}

// A program that links the library keeps its stderr: the log goes to the system log until a
// level for stderr is asked for.
TEST_F(HostCoreTest, TheLogUsesStderrOnlyWhenALevelIsAskedFor) {
    for (auto [level, shown] :
         {std::pair{DLOG_DEFAULT, false}, {DLOG_ERROR, true}, {DLOG_SILENT, false}}) {
        SCOPED_TRACE(level);
        orvex_host_log_set_stderr_threshold(level);
        testing::internal::CaptureStderr();
        __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "ORVEX", "line %d", level);
        EXPECT_EQ(shown ? "E/ORVEX: line " + std::to_string(level) + "\n" : "",
                  testing::internal::GetCapturedStderr());
        EXPECT_TRUE(orvex_test::logged(DLOG_ERROR, "line " + std::to_string(level)));
    }
    orvex_host_log_set_stderr_threshold(DLOG_SILENT);
}

}  // namespace
