// `orvex live`: the pressure, altitude and trend of each second, as the application shows them.
#include <glib.h>
#include <orvex_host/sensor_control.h>
#include <platform/sensor.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <optional>
#include <string>

#include "AltimeterSession.h"
#include "OrvexSensor.h"
#include "OrvexStorageMgr.h"
#include "SensorListener.h"
#include "ServiceState.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runLive(const Options& options, const Args& args);

const Command kLive{
    "live", "show live pressure, altitude and trend each second",
    "[--seconds N]\n\n"
    "Prints one reading a second until N readings were shown or Ctrl-C. Altitude is computed\n"
    "against the stored sea-level pressure; units follow the settings. Each line also tells\n"
    "whether the altimeter is moving or resting and its vertical speed over the last minute;\n"
    "with the alert setting on, a storm alert is shown (and told to the log and the alert\n"
    "hook). The ascent counts towards 'orvex stats'. --json prints one object a line. Fails when "
    "no valid reading came within N seconds (or before Ctrl-C), and when the\n"
    "sensor stops sending (a trace that ended).",
    runLive};

[[maybe_unused]] const bool registered = addCommand(kLive);

// A sensor that has sent nothing for this long has stopped (a trace that ended, a device gone).
constexpr gint64 kSilentSensorUs = 3 * G_USEC_PER_SEC;

struct Units {
    int distance;
    int pressure;
};

// One reading as the user sees it.
struct LiveReading {
    double time = 0;
    bool working = false;
    float pressure = 0;          // hPa
    double altitude = 0;         // m, against the stored sea-level pressure
    std::optional<float> trend;  // hPa over three hours, once the trend sensor spoke
    std::string problem;         // why the sensor is not working, when the host says
    const AltimeterSession* altimeter = nullptr;
    bool alertRaised = false;  // by this reading
};

// The one place where a reading's display is built: a line for people, an object for --json.
void show(const Options& options, const Units& units, const LiveReading& r) {
    if (options.json) {
        JsonLine json;
        json.add("time", r.time).add("working", r.working);
        if (r.working) {
            json.add("pressure", hpaTo(units.pressure, r.pressure))
                .add("pressure_unit", pressureUnitSymbol(units.pressure))
                .add("altitude", metresTo(units.distance, r.altitude))
                .add("distance_unit", distanceUnitSymbol(units.distance));
        } else if (!r.problem.empty()) {
            json.add("problem", r.problem);
        }
        if (r.trend)
            json.add("trend_hpa", static_cast<double>(*r.trend));
        else
            json.addNull("trend_hpa");
        const orvex_altimeter::Altimeter& a = r.altimeter->altimeter();
        json.add("mode", orvex_altimeter::motionName(a.motion()))
            .add("vertical_speed_m_min", a.verticalSpeed())
            .add("tendency_hpa_3h", a.tendency())
            .add("tendency", orvex_altimeter::tendencyName(a.tendencyWord()));
        if (r.altimeter->alertEnabled()) {
            json.beginObject("alert").add("active", a.alert().active());
            if (a.alert().active())
                json.add("time", a.alert().raisedAt())
                    .add("tendency_hpa_3h", a.alert().raisedTendency());
            json.endObject();
        }
        json.print();
        return;
    }
    std::cout << formatTime(static_cast<long long>(r.time), "%H:%M") << "  ";
    if (!r.working) {
        std::cout << "the sensor is not working" << because(r.problem.c_str()) << std::endl;
        return;
    }
    std::cout << formatDouble(hpaTo(units.pressure, r.pressure), units.pressure == 0 ? 2 : 3) << " "
              << pressureUnitSymbol(units.pressure) << "  "
              << formatDouble(metresTo(units.distance, r.altitude), 1) << " "
              << distanceUnitSymbol(units.distance) << "  trend "
              << (r.trend ? formatDouble(*r.trend, 2) + " hPa/3h" : "-");
    const orvex_altimeter::Altimeter& a = r.altimeter->altimeter();
    const double climb = a.verticalSpeed();
    const bool alert = r.altimeter->alertEnabled() && a.alert().active();
    std::cout << "  " << orvex_altimeter::motionName(a.motion()) << " "
              << (std::isnan(climb) ? "-" : formatDouble(metresTo(units.distance, climb), 1)) << " "
              << distanceUnitSymbol(units.distance) << "/min" << (alert ? "  STORM ALERT" : "")
              << std::endl;
    if (r.alertRaised)
        std::cout << "storm alert: the sea-level pressure fell "
                  << formatDouble(-a.alert().raisedTendency(), 2) << " hPa in 3 hours" << std::endl;
}

int sensorEvents() {
    orvex_host_sensor_listener_info info{};
    return orvex_host_sensor_listener_info_get(SENSOR_PRESSURE, &info) == 0 ? info.events : 0;
}

// What a run of live saw, for its exit.
struct Tally {
    int shown = 0;         // readings the library passed on, working or not
    int valid = 0;         // of them, with a pressure
    std::string problem;   // why the newest one without a pressure had none
    bool arrived = false;  // the sensor sent events (the library may have dropped them all)
    bool ended = false;    // a trace said it is over
    bool silent = false;   // the sensor stopped sending
};

int outcome(const Tally& tally, WaitEnd end, int seconds) {
    const bool asked = seconds > 0 && tally.shown >= seconds;
    if (tally.valid > 0 && (asked || end == WaitEnd::Interrupted)) return 0;
    if (tally.shown > 0 && tally.valid == 0 && (asked || end != WaitEnd::Done))
        return fail("no valid reading from the pressure sensor" +
                    (seconds > 0 ? " in " + std::to_string(seconds) + " s" : std::string()) +
                    because(tally.problem.c_str()));
    if (end == WaitEnd::Interrupted) return 0;
    if (tally.silent && tally.arrived)
        return fail("the pressure sensor sends no more readings" +
                    (tally.ended                    ? std::string(" (the trace ended)")
                     : backendProblemText().empty() ? " (the trace may have ended)"
                                                    : backendProblemText()));
    if (tally.valid > 0) return 0;
    const std::string waited =
        std::to_string(tally.silent ? kSilentSensorUs / G_USEC_PER_SEC : gint64{seconds}) + " s";
    return fail(tally.arrived
                    ? "every reading in " + waited + " was out of range (see -v for the values)"
                    : "no reading from the pressure sensor in " + waited + backendProblemText());
}

// The number of readings asked for (-1: until a signal); false after a refusal, with its exit code.
bool readSeconds(const Args& args, int* seconds, int* rc) {
    gchar* text = nullptr;
    GOptionEntry entries[] = {{"seconds", 0, 0, G_OPTION_ARG_STRING, &text, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    Args rest = args;
    bool parsed = parseOptions(kLive, rest, entries, rc);
    g_autofree gchar* owned = text;
    if (!parsed) return false;
    if (!rest.empty()) {
        *rc = usageError(kLive, "unknown argument '" + rest[0] + "'");
        return false;
    }
    if (text && (!parseInt(text, seconds) || *seconds <= 0)) {
        *rc = fail("'" + printable(text) + "' is not a positive whole number of seconds");
        return false;
    }
    return true;
}

// Runs the main loop until the asked readings were shown, the sensor stopped sending or a signal
// came.
WaitEnd watch(Tally& tally, int seconds) {
    // The readings come a second apart; the second of grace keeps the last one from racing the
    // end of the N seconds.
    guint limitMs = seconds > 0 ? static_cast<guint>(std::min<guint64>(
                                      static_cast<guint64>(seconds) * 1000u + 1000u, G_MAXUINT))
                                : 0;
    int events = sensorEvents();
    gint64 lastEvent = g_get_monotonic_time();
    // Wakes the loop to notice a sensor that went quiet.
    guint ticker = g_timeout_add(
        500, [](gpointer) { return gboolean(G_SOURCE_CONTINUE); }, nullptr);
    WaitEnd end = waitFor(
        [&] {
            if (int now = sensorEvents(); now != events) {
                events = now;
                tally.arrived = true;
                lastEvent = g_get_monotonic_time();
            }
            if (seconds > 0 && tally.shown >= seconds) return true;
            // A trace that does not loop says when it is over; other sensors only fall silent.
            tally.ended = tally.arrived && orvex_host_sensor_ended();
            tally.silent = tally.ended || g_get_monotonic_time() - lastEvent > kSilentSensorUs;
            return tally.silent;
        },
        limitMs);
    g_source_remove(ticker);
    return end;
}

int runLive(const Options& options, const Args& args) {
    int seconds = -1, rc = 0;
    if (!readSeconds(args, &seconds, &rc)) return rc;
    if (!initialiseStore()) return fail(storeProblem());
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    const Units units{store->getSettingDistance(), store->getSettingPressure()};

    SensorListener listener;
    // A running service already counts the ascent and tells the alerts of this data directory.
    long servicePid = 0;
    AltimeterSession altimeter(!ServiceLock::held(&servicePid));
    Tally tally;
    // Each reading, as the library passes it on: what it means, then its display.
    listener.onReading = [&](float pressure) {
        LiveReading r;
        r.time = orvex_host_sensor_now();
        r.working = pressure >= 0.0f;
        r.trend = listener.trend;
        r.altimeter = &altimeter;
        ++tally.shown;
        if (r.working) {
            ++tally.valid;
            r.pressure = pressure;
            r.altitude = store->getAltivalue(pressure);
            store->setCurrentPressure(pressure);
            r.alertRaised = altimeter.feed(r.time, pressure).alert ==
                            orvex_altimeter::StormAlert::Change::Raised;
        } else if (const char* why = orvex_host_sensor_reading_problem()) {
            r.problem = tally.problem = why;
        }
        show(options, units, r);
    };

    OrvexSensor sensor(&listener);
    if (!sensor.startSensor())
        return fail("cannot start the pressure sensor" + backendProblemText());
    bool trend = sensor.startSensorIndicator() == 0;
    WaitEnd end = watch(tally, seconds);
    if (trend) sensor.stopSensorIndicator();
    return outcome(tally, end, seconds);
}

}  // namespace
}  // namespace orvex_tool
