// The small host services: the log and the system settings.
#include <cstdlib>

#include <platform/vconf.h>

#include "HostFixture.h"

namespace {

using ServicesHostTest = orvex_test::HostTest;

TEST_F(ServicesHostTest, LogKeepsLinesWholeAtEveryLength) {
    std::vector<std::string> texts;
    for (size_t length : {0, 511, 512, 513, 5000}) {  // around the formatting buffer's size
        texts.push_back(std::string(length, 'x') + "y");
        EXPECT_EQ(static_cast<int>(length + 1),
                  __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", texts.back().c_str()));
    }
    auto lines = orvex_test::logLines();
    ASSERT_EQ(texts.size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(texts[i], lines[i].text) << i;
}

TEST_F(ServicesHostTest, SettingsComeFromTheLocale) {
    const char* cases[][3] = {{"en_US.UTF-8", "US", "en_US.UTF-8"},
                              {"de_DE@euro", "DE", "de_DE@euro"},
                              {"C.UTF-8", "", ""},
                              {"eo", "", "eo"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0]);
        setenv("LC_ALL", c[0], 1);
        EXPECT_EQ(c[1], orvex_test::adopt(vconf_get_str("db/csc/country_iso")));
        EXPECT_EQ(c[2], orvex_test::adopt(vconf_get_str("db/menu_widget/regionformat")));
    }
    unsetenv("LC_ALL");
}

}  // namespace
