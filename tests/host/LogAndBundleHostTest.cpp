#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <orvex_host/control.h>
#include <platform/bundle.h>
#include <platform/dlog.h>

#include "HostFixture.h"

namespace {

class LogHostTest : public orvex_test::HostTest {};

// Runs fn with stderr captured into a string.
template <typename F>
std::string captureStderr(F fn) {
    fflush(stderr);
    int saved = dup(2);
    FILE* tmp = tmpfile();
    dup2(fileno(tmp), 2);
    fn();
    fflush(stderr);
    dup2(saved, 2);
    close(saved);
    std::string out;
    rewind(tmp);
    char buf[256];
    while (size_t n = fread(buf, 1, sizeof buf, tmp)) out.append(buf, n);
    fclose(tmp);
    return out;
}

TEST_F(LogHostTest, CapturesEveryLineAndPrintsThoseAboveTheThreshold) {
    std::string err = captureStderr([] {
        orvex_host_log_set_stderr_threshold(DLOG_ERROR);
        __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "quiet %d", 1);
        __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "T", "loud %s", "two");
        orvex_host_log_set_stderr_threshold(DLOG_SILENT);
        __dlog_print(LOG_ID_MAIN, DLOG_FATAL, "T", "silenced");
    });
    EXPECT_EQ("E/T: loud two\n", err);

    auto lines = orvex_test::logLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(DLOG_INFO, lines[0].prio);
    EXPECT_EQ("T", lines[0].tag);
    EXPECT_EQ("quiet 1", lines[0].text);
    EXPECT_EQ("loud two", lines[1].text);
    EXPECT_EQ("silenced", lines[2].text);

    orvex_host_log_clear();
    EXPECT_EQ(0u, orvex_host_log_count());
    EXPECT_EQ(nullptr, orvex_host_log_line(0, nullptr, nullptr));
}

TEST_F(LogHostTest, RejectsBadArgumentsAndInjectedFaults) {
    EXPECT_EQ(DLOG_ERROR_INVALID_PARAMETER, __dlog_print(LOG_ID_MAX, DLOG_INFO, "T", "x"));
    EXPECT_EQ(DLOG_ERROR_INVALID_PARAMETER, __dlog_print(LOG_ID_MAIN, DLOG_INFO, nullptr, "x"));
    orvex_host_fail_next("__dlog_print", 1, -5);
    EXPECT_EQ(-5, __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "dropped"));
    EXPECT_EQ(0u, orvex_host_log_count());
}

TEST_F(LogHostTest, KeepsLinesWholeAtEveryLength) {
    // Around the formatting buffer's size, and far beyond it.
    std::vector<std::string> texts;
    for (size_t length : {0, 1, 510, 511, 512, 513, 5000}) {
        std::string text(length, 'x');
        if (length) text.back() = 'y';
        EXPECT_EQ(static_cast<int>(length),
                  __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", text.c_str()));
        texts.push_back(text);
    }
    auto lines = orvex_test::logLines();
    ASSERT_EQ(texts.size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(texts[i], lines[i].text);
}

class BundleHostTest : public orvex_test::HostTest {};

TEST_F(BundleHostTest, StringEntriesInOrder) {
    bundle* b = bundle_create();
    ASSERT_NE(nullptr, b);
    EXPECT_EQ(BUNDLE_ERROR_NONE, bundle_add_str(b, "app_id", "com.marveno.orvex"));
    EXPECT_EQ(BUNDLE_ERROR_NONE, bundle_add_str(b, "feature", "OX01"));
    EXPECT_EQ(BUNDLE_ERROR_KEY_EXISTS, bundle_add_str(b, "feature", "OX02"));
    EXPECT_EQ(BUNDLE_ERROR_NONE, bundle_add_str(b, "empty", ""));
    EXPECT_EQ(3, bundle_get_count(b));

    char* v = nullptr;
    EXPECT_EQ(BUNDLE_ERROR_NONE, bundle_get_str(b, "feature", &v));
    EXPECT_STREQ("OX01", v);
    EXPECT_EQ(BUNDLE_ERROR_KEY_NOT_AVAILABLE, bundle_get_str(b, "missing", &v));

    bundle* copy = bundle_dup(b);
    EXPECT_EQ(BUNDLE_ERROR_NONE, bundle_del(b, "app_id"));
    EXPECT_EQ(BUNDLE_ERROR_KEY_NOT_AVAILABLE, bundle_del(b, "app_id"));

    std::vector<std::string> seen;
    bundle_iterate(
        copy,
        [](const char* key, const char* val, void* data) {
            static_cast<std::vector<std::string>*>(data)->push_back(std::string(key) + "=" + val);
        },
        &seen);
    EXPECT_EQ((std::vector<std::string>{"app_id=com.marveno.orvex", "feature=OX01", "empty="}),
              seen);
    EXPECT_EQ(BUNDLE_ERROR_NONE, bundle_free(copy));
    EXPECT_EQ(BUNDLE_ERROR_NONE, bundle_free(b));
    EXPECT_EQ(BUNDLE_ERROR_INVALID_PARAMETER, bundle_free(nullptr));
}

TEST_F(BundleHostTest, BadArgumentsAndInjectedFaults) {
    EXPECT_EQ(BUNDLE_ERROR_INVALID_PARAMETER, bundle_add_str(nullptr, "k", "v"));
    orvex_host_fail_next("bundle_create", 1, 0);
    EXPECT_EQ(nullptr, bundle_create());
    bundle* b = bundle_create();
    ASSERT_NE(nullptr, b);
    EXPECT_EQ(BUNDLE_ERROR_INVALID_PARAMETER, bundle_add_str(b, "k", nullptr));
    EXPECT_EQ(BUNDLE_ERROR_INVALID_PARAMETER, bundle_add_str(b, "", "v"));
    orvex_host_fail_next("bundle_add_str", 1, BUNDLE_ERROR_OUT_OF_MEMORY);
    EXPECT_EQ(BUNDLE_ERROR_OUT_OF_MEMORY, bundle_add_str(b, "k", "v"));
    EXPECT_EQ(0, bundle_get_count(b));
    bundle_add_str(b, "k", "v");
    orvex_host_fail_next("bundle_get_str", 1, BUNDLE_ERROR_INVALID_PARAMETER);
    char* v = nullptr;
    EXPECT_EQ(BUNDLE_ERROR_INVALID_PARAMETER, bundle_get_str(b, "k", &v));
    bundle_free(b);
}

}  // namespace
