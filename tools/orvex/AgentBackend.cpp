// One calibration from the weather agent, as the application makes it.
#include "AgentBackend.h"

#include <orvex_host/agent_control.h>
#include <orvex_host/plausible.h>
#include <platform/app_preference.h>

#include <cstdlib>

#include "HistoryText.h"
#include "IOrvexWeatherListener.h"
#include "OrvexStorageMgr.h"
#include "OrvexWeather.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

// The library can store a calibration time but not the absence of one, so the text is kept and
// put back as it was.
const char* const kCalTimeKey = "ORVEX_DATA_CALIBRATE_TIME";

class AgentListener : public IOrvexWeatherListener {
public:
    void onWeatherInfoResult(int r) override { result = r; }
    int result = -1;
};

const char* resultMeaning(int result) {
    switch (result) {
        case 1:
            return "the agent's weather is older than an hour; nothing stored";
        case 2:
            return "the agent's answer lacks time or pressure; nothing stored";
        case 3:
            return "the agent has no sea-level pressure for this location; nothing stored";
        default:
            return "unknown result";
    }
}

std::string failure(const char* what, int rc) {
    return std::string(what) + " (error " + std::to_string(rc) + ")";
}

}  // namespace

AgentFailureWatch::AgentFailureWatch() {
    orvex_host_agent_on_problem(&AgentFailureWatch::onProblem, this);
}

AgentFailureWatch::~AgentFailureWatch() { orvex_host_agent_on_problem(nullptr, nullptr); }

void AgentFailureWatch::onProblem(const char* why, void* self) {
    static_cast<AgentFailureWatch*>(self)->reason_ = why && *why ? why : "no reason given";
}

CalibrationSnapshot::CalibrationSnapshot(OrvexStorageMgr* store)
    : store_(store), slp_(store->getDataSLP()), history_(storedHistoryText(store)) {
    char* text = nullptr;
    calTimeRead_ = preference_get_string(kCalTimeKey, &text);
    calTime_ = text ? text : "";
    free(text);
}

std::string CalibrationSnapshot::restore(long long added) const {
    std::string failed;
    if (int rc = store_->saveDataSLP(slp_); rc != 0)
        failed = failure("the sea-level pressure cannot be stored", rc);
    int rc = calTimeRead_;
    if (rc == PREFERENCE_ERROR_NONE)
        rc = preference_set_string(kCalTimeKey, calTime_.c_str());
    else if (rc == PREFERENCE_ERROR_NO_KEY)
        rc = preference_remove(kCalTimeKey);
    if (rc != PREFERENCE_ERROR_NONE && rc != PREFERENCE_ERROR_NO_KEY && failed.empty())
        failed = failure("the calibration time cannot be stored", rc);
    // The library adds no entry for a time whose digits the history already holds.
    if (history_.find(std::to_string(added)) == std::string::npos) {
        const std::string now = storedHistoryText(store_);
        rc = store_->saveDataSLPHistory(withoutEntry(now, added));
        if (rc != 0 && failed.empty()) failed = failure("the history cannot be stored", rc);
    }
    return failed;
}

AgentCalibration calibrateFromAgent(OrvexStorageMgr* store, guint timeoutMs) {
    using End = AgentCalibration::End;
    const CalibrationSnapshot before(store);
    AgentListener listener;
    OrvexWeather weather(&listener);
    AgentFailureWatch watch;
    if (!weather.requestWeatherInfo())
        return {End::Failed,
                "the weather agent could not be asked (see -v for the platform's error)"};
    WaitEnd end;
    try {
        end = waitFor([&] { return listener.result >= 0 || !watch.reason().empty(); }, timeoutMs);
    } catch (const std::exception& e) {
        return {End::Failed,
                std::string("the weather agent's answer is not readable (") + e.what() + ")"};
    }
    if (end == WaitEnd::Interrupted) return {End::Interrupted, ""};
    if (listener.result < 0 && !watch.reason().empty())
        return {End::Failed, "the weather agent could not answer: " + printable(watch.reason())};
    if (end == WaitEnd::TimedOut)
        return {End::Failed,
                "the weather agent did not answer within " + secondsText(timeoutMs) + " s"};
    if (listener.result != 0) return {End::Failed, resultMeaning(listener.result)};

    // The library keeps whatever the agent said; the application must not call it a calibration.
    const double slp = store->getDataSLP();
    long long when = 0;
    try {
        when = store->getDataCalTime();
    } catch (const std::exception&) {
        when = ORVEX_HOST_TIME_MIN - 1;  // a text that is not a time is no better than a bad one
    }
    std::string why;
    if (!orvex_host_plausible_slp(slp))
        why = implausibleSlp("the weather agent's sea-level pressure", slp);
    else if (!orvex_host_plausible_time(when))
        why = "the weather agent's observation time " + std::to_string(when) +
              " is implausible (a time is " + formatTime(ORVEX_HOST_TIME_MIN, "%Y", true) + " to " +
              formatTime(ORVEX_HOST_TIME_MAX, "%Y", true) + ")";
    if (why.empty()) return {End::Stored, ""};
    const std::string failed = before.restore(when);
    return {End::Failed,
            why + (failed.empty() ? "; the earlier calibration was put back"
                                  : "; putting the earlier calibration back failed: " + failed)};
}

}  // namespace orvex_tool
