// A fast reader of recorded traces: seconds, hPa and an optional GNSS altitude per row.
#include "TraceReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

namespace orvex_altimeter {

namespace {

constexpr size_t kBlock = 1 << 20;
// Far beyond any real row or comment; a file of no line breaks ends here instead of in memory.
constexpr size_t kMaxLine = size_t(64) << 20;
// What the pressure sensor passes on; anything else is not a reading.
constexpr double kLowestHpa = 260.0, kHighestHpa = 1260.0;
const char* const kRowFormat = "expected seconds,hPa[,gnss_alt_m]";

const char* skipBlanks(const char* p, const char* end) {
    while (p < end && (*p == ' ' || *p == '\t')) ++p;
    return p;
}

bool startsWithNumber(const char* p, const char* end) {
    if (p < end && (*p == '-' || *p == '+')) ++p;
    if (p < end && *p == '.') ++p;
    return p < end && *p >= '0' && *p <= '9';
}

// A plain decimal number (no "inf", "nan" or hex), blanks around it skipped.
const char* number(const char* p, const char* end, double* value) {
    p = skipBlanks(p, end);
    if (!startsWithNumber(p, end)) return nullptr;
    if (*p == '+') ++p;
    auto [stop, ec] = std::from_chars(p, end, *value);
    if (ec != std::errc() || !std::isfinite(*value)) return nullptr;
    return skipBlanks(stop, end);
}

}  // namespace

// Only a regular file: a FIFO would block and a device such as /dev/zero never ends.
TraceReader::TraceReader(const std::string& path) : path_(path), buffer_(kBlock) {
    fd_ = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat st;
    if (fd_ < 0)
        fail(std::string("cannot read (") + strerror(errno) + ")");
    else if (fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode))
        fail("not a regular file");
}

TraceReader::~TraceReader() {
    if (fd_ >= 0) close(fd_);
}

bool TraceReader::fail(const std::string& what) {
    error_ = path_ + (line_ ? ":" + std::to_string(line_) : "") + ": " + what;
    return false;
}

// Moves what is left of the buffer to its start and reads more after it.
bool TraceReader::fill() {
    if (eof_) return false;
    if (begin_ > 0) {
        memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    if (end_ == buffer_.size()) {  // a very long line
        if (buffer_.size() >= kMaxLine) return fail("a line longer than 64 MiB");
        buffer_.resize(buffer_.size() * 2);
    }
    ssize_t n;
    do {
        n = read(fd_, buffer_.data() + end_, buffer_.size() - end_);
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        line_ = 0;
        return fail(std::string("cannot read (") + strerror(errno) + ")");
    }
    if (n == 0) eof_ = true;
    end_ += static_cast<size_t>(n);
    return true;
}

bool TraceReader::next(TraceRow* row) {
    if (!error_.empty()) return false;
    while (true) {
        const char* data = buffer_.data();
        const char* nl = static_cast<const char*>(memchr(data + begin_, '\n', end_ - begin_));
        if (!nl && !eof_) {
            if (!fill()) return false;
            continue;
        }
        if (!nl && begin_ == end_) {
            if (rows_ == 0) {
                line_ = 0;
                return fail("no rows");
            }
            return false;
        }
        const char* p = data + begin_;
        const char* end = nl ? nl : data + end_;
        begin_ = static_cast<size_t>(end - data) + (nl ? 1 : 0);
        ++line_;
        if (end > p && end[-1] == '\r') --end;
        // A byte-order mark would hide whether the first line starts with a number.
        if (line_ == 1 && end - p >= 3 && memcmp(p, "\xEF\xBB\xBF", 3) == 0) p += 3;
        p = skipBlanks(p, end);
        if (p == end || *p == '#') continue;
        if (headerAllowed_) {
            headerAllowed_ = false;
            if (!startsWithNumber(p, end)) continue;
        }
        if (!parse(p, end, row)) return false;
        ++rows_;
        return true;
    }
}

bool TraceReader::parse(const char* p, const char* end, TraceRow* row) {
    p = number(p, end, &row->seconds);
    if (!p || p == end || *p != ',') return fail(kRowFormat);
    p = number(p + 1, end, &row->hPa);
    if (!p) return fail(kRowFormat);
    row->gnssAltitude = NAN;
    if (p < end) {
        if (*p != ',') return fail(kRowFormat);
        p = skipBlanks(p + 1, end);
        if (p < end) {
            p = number(p, end, &row->gnssAltitude);
            if (!p || p != end) return fail(kRowFormat);
        }
    }
    if (rows_ > 0 && row->seconds < lastSeconds_) return fail("time goes back");
    if (row->hPa < kLowestHpa || row->hPa > kHighestHpa)
        return fail("pressure outside 260-1260 hPa");
    lastSeconds_ = row->seconds;
    return true;
}

}  // namespace orvex_altimeter
