// The recorded pressure as data and as a picture to keep: CSV rows and a standalone SVG chart.
#ifndef ORVEX_TOOL_RECORDED_EXPORT_H
#define ORVEX_TOOL_RECORDED_EXPORT_H

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Tool.h"

namespace orvex_tool {

// (time in seconds since the epoch, pressure in hPa), oldest first, as the recorder reports them.
using Records = std::vector<std::pair<long long, double>>;

// "time,pressure_hpa,altitude_<unit>" and one row a record: UTC ISO time, hPa, and the altitude
// against the stored sea-level pressure in the distance unit of the settings.
void writeRecordedCsv(std::ostream& out, const Records& records, int distanceUnit);

// A standalone SVG chart: time and pressure axes with ticks and units, the pressure line in the
// pressure unit of the settings, and each calibration time within the records marked.
void writeRecordedSvg(std::ostream& out, const Records& records, int pressureUnit,
                      const std::vector<long long>& calibrations);

// `orvex recorded --csv` and `orvex recorded --svg FILE`, given what 'recorded' collected:
// reads the units, sea-level pressure and calibration times from the store and writes the CSV to
// stdout or the chart to FILE. Returns the exit code.
int runRecordedExport(const Options& options, const Args& args, const Records& records);

// Whether the arguments ask 'recorded' for an export rather than the terminal chart.
bool wantsRecordedExport(const Args& args);

}  // namespace orvex_tool

#endif
