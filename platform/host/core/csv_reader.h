// A strict reader of numeric CSV files (sensor traces, location tracks).
#ifndef ORVEX_HOST_CSV_READER_H
#define ORVEX_HOST_CSV_READER_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace orvex_host {

// Rows of numbers from a CSV file: `#` comment lines and blank lines anywhere, then an optional
// header line (the first non-comment line when it does not start with a number), then rows of
// exactly `columns` finite numbers separated by commas (spaces around them allowed).
struct CsvTable {
    std::vector<std::vector<double>> rows;
    std::string error;
};
// error is empty on success; otherwise one line that names the file and the line number, e.g.
// "track.csv:7: expected 4 numbers (seconds,latitude,longitude,altitude)"; a file without rows
// is an error too ("FILE: no rows").
CsvTable readCsv(const std::string& path, size_t columns, const char* rowFormat);

// As above, and every row must also pass `check`, which sees the row and the one before it
// (nullptr for the first) and returns an empty string or what is wrong with the row; the error is
// then "FILE:LINE: " followed by that text.
using CsvRowCheck =
    std::function<std::string(const std::vector<double>& row, const std::vector<double>* previous)>;
CsvTable readCsv(const std::string& path, size_t columns, const char* rowFormat,
                 const CsvRowCheck& check);

}  // namespace orvex_host

#endif
