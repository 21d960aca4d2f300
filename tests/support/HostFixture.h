// A fresh host platform for every test, and access to what the library logged.
#ifndef ORVEX_TEST_HOST_FIXTURE_H
#define ORVEX_TEST_HOST_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <orvex_host/control.h>
#include <platform/dlog.h>

class OrvexStorageMgr;

namespace orvex_test {

struct LogLine {
    int prio;
    std::string tag;
    std::string text;
};

// Makes the host's scratch data directories live under one temporary root that is removed when
// the process exits.
void useScratchRoot();

using Lines = std::vector<std::string>;

// Takes over text the library or the platform allocated with malloc: its copy, then frees it (""
// for none).
std::string adopt(char* text);
// A failure text the host lends (control.h): its copy ("" for none).
inline std::string lent(const char* text) { return text ? text : ""; }

std::vector<LogLine> logLines();
void clearLog();

// Messages of the captured lines at the priority, in order: without the "file: function(line) > "
// prefix and the colour wrapper, as a developer reads them in the source.
std::vector<std::string> errors();
std::vector<std::string> infos();
// True when a captured line of the priority carries exactly this message.
bool logged(int prio, const std::string& message);

// The pattern with its first "%s" replaced by the name (nullptr: left as it is).
std::string fill(const std::string& pattern, const char* name);

// The exact line the library writes for an error or an information message.
std::string errorText(const std::string& message);
std::string infoText(const std::string& message);

// Makes non-throwing allocations (operator new with std::nothrow) fail while alive, after letting
// the first `allowed` of them through.
class FailNothrowNew {
public:
    explicit FailNothrowNew(int allowed = 0);
    ~FailNothrowNew();
};

class HostTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// A HostTest with the settings store created and initialised, and the log cleared after that.
class StoreTest : public HostTest {
protected:
    void SetUp() override;
    void TearDown() override;

    OrvexStorageMgr* store = nullptr;
};

}  // namespace orvex_test

#endif
