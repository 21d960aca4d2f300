// The strict reader of the host's CSV files (sensor traces, location tracks).
#include <orvex_host/sensor_control.h>

#include <fstream>

#include "HostFixture.h"
#include "core/csv_reader.h"

namespace {

std::string write(const std::string& text) {
    std::string path = std::string(orvex_host_data_dir()) + "/t.csv";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

using CsvReaderTest = orvex_test::HostTest;

TEST_F(CsvReaderTest, ReadsEveryRowOrNamesTheFirstBadLine) {
    using Rows = std::vector<std::vector<double>>;
    const struct {
        const char* text;
        Rows rows;
        const char* error;  // after "FILE"
    } cases[] = {
        {"# by hand\n\n  # indented\nt,x,y\r\n0, 1.5 ,-2\n\n# between rows\n+1,.5,3e2\n",
         {{0, 1.5, -2}, {1, 0.5, 300}},
         ""},
        {"\t7,8,9", {{7, 8, 9}}, ""},
        {"\357\273\2771,2,3\n", {{1, 2, 3}}, ""},  // after a byte-order mark
        {"", {}, ": no rows"},
        {"t,x,y\nu,v,w\n", {}, ":2: expected 3 numbers (t,x,y)"},
        {"0,1\n", {}, ":1: expected 3 numbers (t,x,y)"},
        {"0,1,2\n# c\n\n1,2,abc\n", {}, ":4: expected 3 numbers (t,x,y)"},
        {"0,1,2\n1,,2\n", {}, ":2: expected 3 numbers (t,x,y)"},
        {"0,1,2\n1,2,3,\n", {}, ":2: expected 3 numbers (t,x,y)"},
        {"0,1,2\n1 2,2,3\n", {}, ":2: expected 3 numbers (t,x,y)"},
        {"0,1,2\n1,nan,3\n", {}, ":2: expected 3 numbers (t,x,y)"},
        {"0,1,2\n1,1e999,3\n", {}, ":2: expected 3 numbers (t,x,y)"},
        {"0,1,2\n1,0x10,3\n", {}, ":2: expected 3 numbers (t,x,y)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        std::string path = write(c.text);
        orvex_host::CsvTable table = orvex_host::readCsv(path, 3, "t,x,y");
        EXPECT_EQ(*c.error ? path + c.error : "", table.error);
        EXPECT_EQ(c.rows, table.rows);
    }
    EXPECT_EQ(write("") + ".gone: cannot read (No such file or directory)",
              orvex_host::readCsv(write("") + ".gone", 3, "t,x,y").error);
    EXPECT_EQ("/dev/zero: not a regular file", orvex_host::readCsv("/dev/zero", 3, "t,x,y").error);
    // A trace is checked before use, for times that go back too.
    for (auto [text, problem] : {std::pair{"# walk\nseconds,hPa\n0,1000\n0,1000.5\n", ""},
                                 {"0,1000\n10,1001\n5,1002\n", ":3: time goes back"}}) {
        std::string path = write(text);
        const char* found = orvex_host_sensor_trace_problem(path.c_str());
        EXPECT_EQ(*problem ? path + problem : "", found ? found : "") << text;
    }
}

}  // namespace
