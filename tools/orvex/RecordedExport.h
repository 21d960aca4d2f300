// The recorded pressure as data and as a picture to keep: CSV rows and a standalone SVG chart.
#ifndef ORVEX_TOOL_RECORDED_EXPORT_H
#define ORVEX_TOOL_RECORDED_EXPORT_H

#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace orvex_tool {

// (time in seconds since the epoch, pressure in hPa), oldest first, as the recorder reports them.
using Records = std::vector<std::pair<long long, double>>;

// "2 records left out (not a plausible pressure)"
std::string leftOutText(size_t leftOut);

// "time,pressure_hpa,altitude_<unit>" and one row a record: UTC ISO time, hPa, and the altitude
// against the stored sea-level pressure in the distance unit of the settings (empty when that
// reference gives none).
void writeRecordedCsv(std::ostream& out, const Records& records, int distanceUnit);

// A standalone SVG chart: time and pressure axes with ticks and units, the pressure line in the
// pressure unit of the settings, each calibration time within the records marked, and a note
// when records were left out.
void writeRecordedSvg(std::ostream& out, const Records& records, int pressureUnit,
                      const std::vector<long long>& calibrations, size_t leftOut);

enum class ExportFormat { Csv, Svg };

// Writes the records with the units, sea-level pressure and calibration times of the store: the
// CSV to stdout when file is empty, otherwise to file, replaced whole. Returns the exit code.
int exportRecords(ExportFormat format, const std::string& file, const Records& records,
                  size_t leftOut);

}  // namespace orvex_tool

#endif
