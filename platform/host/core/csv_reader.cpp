// The strict numeric CSV reader behind sensor traces and location tracks.

#include "core/csv_reader.h"

#include <glib.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>

namespace orvex_host {
namespace {

bool isSpace(char c) { return c == ' ' || c == '\t'; }

// Whether the line (without leading blanks) starts like a number rather than a column name.
bool startsWithNumber(const char* p) {
    if (*p == '+' || *p == '-') ++p;
    if (*p == '.') ++p;
    return g_ascii_isdigit(*p);
}

// Exactly `columns` finite numbers separated by commas, blanks around each allowed.
bool parseRow(const std::string& line, size_t columns, std::vector<double>* out) {
    out->clear();
    const char* p = line.c_str();
    const char* end = p + line.size();
    while (true) {
        while (isSpace(*p)) ++p;
        // g_ascii_strtod also takes "nan", "inf" and hex; only plain decimals are numbers here.
        if (!startsWithNumber(p)) return false;
        char* stop = nullptr;
        errno = 0;
        double v = g_ascii_strtod(p, &stop);
        if (stop == p || errno == ERANGE || !std::isfinite(v)) return false;
        for (const char* q = p; q < stop; ++q)
            if (*q == 'x' || *q == 'X') return false;
        out->push_back(v);
        p = stop;
        while (isSpace(*p)) ++p;
        if (p == end) break;
        if (*p != ',' || out->size() == columns) return false;
        ++p;
    }
    return out->size() == columns;
}

}  // namespace

CsvTable readCsv(const std::string& path, size_t columns, const char* rowFormat) {
    return readCsv(path, columns, rowFormat, nullptr);
}

CsvTable readCsv(const std::string& path, size_t columns, const char* rowFormat,
                 const CsvRowCheck& check) {
    CsvTable table;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        int err = errno;
        table.error = path + ": cannot read (" + (err ? strerror(err) : "unknown error") + ")";
        return table;
    }
    std::string line;
    std::vector<double> row;
    bool headerAllowed = true;
    for (size_t number = 1; std::getline(in, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        // A byte-order mark would hide whether the first line starts with a number.
        if (number == 1 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
        size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        if (headerAllowed) {
            headerAllowed = false;
            if (!startsWithNumber(line.c_str() + first)) continue;
        }
        auto fail = [&](const std::string& what) {
            table.rows.clear();
            table.error = path + ":" + std::to_string(number) + ": " + what;
            return table;
        };
        if (!parseRow(line, columns, &row))
            return fail("expected " + std::to_string(columns) + " numbers (" + rowFormat + ")");
        if (check) {
            std::string problem = check(row, table.rows.empty() ? nullptr : &table.rows.back());
            if (!problem.empty()) return fail(problem);
        }
        table.rows.push_back(row);
    }
    if (in.bad()) {
        table.rows.clear();
        table.error = path + ": cannot read";
    } else if (table.rows.empty()) {
        table.error = path + ": no rows";
    }
    return table;
}

}  // namespace orvex_host
