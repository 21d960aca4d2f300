// The strict numeric CSV reader behind sensor traces and location tracks.

#include "core/csv_reader.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace orvex_host {
namespace {

// Traces and tracks of a few days at a second a row stay far below this.
constexpr off_t kMaxCsvBytes = off_t(64) << 20;

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

// The whole of a regular file, read without blocking: a FIFO would hang the reader and a device
// such as /dev/zero never ends. Empty when it could be read, else why not.
std::string readRegularFile(const std::string& path, std::string* text) {
    auto cannotRead = [&](int err) {
        return path + ": cannot read (" + (err ? strerror(err) : "unknown error") + ")";
    };
    int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return cannotRead(errno);
    std::string problem;
    struct stat st;
    if (fstat(fd, &st) != 0) {
        problem = cannotRead(errno);
    } else if (!S_ISREG(st.st_mode)) {
        problem = path + ": not a regular file";
    } else if (st.st_size > kMaxCsvBytes) {
        problem = path + ": too large (more than " + std::to_string(kMaxCsvBytes >> 20) + " MiB)";
    } else {
        text->resize(static_cast<size_t>(st.st_size));
        size_t got = 0;
        while (got < text->size()) {
            ssize_t n = read(fd, &(*text)[got], text->size() - got);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                problem = cannotRead(errno);
                break;
            }
            if (n == 0) break;  // shortened since the look
            got += static_cast<size_t>(n);
        }
        text->resize(got);
    }
    close(fd);
    return problem;
}

}  // namespace

CsvTable readCsv(const std::string& path, size_t columns, const char* rowFormat) {
    return readCsv(path, columns, rowFormat, nullptr);
}

CsvTable readCsv(const std::string& path, size_t columns, const char* rowFormat,
                 const CsvRowCheck& check) {
    CsvTable table;
    std::string text;
    if (std::string problem = readRegularFile(path, &text); !problem.empty()) {
        table.error = problem;
        return table;
    }
    CsvParser parser(path, columns, rowFormat);
    std::string_view rest(text);
    while (!rest.empty()) {
        size_t nl = rest.find('\n');
        std::string_view line = rest.substr(0, nl);
        rest.remove_prefix(nl == std::string_view::npos ? rest.size() : nl + 1);
        CsvParser::Result r = parser.line(line);
        if (r == CsvParser::Row && check) {
            std::string problem =
                check(parser.row(), table.rows.empty() ? nullptr : &table.rows.back());
            if (!problem.empty()) parser.refuse(problem);
        }
        if (!parser.error().empty()) {
            table.error = parser.error();
            table.rows.clear();
            return table;
        }
        if (r == CsvParser::Row) table.rows.push_back(parser.row());
    }
    if (!parser.finish()) table.error = parser.error();
    return table;
}

CsvParser::CsvParser(std::string name, size_t columns, const char* rowFormat)
    : name_(std::move(name)), columns_(columns), rowFormat_(rowFormat) {}

CsvParser::Result CsvParser::line(std::string_view text) {
    if (!error_.empty()) return Bad;
    ++number_;
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    // A byte-order mark would hide whether the first line starts with a number.
    if (number_ == 1 && text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
    size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos || text[first] == '#') return Skipped;
    std::string copy(text);  // parseRow needs the terminating NUL
    if (headerAllowed_) {
        headerAllowed_ = false;
        if (!startsWithNumber(copy.c_str() + first)) return Skipped;
    }
    if (!parseRow(copy, columns_, &row_)) {
        refuse("expected " + std::to_string(columns_) + " numbers (" + rowFormat_ + ")");
        return Bad;
    }
    ++rows_;
    return Row;
}

void CsvParser::refuse(const std::string& what) {
    if (error_.empty()) error_ = name_ + ":" + std::to_string(number_) + ": " + what;
}

bool CsvParser::finish() {
    if (error_.empty() && rows_ == 0) error_ = name_ + ": no rows";
    return error_.empty();
}

}  // namespace orvex_host
