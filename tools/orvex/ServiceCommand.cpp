// `orvex service`: the application running in the background. It keeps the pressure recorder
// going, takes a reading at the recorder's interval and, with auto-refresh on, keeps the
// sea-level pressure fresh: from GNSS when the location service measures a position, else from
// the weather agent, else from the weather services when keys are stored.
#include <glib-unix.h>
#include <glib.h>
#include <orvex_host/agent_control.h>
#include <orvex_host/control.h>
#include <orvex_host/location_control.h>
#include <orvex_host/plausible.h>
#include <orvex_host/sensor_control.h>
#include <platform/key_storage.h>
#include <platform/sensor.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <memory>
#include <string>

#include "AgentBackend.h"
#include "AltimeterSession.h"
#include "CalibrationPolicy.h"
#include "IOrvexSensorListener.h"
#include "OrvexAltitudeMgr.h"
#include "OrvexSensor.h"
#include "OrvexStorageMgr.h"
#include "ServiceGnss.h"
#include "ServiceState.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runService(const Options& options, const Args& args);

const std::string kServiceUsage =
    std::string(
        "[set NAME VALUE]\n\n"
        "Runs until SIGTERM or Ctrl-C, as the application does in the background: keeps the\n"
        "pressure recorder going (what 'recorded' shows), takes a reading a minute and, with\n"
        "'orvex settings set auto-refresh 1', keeps the sea-level pressure fresh: from GNSS when\n"
        "the location service measures a settled 3D fix, else from the weather agent, else from\n"
        "the weather services when their keys are stored. One service runs per data directory;\n"
        "'orvex status' shows what it does. It logs to stderr (the journal under systemd).\n\n"
        "set NAME VALUE stores a setting; a running service takes it up within a minute:\n") +
    kServiceSettingsUsage;
const Command kService{"service", "run in the background: record, keep the calibration fresh",
                       kServiceUsage.c_str(), runService};

[[maybe_unused]] const bool registered = addCommand(kService);

// The recorder's interval: one reading a minute is all a background altimeter needs.
constexpr guint kReadingSeconds = 60;
// A sensor that has not answered a reading by then has stopped.
constexpr guint kReadingWaitSeconds = 5;
constexpr guint kSensorRetryFirst = 5, kSensorRetryMax = 300;
constexpr guint kLocationRetryFirst = 60;
constexpr guint kAgentRetryFirst = 300;
constexpr double kFirstFixSeconds = 60, kSettleSeconds = 180;
// A receiver that had a position but no settled fix (on the move) is asked again this much later.
constexpr double kUnsettledRetrySeconds = 600;
constexpr guint kAgentTimeoutMs = 10000, kServicesTimeoutMs = 15000;
// A smaller change is noise of the sources, not weather.
constexpr double kMinChangeHpa = 0.3;

void say(const std::string& line) { std::cerr << "orvex service: " << line << std::endl; }

std::string format(const char* fmt, ...) G_GNUC_PRINTF(1, 2);
std::string format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    g_autofree char* text = g_strdup_vprintf(fmt, args);
    va_end(args);
    return text;
}

double now() { return orvex_host_sensor_now(); }

std::string clockTime(long long t) { return formatTime(t, "%Y-%m-%d %H:%M:%S"); }

long long storedCalibrationTime(OrvexStorageMgr* store) {
    try {
        return store->getDataCalTime();
    } catch (const std::exception&) {
        return 0;
    }
}

// Waits that double from first up to a ceiling, and start again after a success.
class Backoff {
public:
    Backoff(guint first, guint max) : first_(first), max_(max), next_(first) {}
    guint next() {
        guint delay = next_;
        next_ = std::min(next_ * 2, max_);
        return delay;
    }
    void reset() { next_ = first_; }
    void setMax(guint max) { max_ = std::max(max, first_); }

private:
    guint first_, max_, next_;
};

bool worthKeeping(double slp, double was) {
    return orvex_host_plausible_slp(slp) && std::fabs(slp - was) >= kMinChangeHpa;
}

bool keysStored() {
    for (const char* alias : {"twc_api_key", "orvex_accueweather_api_key"}) {
        char* key = nullptr;
        bool found = key_storage_get(alias, &key) == KEY_STORAGE_ERROR_NONE && key && *key;
        free(key);
        if (found) return true;
    }
    return false;
}

class Service : public IOrvexSensorListener, public OrvexAltitudeMgrEvent {
public:
    void start();
    void stop();
    bool stopping() const { return stopping_; }
    bool calibrationDue() const { return calibrationDue_ || stopping_; }
    // Runs the calibration that is due, waiting on the main loop as long as it takes.
    void calibrate();

    bool onBarometricPressure(float pressure) override;
    void OnWeatherDataCompleted(std::tr1::shared_ptr<WeatherData> data) override {
        weatherData_ = data;
        weatherAnswered_ = true;
    }
    void OnWeatherDataFailed() override { weatherAnswered_ = true; }

private:
    static gboolean onSignal(gpointer self);
    static gboolean onTick(gpointer self);
    static gboolean onReadingTimeout(gpointer self);
    static gboolean onSensorRetry(gpointer self);

    void reloadSettings();
    bool ensureRecorder(std::string* why);
    void takeReading();
    void readingFailed(const std::string& why);
    void readingArrived(double time, double pressure);
    void onReading(double time, double pressure);
    void planCalibration();
    double nextCalibration();
    void publish();
    void clearSource(guint* id);

    bool fromGnss();
    bool fromAgent();
    bool fromServices();
    bool keep(const char* source, double slp, double was, const std::string& detail,
              double altitude = NAN, double pressure = NAN);
    bool storeCalibration(double slp, long long when);
    bool waitUntil(const std::function<bool()>& done, guint timeoutMs);

    OrvexStorageMgr* store_ = nullptr;
    std::unique_ptr<OrvexSensor> sensor_;
    std::unique_ptr<AltimeterSession> altimeter_;
    ServiceSettings settings_;
    bool autoRefresh_ = false;
    ServiceStatus status_;
    std::string sensorProblem_, locationProblem_;
    guint signals_[2] = {0, 0};
    guint tick_ = 0, readingTimer_ = 0, sensorRetry_ = 0;
    int recorderRetention_ = 0;  // hours; 0 while this process does not keep the recorder going
    bool sensorStarted_ = false, wantReading_ = false, sensorOut_ = false;
    double outageSince_ = 0;
    Backoff sensorBackoff_{kSensorRetryFirst, kSensorRetryMax};

    bool stopping_ = false, calibrationDue_ = false, calibrating_ = false;
    CalibrationPolicy policy_;
    bool gnssActive_ = false, locationOut_ = false;
    double gnssRetryAt_ = 0, agentRetryAt_ = 0;
    Backoff gnssBackoff_{kLocationRetryFirst, kLocationRetryFirst};
    Backoff agentBackoff_{kAgentRetryFirst, kAgentRetryFirst};
    double gnssAltitude_ = NAN;  // of the last fix of the GNSS window going on
    bool havePosition_ = false;
    double latitude_ = 0, longitude_ = 0;
    bool weatherAnswered_ = false;
    std::tr1::shared_ptr<WeatherData> weatherData_;
};

void Service::start() {
    store_ = OrvexStorageMgr::getInstance();
    signals_[0] = g_unix_signal_add(SIGTERM, onSignal, this);
    signals_[1] = g_unix_signal_add(SIGINT, onSignal, this);
    status_.pid = static_cast<long>(getpid());
    status_.started = static_cast<long long>(time(nullptr));
    status_.sensorBackend = backendName(orvex_host_sensor_backend());
    status_.locationBackend = backendName(orvex_host_location_backend());
    status_.agentBackend = backendName(orvex_host_agent_backend());
    settings_ = loadServiceSettings();
    autoRefresh_ = store_->getAutoRefresh() != 0;
    gnssBackoff_.setMax(static_cast<guint>(settings_.gnssIntervalMinutes) * 60);
    agentBackoff_.setMax(static_cast<guint>(settings_.agentIntervalMinutes) * 60);
    sensor_ = std::make_unique<OrvexSensor>(this);
    altimeter_ = std::make_unique<AltimeterSession>();
    say(format(
        "running (pid %ld) on the %s sensor, %s location and %s weather agent; "
        "keeping %d h of recorded pressure; auto-refresh %s",
        status_.pid, status_.sensorBackend.c_str(), status_.locationBackend.c_str(),
        status_.agentBackend.c_str(), settings_.retentionHours, autoRefresh_ ? "on" : "off"));
    publish();
    std::string why;
    if (!ensureRecorder(&why)) {
        readingFailed(why);
    } else {
        takeReading();
    }
    tick_ = g_timeout_add_seconds(kReadingSeconds, onTick, this);
}

void Service::clearSource(guint* id) {
    if (*id) g_source_remove(*id);
    *id = 0;
}

void Service::stop() {
    for (guint& id : signals_) clearSource(&id);
    clearSource(&tick_);
    clearSource(&readingTimer_);
    clearSource(&sensorRetry_);
    OrvexAltitudeMgr::deleteInstance();
    sensor_.reset();
    altimeter_.reset();
}

gboolean Service::onSignal(gpointer self) {
    static_cast<Service*>(self)->stopping_ = true;
    return G_SOURCE_CONTINUE;
}

gboolean Service::onTick(gpointer self) {
    auto* s = static_cast<Service*>(self);
    // During an outage the back-off decides when to look again.
    if (s->sensorOut_) return G_SOURCE_CONTINUE;
    s->reloadSettings();
    s->takeReading();
    return G_SOURCE_CONTINUE;
}

void Service::reloadSettings() {
    ServiceSettings settings = loadServiceSettings();
    bool autoRefresh = store_->getAutoRefresh() != 0;
    if (autoRefresh != autoRefresh_)
        say(std::string("auto-refresh ") + (autoRefresh ? "on" : "off"));
    autoRefresh_ = autoRefresh;
    gnssBackoff_.setMax(static_cast<guint>(settings.gnssIntervalMinutes) * 60);
    agentBackoff_.setMax(static_cast<guint>(settings.agentIntervalMinutes) * 60);
    bool retention = settings.retentionHours != settings_.retentionHours;
    settings_ = settings;
    std::string why;
    if (retention && ensureRecorder(&why))
        say(format("keeping %d h of recorded pressure", settings_.retentionHours));
}

// The recorder keeps its first options, so a new retention means starting it again.
bool Service::ensureRecorder(std::string* why) {
    if (recorderRetention_ == settings_.retentionHours) return true;
    int started = 0, retention = 0;
    orvex_host_sensor_recorder_state(SENSOR_PRESSURE, &started, &retention);
    if (started && retention != settings_.retentionHours) sensor_recorder_stop(SENSOR_PRESSURE);
    sensor_recorder_option_h option = nullptr;
    int rc = sensor_recorder_create_option(&option);
    if (rc == SENSOR_ERROR_NONE) {
        sensor_recorder_option_set_int(option, SENSOR_RECORDER_OPTION_RETENTION_PERIOD,
                                       settings_.retentionHours);
        sensor_recorder_option_set_int(option, SENSOR_RECORDER_OPTION_INTERVAL,
                                       kReadingSeconds / 60);
        rc = sensor_recorder_start(SENSOR_PRESSURE, option);
        sensor_recorder_destroy_option(option);
    }
    if (rc != SENSOR_ERROR_NONE && rc != SENSOR_ERROR_ALREADY_STARTED) {
        const char* problem = orvex_host_sensor_backend_problem();
        *why = problem ? problem : "the recorder does not start (error " + std::to_string(rc) + ")";
        recorderRetention_ = 0;
        return false;
    }
    recorderRetention_ = settings_.retentionHours;
    return true;
}

void Service::takeReading() {
    if (wantReading_) return;
    if (!sensorStarted_) {
        if (!sensor_->startSensor()) {
            const char* problem = orvex_host_sensor_backend_problem();
            readingFailed(problem ? problem : "the sensor does not start");
            return;
        }
        sensorStarted_ = true;
    } else {
        sensor_->resumeSensor();
    }
    wantReading_ = true;
    readingTimer_ = g_timeout_add_seconds(kReadingWaitSeconds, onReadingTimeout, this);
}

gboolean Service::onReadingTimeout(gpointer self) {
    auto* s = static_cast<Service*>(self);
    s->readingTimer_ = 0;
    s->readingFailed(orvex_host_sensor_ended() ? "the trace ended" : "no reading in 5 s");
    return G_SOURCE_REMOVE;
}

bool Service::onBarometricPressure(float pressure) {
    if (pressure < 0) {
        if (wantReading_) readingFailed("it reports itself not working");
        return true;
    }
    if (gnssActive_) policy_.addReading(pressure, store_->getAltivalue(pressure));
    if (wantReading_) {
        wantReading_ = false;
        clearSource(&readingTimer_);
        if (!gnssActive_) sensor_->pauseSensor();
        readingArrived(now(), pressure);
    }
    return true;
}

void Service::readingFailed(const std::string& why) {
    wantReading_ = false;
    clearSource(&readingTimer_);
    // Made again on the next try, which asks the back end afresh.
    sensor_->stopSensor();
    sensorStarted_ = false;
    if (!sensorOut_) {
        sensorOut_ = true;
        outageSince_ = now();
        sensorProblem_ = "pressure sensor: " + why;
        say("the pressure sensor stopped (" + why + "); trying again with back-off");
        publish();
    }
    clearSource(&sensorRetry_);
    sensorRetry_ = g_timeout_add_seconds(sensorBackoff_.next(), onSensorRetry, this);
}

gboolean Service::onSensorRetry(gpointer self) {
    auto* s = static_cast<Service*>(self);
    s->sensorRetry_ = 0;
    std::string why;
    if (!s->ensureRecorder(&why))
        s->readingFailed(why);
    else
        s->takeReading();
    return G_SOURCE_REMOVE;
}

void Service::readingArrived(double time, double pressure) {
    if (sensorOut_) {
        sensorOut_ = false;
        sensorBackoff_.reset();
        sensorProblem_.clear();
        say(format("the pressure sensor is back after %.0f s", time - outageSince_));
    }
    onReading(time, pressure);
    planCalibration();
    publish();
}

// Every valid reading of the minute passes here once, in order: this is where whatever follows
// the readings is fed. The altimeter keeps its state (motion, tendency, storm alert) in the store
// for `status` and `stats`, and tells an alert itself.
void Service::onReading(double time, double pressure) {
    status_.readingTime = time;
    status_.pressureHpa = pressure;
    altimeter_->feed(time, pressure, gnssActive_ ? gnssAltitude_ : NAN);
}

double Service::nextCalibration() {
    if (!autoRefresh_) return NAN;
    const double t = now();
    const double last = static_cast<double>(storedCalibrationTime(store_));
    // Never calibrated: due now. A time in the past is due now too.
    auto due = [&](int intervalMinutes, double retryAt) {
        double at = last > 0 ? last + intervalMinutes * 60.0 : t;
        return std::max({at, retryAt, t});
    };
    double agent = due(settings_.agentIntervalMinutes, agentRetryAt_);
    if (!GnssSource::measured()) return agent;
    return std::min(agent, due(settings_.gnssIntervalMinutes, gnssRetryAt_));
}

void Service::planCalibration() {
    status_.nextCalibration = nextCalibration();
    if (!calibrating_ && !sensorOut_ && now() >= status_.nextCalibration) calibrationDue_ = true;
}

void Service::publish() {
    status_.problem = sensorProblem_;
    if (!locationProblem_.empty())
        status_.problem += (status_.problem.empty() ? "" : "; ") + locationProblem_;
    writeServiceStatus(status_);
}

bool Service::waitUntil(const std::function<bool()>& done, guint timeoutMs) {
    WaitEnd end = waitFor([&] { return stopping_ || done(); }, timeoutMs);
    if (end == WaitEnd::Interrupted) stopping_ = true;
    return !stopping_ && end == WaitEnd::Done;
}

void Service::calibrate() {
    calibrationDue_ = false;
    if (stopping_ || !autoRefresh_) return;
    calibrating_ = true;
    const double t = now();
    const double last = static_cast<double>(storedCalibrationTime(store_));
    auto due = [&](int intervalMinutes, double retryAt) {
        return t >= retryAt && (last <= 0 || t >= last + intervalMinutes * 60.0);
    };
    bool done = false;
    if (GnssSource::measured() && due(settings_.gnssIntervalMinutes, gnssRetryAt_))
        done = fromGnss();
    if (!done && !stopping_ && due(settings_.agentIntervalMinutes, agentRetryAt_)) {
        done = fromAgent();
        if (!done && !stopping_ && keysStored()) done = fromServices();
        // A value too close to keep leaves the stored time as it was: the interval starts now.
        if (done) {
            agentBackoff_.reset();
            agentRetryAt_ = now() + settings_.agentIntervalMinutes * 60.0;
        } else {
            agentRetryAt_ = now() + agentBackoff_.next();
        }
    }
    calibrating_ = false;
    status_.nextCalibration = nextCalibration();
    publish();
}

// Keeps a source's sea-level pressure, or says why not. True when the stored one is fresh now
// (kept, or confirmed by a value too close to bother).
bool Service::keep(const char* source, double slp, double was, const std::string& detail,
                   double altitude, double pressure) {
    if (!orvex_host_plausible_slp(slp)) {
        say(format("%s calibration refused: %.2f hPa is implausible for a sea-level pressure (%s)",
                   source, slp, detail.c_str()));
        return false;
    }
    if (std::fabs(slp - was) < kMinChangeHpa) {
        say(
            format("%s calibration skipped: %.2f hPa is within %.1f hPa of the stored %.2f hPa "
                   "(%s)",
                   source, slp, kMinChangeHpa, was, detail.c_str()));
        return true;
    }
    noteCalibrationSource(source);
    altimeter_->calibrated(slp);
    status_.calibrationTime = storedCalibrationTime(store_);
    status_.calibrationDetail = detail;
    status_.calibrationAltitude = altitude;
    status_.calibrationPressure = pressure;
    // Published before it is said: whoever reads the line finds the calibration in the status.
    status_.nextCalibration = nextCalibration();
    publish();
    say(format("calibrated from %s: %.2f hPa (was %.2f hPa) from %s", source, slp, was,
               detail.c_str()));
    return true;
}

bool Service::fromGnss() {
    GnssSource gnss;
    std::string why;
    bool fixed = false;
    const gint64 began = g_get_monotonic_time();
    if (gnss.start(&why)) {
        policy_.reset();
        gnssActive_ = true;
        if (sensorStarted_) sensor_->resumeSensor();
        // A receiver fixes once a second; so does the service look.
        for (;;) {
            waitUntil([] { return false; }, 1000);
            if (stopping_) break;
            GnssFix fix;
            if (gnss.read(&fix, &why)) {
                fixed = true;
                gnssAltitude_ = CalibrationPolicy::mslHeight(fix);
                latitude_ = fix.latitude;
                longitude_ = fix.longitude;
                havePosition_ = true;
                if (policy_.addFix(fix) == CalibrationPolicy::Verdict::Settled) break;
            } else if (fixed) {
                policy_.reset();
            }
            double elapsed = static_cast<double>(g_get_monotonic_time() - began) / 1e6;
            if ((!fixed && elapsed >= kFirstFixSeconds) || elapsed >= kSettleSeconds) break;
        }
        gnssActive_ = false;
        if (sensorStarted_ && !wantReading_) sensor_->pauseSensor();
        gnss.stop();
    }
    if (stopping_) return false;
    if (!fixed) {
        if (!locationOut_) {
            locationOut_ = true;
            locationProblem_ = "location: " + why;
            say("no position from the location service (" + why +
                "); calibrating from the weather agent until it has one");
        }
        gnssRetryAt_ = now() + gnssBackoff_.next();
        return false;
    }
    if (locationOut_) {
        locationOut_ = false;
        locationProblem_.clear();
        say("the location service gives positions again");
    }
    gnssBackoff_.reset();
    const double interval = settings_.gnssIntervalMinutes * 60.0;
    if (policy_.verdict() != CalibrationPolicy::Verdict::Settled) {
        const double retry = std::min(interval, kUnsettledRetrySeconds);
        gnssRetryAt_ = now() + retry;
        say(format("no GNSS calibration: %s within %.0f s; next try in %.0f min",
                   CalibrationPolicy::describe(policy_.verdict()), kSettleSeconds, retry / 60));
        return false;
    }
    const CalibrationPolicy::Window& w = policy_.window();
    const double slp = store_->getManualSLP(w.altitudeM, w.pressureHpa);
    const double was = store_->getDataSLP();
    const std::string detail =
        format("%.1f m above sea level at %.2f hPa, the mean of %zu fixes over %.0f s", w.altitudeM,
               w.pressureHpa, w.fixes, w.spanSeconds);
    gnssRetryAt_ = now() + interval;
    const bool stored = worthKeeping(slp, was);
    if (stored && !storeCalibration(slp, static_cast<long long>(now()))) return false;
    return keep("gnss", slp, was, detail, w.altitudeM, w.pressureHpa);
}

// A calibration as the application stores one: the value, its time, a history entry; all of it or
// none.
bool Service::storeCalibration(double slp, long long when) {
    const CalibrationSnapshot before(store_);
    if (int rc = store_->saveDataSLP(slp); rc != 0) {
        say("the calibration was not stored: " + storeProblem(rc));
        return false;
    }
    store_->saveDataCalTime(when);
    store_->addDataSLPHistory(when, slp);
    if (!orvex_host_store_problem()) return true;
    const std::string why = storeProblem();
    const std::string failed = before.restore(when);
    say("the calibration was not stored whole (" + why + ")" +
        (failed.empty() ? "; the earlier one stays"
                        : "; putting the earlier one back failed: " + failed));
    return false;
}

bool Service::fromAgent() {
    const CalibrationSnapshot before(store_);
    const double was = store_->getDataSLP();
    const AgentCalibration result = calibrateFromAgent(store_, kAgentTimeoutMs);
    if (result.end == AgentCalibration::End::Interrupted) stopping_ = true;
    if (result.end != AgentCalibration::End::Stored) {
        if (!stopping_) say("no calibration from the weather agent: " + result.message);
        return false;
    }
    // The library stored the answer as it came; the service keeps only a change worth one.
    const double slp = store_->getDataSLP();
    const long long observed = storedCalibrationTime(store_);
    const std::string detail = "the weather agent's observation of " + clockTime(observed);
    if (!worthKeeping(slp, was)) {
        const std::string failed = before.restore(observed);
        if (!failed.empty()) say("putting the earlier calibration back failed: " + failed);
    }
    return keep("agent", slp, was, detail);
}

bool Service::fromServices() {
    if (!havePosition_) {
        GnssSource location;
        std::string why;
        GnssFix fix;
        if (location.start(&why)) waitUntil([&] { return location.read(&fix, &why); }, 10000);
        if (stopping_) return false;
        if (!location.read(&fix, &why)) {
            say("no calibration from the weather services: no position (" + why + ")");
            return false;
        }
        latitude_ = fix.latitude;
        longitude_ = fix.longitude;
        havePosition_ = true;
    }
    OrvexAltitudeMgr* mgr = OrvexAltitudeMgr::getInstance();
    if (!mgr) return false;
    weatherAnswered_ = false;
    weatherData_.reset();
    mgr->SetEventListener(this);
    mgr->Request(latitude_, longitude_, static_cast<double>(kServicesTimeoutMs));
    // The manager ends a timed-out request silently; this wakes the service a little later.
    waitUntil([&] { return weatherAnswered_; }, kServicesTimeoutMs + 200);
    OrvexAltitudeMgr::deleteInstance();
    if (stopping_) return false;
    if (!weatherData_ || weatherData_->pressure <= 0) {
        say("no calibration from the weather services: no usable answer");
        return false;
    }
    const WeatherData& d = *weatherData_;
    const double was = store_->getDataSLP();
    const long long observed = static_cast<long long>(d.updateTime / 1000.0);
    const std::string detail = format("%s at %.4f, %.4f, observed %s",
                                      d.provider == 1 ? "The Weather Company" : "AccuWeather",
                                      d.latitude, d.longitude, clockTime(observed).c_str());
    if (worthKeeping(d.pressure, was) && !storeCalibration(d.pressure, observed)) return false;
    return keep("service", d.pressure, was, detail);
}

int runService(const Options& options, const Args& args) {
    if (!args.empty() && args[0] == "set") {
        int value = 0;
        if (args.size() != 3) return usageError(kService, "expected: set NAME VALUE");
        if (!parseInt(args[2], &value)) return fail("'" + args[2] + "' is not a whole number");
        if (!initialiseStore()) return fail("cannot create the settings store");
        std::string error = saveServiceSetting(args[1], value);
        if (!error.empty()) return fail(error);
        const ServiceSettings stored = loadServiceSettings();
        if (options.json) {
            JsonLine()
                .add("retention_hours", stored.retentionHours)
                .add("gnss_interval_minutes", stored.gnssIntervalMinutes)
                .add("agent_interval_minutes", stored.agentIntervalMinutes)
                .print();
        } else {
            printRows({{"retention-hours", std::to_string(stored.retentionHours)},
                       {"gnss-interval", std::to_string(stored.gnssIntervalMinutes) + " min"},
                       {"agent-interval", std::to_string(stored.agentIntervalMinutes) + " min"}});
        }
        return 0;
    }
    Args rest = args;
    GOptionEntry none[] = {{nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    int rc = 0;
    if (!parseOptions(kService, rest, none, &rc)) return rc;
    if (!rest.empty()) return usageError(kService, "unexpected argument '" + rest[0] + "'");
    if (!initialiseStore()) return fail("cannot create the settings store");

    ServiceLock lock;
    long holder = 0;
    std::string error;
    if (!lock.acquire(&holder, &error)) {
        if (!error.empty()) return fail(error);
        return fail("the service already runs on this data directory (pid " +
                    (holder > 0 ? std::to_string(holder) : std::string("unknown")) + ")");
    }
    Service service;
    service.start();
    while (!service.stopping()) {
        waitFor([&] { return service.calibrationDue(); }, 0);
        service.calibrate();
    }
    service.stop();
    say("stopped");
    return 0;
}

}  // namespace
}  // namespace orvex_tool
