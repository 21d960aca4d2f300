// `orvex recorded` (and `chart`): the recorded pressure of the last six hours, as a chart in the
// terminal, as JSON, or exported as CSV or SVG.
#include <glib.h>
#include <orvex_host/plausible.h>
#include <orvex_host/sensor_control.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "OrvexSensor.h"
#include "OrvexStorageMgr.h"
#include "RecordedExport.h"
#include "SensorListener.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runRecorded(const Options& options, const Args& args);

const Command kRecorded{
    "recorded", "chart the recorded pressure of the last six hours",
    "[--csv [FILE] | --svg FILE]\n\n"
    "Starts the pressure recorder if it is not running, reads the last six hours in two-minute\n"
    "records and draws them as one line of blocks between their minimum and maximum. With the\n"
    "sim back end the recorder fills in the hours it missed, so a fresh machine has a chart.\n"
    "--json prints the records. --csv writes them as time (UTC), hPa and altitude rows to FILE\n"
    "or stdout; --svg writes a chart with the calibrations marked to FILE. A file is replaced\n"
    "whole or not at all, and never written through a symbolic link. Records that are not a\n"
    "plausible pressure are left out, and a note on stderr says how many.",
    runRecorded};
const Command kChart{"chart", "the same as 'recorded'", "\n\nSee 'orvex recorded --help'.",
                     runRecorded};

[[maybe_unused]] const bool registered = addCommand(kRecorded) && addCommand(kChart);

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

int printRecords(const Options& options, const Records& records, long now) {
    const int pUnit = OrvexStorageMgr::getInstance()->getSettingPressure();
    std::vector<double> values;
    for (const auto& r : records) values.push_back(hpaTo(pUnit, r.second));
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
            json.beginObject().add("time", records[i].first).add("pressure", values[i]).endObject();
        json.endArray().print();
        return 0;
    }
    std::cout << "pressure from " << formatTime(records.front().first, "%H:%M") << " to "
              << formatTime(records.back().first, "%H:%M") << " (" << values.size() << " records)\n"
              << formatDouble(*lo, decimals) << " " << chartLine(values, *lo, *hi) << " "
              << formatDouble(*hi, decimals) << " " << unit << "\n"
              << "min " << formatDouble(*lo, decimals) << "  max " << formatDouble(*hi, decimals)
              << "  now " << formatDouble(values.back(), decimals) << " " << unit << "\n";
    return 0;
}

int runRecorded(const Options& options, const Args& args) {
    gboolean csv = FALSE;
    gchar* svg = nullptr;
    GOptionEntry entries[] = {{"csv", 0, 0, G_OPTION_ARG_NONE, &csv, nullptr, nullptr},
                              {"svg", 0, 0, G_OPTION_ARG_FILENAME, &svg, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    Args rest = args;
    int rc = 0;
    bool parsed = parseOptions(kRecorded, rest, entries, &rc);
    g_autofree gchar* svgOwned = svg;
    if (!parsed) return rc;
    if ((csv && svg) || (!csv && !rest.empty()) || rest.size() > 1)
        return usageError(kRecorded, "expected nothing, --csv [FILE] or --svg FILE");

    if (!initialiseStore()) return fail(storeProblem());
    SensorListener listener;
    OrvexSensor sensor(&listener);
    if (!sensor.startSensorRecorder())
        return fail("cannot start the pressure recorder" + backendProblemText());
    long now = static_cast<long>(orvex_host_sensor_now());
    if (!sensor.getSensorRecorder(now)) return fail("the recorder refused the read");
    orvex_host_sensor_read_info read{};
    orvex_host_sensor_recorder_last_read(&read);
    if (read.records > 0 && waitFor([&] { return listener.complete; }, 0) == WaitEnd::Interrupted)
        return interruptedExit();

    // Records an older store kept, or one another program wrote, may hold what no barometer reads.
    Records records;
    for (const auto& r : listener.records)
        if (orvex_host_plausible_pressure(r.second)) records.push_back(r);
    const size_t leftOut = listener.records.size() - records.size();
    if (leftOut > 0) std::cerr << "orvex: note: " << leftOutText(leftOut) << "\n";
    if (records.empty())
        return fail(leftOut ? "no plausible pressure was recorded in the last six hours"
                            : "no pressure was recorded in the last six hours");
    if (csv) return exportRecords(ExportFormat::Csv, rest.empty() ? "" : rest[0], records, leftOut);
    if (svg) return exportRecords(ExportFormat::Svg, svg, records, leftOut);
    return printRecords(options, records, now);
}

}  // namespace
}  // namespace orvex_tool
