// A strict reader of numeric CSV files (sensor traces, location tracks).
#ifndef ORVEX_HOST_CSV_READER_H
#define ORVEX_HOST_CSV_READER_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
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

// The same rules fed one line at a time, for readers that take a file in slices and keep its rows
// in a form of their own.
class CsvParser {
public:
    CsvParser(std::string name, size_t columns, const char* rowFormat);

    enum Result { Row, Skipped, Bad };
    // One line, without its line end. Row: row() holds its numbers. Bad: error() says why, as
    // "NAME:LINE: ...", and the parser takes no more lines.
    Result line(std::string_view text);
    const std::vector<double>& row() const { return row_; }
    // Refuses the row line() just returned, with "NAME:LINE: " + what.
    void refuse(const std::string& what);
    // After the last line: false, with "NAME: no rows", when there was no row.
    bool finish();
    const std::string& error() const { return error_; }

private:
    std::string name_;
    size_t columns_;
    const char* rowFormat_;
    size_t number_ = 0;
    size_t rows_ = 0;
    bool headerAllowed_ = true;
    std::vector<double> row_;
    std::string error_;
};

}  // namespace orvex_host

#endif
