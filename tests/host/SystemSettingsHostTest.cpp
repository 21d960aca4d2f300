#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <orvex_host/control.h>
#include <platform/vconf.h>

#include "HostFixture.h"

namespace {

class SystemSettingsHostTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        for (const char* var : {"LC_ALL", "LC_MEASUREMENT", "LANG"}) {
            const char* v = getenv(var);
            saved_.emplace_back(var, v ? std::optional<std::string>(v) : std::nullopt);
            unsetenv(var);
        }
    }
    void TearDown() override {
        for (auto& [var, value] : saved_) {
            if (value)
                setenv(var, value->c_str(), 1);
            else
                unsetenv(var);
        }
        HostTest::TearDown();
    }

    static std::string str(const char* key) {
        char* v = vconf_get_str(key);
        std::string out = v ? v : "(null)";
        free(v);
        return out;
    }

    std::vector<std::pair<const char*, std::optional<std::string>>> saved_;
};

TEST_F(SystemSettingsHostTest, DefaultsComeFromTheHostLocale) {
    setenv("LANG", "en_US.UTF-8", 1);
    EXPECT_EQ("US", str("db/csc/country_iso"));
    EXPECT_EQ("en_US.UTF-8", str("db/menu_widget/regionformat"));
    int retail = -1;
    EXPECT_EQ(VCONF_OK, vconf_get_int("db/retailmode/enabled", &retail));
    EXPECT_EQ(0, retail);

    setenv("LC_ALL", "de_DE@euro", 1);  // wins over LANG
    EXPECT_EQ("DE", str("db/csc/country_iso"));
    EXPECT_EQ("de_DE@euro", str("db/menu_widget/regionformat"));

    setenv("LC_ALL", "C.UTF-8", 1);
    EXPECT_EQ("(null)", str("db/csc/country_iso"));
    EXPECT_EQ("(null)", str("db/menu_widget/regionformat"));

    setenv("LC_ALL", "eo", 1);  // a language without a territory
    EXPECT_EQ("(null)", str("db/csc/country_iso"));
    EXPECT_EQ("eo", str("db/menu_widget/regionformat"));
}

TEST_F(SystemSettingsHostTest, OverridesPersistAndCanBeDropped) {
    setenv("LANG", "en_US.UTF-8", 1);
    ASSERT_EQ(0, orvex_host_vconf_set_str("db/csc/country_iso", "RU"));
    ASSERT_EQ(0, orvex_host_vconf_set_int("db/retailmode/enabled", 1));
    ASSERT_EQ(0, orvex_host_vconf_set_str("db/menu_widget/regionformat", nullptr));

    // Another process reading the same directory sees them too.
    std::string dir = orvex_host_data_dir();
    ASSERT_EQ(0, orvex_host_set_data_dir(dir.c_str()));
    EXPECT_EQ("RU", str("db/csc/country_iso"));
    EXPECT_EQ("(null)", str("db/menu_widget/regionformat"));
    int v = 0;
    EXPECT_EQ(VCONF_OK, vconf_get_int("db/retailmode/enabled", &v));
    EXPECT_EQ(1, v);

    // Type matters: an int key has no text and a text key no int.
    EXPECT_EQ("(null)", str("db/retailmode/enabled"));
    EXPECT_EQ(VCONF_ERROR, vconf_get_int("db/csc/country_iso", &v));
    EXPECT_EQ(VCONF_ERROR, vconf_get_int("db/unknown/key", &v));
    EXPECT_EQ("(null)", str("db/unknown/key"));

    ASSERT_EQ(0, orvex_host_vconf_unset("db/csc/country_iso"));
    EXPECT_EQ("US", str("db/csc/country_iso"));
    EXPECT_EQ(-EINVAL, orvex_host_vconf_set_int(nullptr, 1));
}

TEST_F(SystemSettingsHostTest, InjectedFaults) {
    ASSERT_EQ(0, orvex_host_vconf_set_str("db/csc/country_iso", "US"));
    orvex_host_fail_next("vconf_get_str", 1, -1);
    EXPECT_EQ("(null)", str("db/csc/country_iso"));
    EXPECT_EQ("US", str("db/csc/country_iso"));
    orvex_host_fail_next("vconf_get_int", 1, -5);
    int v = 0;
    EXPECT_EQ(-5, vconf_get_int("db/retailmode/enabled", &v));
}

}  // namespace
