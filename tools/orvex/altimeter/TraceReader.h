// Reads a recorded trace: CSV rows of "seconds,hPa" with an optional third column, the GNSS
// altitude in metres (empty where there was no fix). `#` comment lines and blank lines may come
// anywhere and a header line first, as in the host sensor's traces. The file is read in blocks,
// so that its size does not matter.
#ifndef ORVEX_ALTIMETER_TRACE_READER_H
#define ORVEX_ALTIMETER_TRACE_READER_H

#include <cstddef>
#include <string>
#include <vector>

namespace orvex_altimeter {

struct TraceRow {
    double seconds;
    double hPa;
    double gnssAltitude;  // NaN without a fix
};

class TraceReader {
public:
    explicit TraceReader(const std::string& path);
    ~TraceReader();
    TraceReader(const TraceReader&) = delete;
    TraceReader& operator=(const TraceReader&) = delete;

    // The next row; false at the end of the file or at an error (then error() says which).
    bool next(TraceRow* row);
    // One line naming the file (and the line), e.g. "walk.csv:7: time goes back"; empty when
    // all is well.
    const std::string& error() const { return error_; }
    size_t rows() const { return rows_; }

private:
    bool fill();
    bool parse(const char* p, const char* end, TraceRow* row);
    bool fail(const std::string& what);

    std::string path_;
    int fd_ = -1;
    std::vector<char> buffer_;
    size_t begin_ = 0, end_ = 0;
    bool eof_ = false;
    bool headerAllowed_ = true;
    size_t line_ = 0;
    size_t rows_ = 0;
    double lastSeconds_ = 0.0;
    std::string error_;
};

}  // namespace orvex_altimeter

#endif
