// Live pressure, the trend sensor, the pressure recorder and the choice of the sensor back end.
#include <glib.h>
#include <orvex_host/control.h>
#include <orvex_host/sensor_control.h>
#include <platform/sensor.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <iostream>
#include <optional>
#include <vector>

#include "OrvexSensor.h"
#include "OrvexStorageMgr.h"
#include "RecordedExport.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runLive(const Options& options, const Args& args);
int runRecorded(const Options& options, const Args& args);
int runBackend(const Options& options, const Args& args);

const Command kLive{
    "live", "show live pressure, altitude and trend each second",
    "[--seconds N]\n\n"
    "Prints one reading a second until N readings were shown or Ctrl-C. Altitude is computed\n"
    "against the stored sea-level pressure; units follow the settings. --json prints one object\n"
    "a line. Fails when no valid reading came within N seconds, and when the sensor stops\n"
    "sending (a trace that ended).",
    runLive};
const Command kRecorded{
    "recorded", "chart the recorded pressure of the last six hours",
    "[--csv | --svg FILE]\n\n"
    "Starts the pressure recorder if it is not running, reads the last six hours in two-minute\n"
    "records and draws them as one line of blocks between their minimum and maximum. With the\n"
    "sim back end the recorder fills in the hours it missed, so a fresh machine has a chart.\n"
    "--json prints the records. --csv writes them as time (UTC), hPa and altitude rows to stdout;\n"
    "--svg writes a chart with the calibrations marked to FILE.",
    runRecorded};
const Command kChart{"chart", "the same as 'recorded'", "\n\nSee 'orvex recorded --help'.",
                     runRecorded};
const Command kBackend{
    "backend", "show or choose where the pressure sensor reads from",
    "[sim [--seed N] | iio [--root DIR] | trace FILE [--no-loop] | default]\n\n"
    "  sim     a simulated walker under the simulated weather (the default)\n"
    "  iio     a Linux IIO barometer (DIR defaults to /sys/bus/iio/devices)\n"
    "  trace   replay of a CSV file of \"seconds,hPa\" rows, looping unless --no-loop\n"
    "The environment variable ORVEX_HOST_SENSOR_BACKEND wins over the stored choice.",
    runBackend};

[[maybe_unused]] const bool registered =
    addCommand(kLive) && addCommand(kRecorded) && addCommand(kChart) && addCommand(kBackend);

class ToolListener : public IOrvexSensorListener {
public:
    bool onBarometricPressure(float pressure) override {
        pressures.push_back(pressure);
        if (onReading) onReading(pressure);
        return true;
    }
    bool onRecordedPressure(long long time, double pressure) override {
        records.emplace_back(time, pressure);
        return true;
    }
    bool onRecorderCBComplete() override {
        complete = true;
        return true;
    }
    bool onBarometricTrendIndicator(float value) override {
        trend = value;
        return true;
    }

    std::vector<float> pressures;
    std::vector<std::pair<long long, double>> records;
    bool complete = false;
    std::optional<float> trend;
    std::function<void(float)> onReading;
};

std::string problemText() {
    const char* problem = orvex_host_sensor_backend_problem();
    return problem ? std::string(" (") + problem + ")" : "";
}

std::string clockTime(long long t) {
    time_t tt = static_cast<time_t>(t);
    struct tm tmv;
    localtime_r(&tt, &tmv);
    char buf[16];
    strftime(buf, sizeof buf, "%H:%M", &tmv);
    return buf;
}

// A sensor that has sent nothing for this long has stopped (a trace that ended, a device gone).
constexpr gint64 kSilentSensorUs = 3 * G_USEC_PER_SEC;

int sensorEvents() {
    orvex_host_sensor_listener_info info{};
    return orvex_host_sensor_listener_info_get(SENSOR_PRESSURE, &info) == 0 ? info.events : 0;
}

int runLive(const Options& options, const Args& args) {
    int seconds = -1;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--seconds" && i + 1 < args.size()) {
            if (!parseInt(args[++i], &seconds) || seconds <= 0)
                return fail("'" + args[i] + "' is not a positive whole number of seconds");
        } else {
            return usageError(kLive, "unknown argument '" + args[i] + "'");
        }
    }
    if (!initialiseStore()) return fail(storeProblem());
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    const int dUnit = store->getSettingDistance();
    const int pUnit = store->getSettingPressure();

    ToolListener listener;
    int shown = 0;
    listener.onReading = [&](float pressure) {
        ++shown;
        double now = orvex_host_sensor_now();
        bool working = pressure >= 0.0f;
        double altitude = working ? store->getAltivalue(pressure) : 0.0;
        if (working) store->setCurrentPressure(pressure);
        if (options.json) {
            JsonLine json;
            json.add("time", now).add("working", working);
            if (working) {
                json.add("pressure", hpaTo(pUnit, pressure))
                    .add("pressure_unit", pressureUnitSymbol(pUnit))
                    .add("altitude", metresTo(dUnit, altitude))
                    .add("distance_unit", distanceUnitSymbol(dUnit));
            }
            if (listener.trend)
                json.add("trend_hpa", static_cast<double>(*listener.trend));
            else
                json.addNull("trend_hpa");
            json.print();
        } else if (!working) {
            std::cout << clockTime(static_cast<long long>(now)) << "  the sensor is not working"
                      << std::endl;
        } else {
            std::cout << clockTime(static_cast<long long>(now)) << "  "
                      << formatDouble(hpaTo(pUnit, pressure), pUnit == 0 ? 2 : 3) << " "
                      << pressureUnitSymbol(pUnit) << "  "
                      << formatDouble(metresTo(dUnit, altitude), 1) << " "
                      << distanceUnitSymbol(dUnit) << "  trend "
                      << (listener.trend ? formatDouble(*listener.trend, 2) + " hPa/3h" : "-")
                      << std::endl;
        }
    };

    OrvexSensor sensor(&listener);
    if (!sensor.startSensor()) return fail("cannot start the pressure sensor" + problemText());
    bool trend = sensor.startSensorIndicator() == 0;
    // The readings come a second apart; the second of grace keeps the last one from racing the
    // end of the N seconds.
    guint limitMs = seconds > 0 ? static_cast<guint>(std::min<guint64>(
                                      static_cast<guint64>(seconds) * 1000u + 1000u, G_MAXUINT))
                                : 0;
    int events = sensorEvents();
    gint64 lastEvent = g_get_monotonic_time();
    bool silent = false, arrived = false, ended = false;
    // Wakes the loop to notice a sensor that went quiet.
    guint ticker = g_timeout_add(
        500, [](gpointer) { return gboolean(G_SOURCE_CONTINUE); }, nullptr);
    WaitEnd end = waitFor(
        [&] {
            if (int now = sensorEvents(); now != events) {
                events = now;
                arrived = true;
                lastEvent = g_get_monotonic_time();
            }
            // A trace that does not loop says when it is over; other sensors only fall silent.
            ended = arrived && orvex_host_sensor_ended();
            silent = ended || g_get_monotonic_time() - lastEvent > kSilentSensorUs;
            return silent || (seconds > 0 && shown >= seconds);
        },
        limitMs);
    g_source_remove(ticker);
    if (trend) sensor.stopSensorIndicator();
    if (end == WaitEnd::Interrupted) return 0;
    if (silent && arrived)
        return fail("the pressure sensor sends no more readings" +
                    (ended                   ? std::string(" (the trace ended)")
                     : problemText().empty() ? " (the trace may have ended)"
                                             : problemText()));
    if (shown > 0 && !silent) return 0;
    const std::string waited =
        std::to_string(silent ? kSilentSensorUs / G_USEC_PER_SEC : gint64{seconds}) + " s";
    return fail(arrived ? "every reading in " + waited + " was out of range (see -v for the values)"
                        : "no reading from the pressure sensor in " + waited + problemText());
}

const char* const kBlocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr size_t kChartWidth = 72;

std::string chartLine(const std::vector<double>& values, double lo, double hi) {
    std::string line;
    size_t n = values.size();
    size_t width = std::min(n, kChartWidth);
    for (size_t c = 0; c < width; ++c) {
        // Each column is the mean of its share of the records.
        size_t from = c * n / width, to = (c + 1) * n / width;
        double sum = 0;
        for (size_t i = from; i < to; ++i) sum += values[i];
        double v = sum / static_cast<double>(to - from);
        int level = hi > lo ? static_cast<int>((v - lo) / (hi - lo) * 7.0 + 0.5) : 3;
        line += kBlocks[std::clamp(level, 0, 7)];
    }
    return line;
}

int runRecorded(const Options& options, const Args& args) {
    if (!args.empty() && !wantsRecordedExport(args))
        return usageError(kRecorded, "expected nothing, --csv or --svg FILE");
    if (!initialiseStore()) return fail(storeProblem());
    const int pUnit = OrvexStorageMgr::getInstance()->getSettingPressure();
    ToolListener listener;
    OrvexSensor sensor(&listener);
    if (!sensor.startSensorRecorder())
        return fail("cannot start the pressure recorder" + problemText());
    long now = static_cast<long>(orvex_host_sensor_now());
    if (!sensor.getSensorRecorder(now)) return fail("the recorder refused the read");
    orvex_host_sensor_read_info read{};
    orvex_host_sensor_recorder_last_read(&read);
    if (read.records > 0 && waitFor([&] { return listener.complete; }, 0) == WaitEnd::Interrupted)
        return interruptedExit();
    if (listener.records.empty()) return fail("no pressure was recorded in the last six hours");
    if (!args.empty()) return runRecordedExport(options, args, listener.records);

    std::vector<double> values;
    for (const auto& r : listener.records) values.push_back(hpaTo(pUnit, r.second));
    auto [lo, hi] = std::minmax_element(values.begin(), values.end());
    const int decimals = pUnit == 0 ? 1 : 2;
    const char* unit = pressureUnitSymbol(pUnit);
    if (options.json) {
        JsonLine json;
        json.add("from", static_cast<long long>(now) - 21600)
            .add("to", static_cast<long long>(now))
            .add("pressure_unit", unit)
            .add("min", *lo)
            .add("max", *hi)
            .beginArray("records");
        for (size_t i = 0; i < values.size(); ++i)
            json.beginObject()
                .add("time", listener.records[i].first)
                .add("pressure", values[i])
                .endObject();
        json.endArray().print();
        return 0;
    }
    std::cout << "pressure from " << clockTime(listener.records.front().first) << " to "
              << clockTime(listener.records.back().first) << " (" << values.size() << " records)\n"
              << formatDouble(*lo, decimals) << " " << chartLine(values, *lo, *hi) << " "
              << formatDouble(*hi, decimals) << " " << unit << "\n"
              << "min " << formatDouble(*lo, decimals) << "  max " << formatDouble(*hi, decimals)
              << "  now " << formatDouble(values.back(), decimals) << " " << unit << "\n";
    return 0;
}

int runBackend(const Options& options, const Args& args) {
    if (!args.empty()) {
        const std::string& name = args[0];
        int rc = 0;
        if (name == "default" && args.size() == 1) {
            rc = orvex_host_sensor_set_backend(nullptr);
        } else if (name == "sim" &&
                   (args.size() == 1 || (args.size() == 3 && args[1] == "--seed"))) {
            int seed = 1;
            if (args.size() == 3 && (!parseInt(args[2], &seed) || seed < 0))
                return fail("'" + args[2] + "' is not a seed (a whole number from 0)");
            rc = orvex_host_sensor_set_backend("sim");
            if (rc == 0) rc = orvex_host_sensor_set_seed(static_cast<unsigned>(seed));
        } else if (name == "iio" &&
                   (args.size() == 1 || (args.size() == 3 && args[1] == "--root"))) {
            rc = orvex_host_sensor_set_backend("iio");
            if (rc == 0)
                rc = orvex_host_sensor_set_iio_root(args.size() == 3 ? args[2].c_str() : nullptr);
        } else if (name == "trace" &&
                   (args.size() == 2 || (args.size() == 3 && args[2] == "--no-loop"))) {
            // A file that cannot be replayed is refused, and the previous choice stays.
            if (const char* problem = orvex_host_sensor_trace_problem(args[1].c_str()))
                return fail(problem);
            rc = orvex_host_sensor_set_backend("trace");
            if (rc == 0) rc = orvex_host_sensor_set_trace(args[1].c_str(), args.size() == 2);
        } else {
            return usageError(kBackend, "expected sim, iio, trace FILE or default");
        }
        if (rc != 0) {
            const char* dirProblem = orvex_host_data_dir_problem();
            return fail(dirProblem ? dirProblem
                                   : "cannot store the choice (error " + std::to_string(rc) + ")");
        }
    }
    const char* problem = orvex_host_sensor_backend_problem();
    if (options.json) {
        JsonLine().add("backend", orvex_host_sensor_backend()).add("problem", problem).print();
    } else {
        printRows(
            {{"backend", orvex_host_sensor_backend()}, {"state", problem ? problem : "ready"}});
    }
    return problem ? 1 : 0;
}

}  // namespace
}  // namespace orvex_tool
