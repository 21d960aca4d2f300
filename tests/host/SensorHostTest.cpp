// The host's sensor service, its back ends and the recorder as the platform's clients see them.
#include <orvex_host/sensor_control.h>
#include <platform/sensor.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "HostFixture.h"
#include "MainLoop.h"

namespace fs = std::filesystem;
using orvex_test::runUntil;

namespace {

constexpr double kT = 1700000040.0;

std::map<sensor_listener_h, std::vector<float>> g_events;  // pressure of each event

void collect(sensor_h, sensor_event_s* event, void* listener) {
    g_events[static_cast<sensor_listener_h>(listener)].push_back(event->values[0]);
}

class SensorHostTest : public orvex_test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        g_events.clear();
        orvex_host_sensor_set_clock(kT);
    }
    // A listener, started with events every intervalMs, or read by hand only (0).
    sensor_listener_h listen(sensor_type_e type, unsigned intervalMs = 0) {
        sensor_h sensor = nullptr;
        sensor_listener_h l = nullptr;
        EXPECT_EQ(SENSOR_ERROR_NONE, sensor_get_default_sensor(type, &sensor));
        EXPECT_EQ(SENSOR_ERROR_NONE, sensor_create_listener(sensor, &l));
        if (intervalMs && !sensor_listener_set_event_cb(l, intervalMs, collect, l))
            sensor_listener_start(l);
        listeners_.push_back(l);
        return l;
    }
    sensor_event_s readAt(double t) {
        orvex_host_sensor_set_clock(t);
        sensor_event_s e{};
        EXPECT_EQ(SENSOR_ERROR_NONE, sensor_listener_read_data(listeners_.back(), &e));
        return e;
    }
    std::string trace(const std::string& text, bool loop) {
        std::string path = std::string(orvex_host_data_dir()) + "/trace.csv";
        std::ofstream(path) << text;
        EXPECT_EQ(0, orvex_host_sensor_set_backend("trace"));
        EXPECT_EQ(0, orvex_host_sensor_set_trace(path.c_str(), loop));
        return path;
    }
    std::vector<sensor_listener_h> listeners_;
};

TEST_F(SensorHostTest, IioDevicesAreFoundAndConvertedFromKilopascals) {
    // Files of the second device (the first has none); 0 hPa: no pressure device. The first
    // case's values end their line, as the kernel writes them.
    const std::pair<const char*, float> cases[] = {
        {"in_pressure_input=101.325 in_temp_input=21500", 1013.25f},
        {"in_pressure_raw=39990 in_pressure_scale=0.0025 in_pressure_offset=10", 1000.0f},
        {"in_pressure_raw=40000", 0.0f},
    };
    ASSERT_EQ(0, orvex_host_sensor_set_backend("iio"));
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].first);
        fs::path root = fs::path(orvex_host_data_dir()) / ("iio" + std::to_string(i));
        fs::create_directories(root / "iio:device0");
        fs::create_directories(root / "iio:device1");
        std::istringstream files(cases[i].first);
        for (std::string f; files >> f;)
            std::ofstream(root / "iio:device1" / f.substr(0, f.find('=')))
                << f.substr(f.find('=') + 1) << (i ? "" : "\n");
        EXPECT_EQ(0, orvex_host_sensor_set_iio_root(root.c_str()));
        const char* problem = orvex_host_sensor_backend_problem();
        EXPECT_EQ(cases[i].second ? "" : "no IIO pressure device under " + root.string(),
                  problem ? problem : "");
        if (problem) continue;
        if (listeners_.empty()) listen(SENSOR_PRESSURE);
        sensor_event_s e = readAt(kT + i);
        EXPECT_NEAR(cases[i].second, e.values[0], 1e-3);
        EXPECT_EQ(i == 0 ? 21.5f : 0.0f, e.values[2]);
        // A device that stops answering reports itself as not working.
        for (const char* name : {"in_pressure_input", "in_pressure_raw", "in_pressure0_raw"})
            fs::remove(root / "iio:device1" / name);
        e = readAt(kT + 10 + i);
        EXPECT_EQ(0.0f, e.values[3]);
        EXPECT_EQ(SENSOR_DATA_ACCURACY_BAD, e.accuracy);
    }
}

// Whatever stands in a device file's place, each reading ends in one failure that says why, and
// the recorder keeps nothing of it.
TEST_F(SensorHostTest, IioFilesThatHoldNoPressureAreASensorThatIsNotWorking) {
    const std::string outside = " hPa is outside the plausible 260 to 1260 hPa at the sensor";
    const struct {
        std::string files;    // name=value ...; value "FIFO" or "->target" for other kinds
        std::string problem;  // "@" stands for the device's directory
    } cases[] = {
        {"in_pressure_input=FIFO", "@/in_pressure_input: not a regular file"},
        {"in_pressure_input=->/dev/zero", "@/in_pressure_input: not a regular file"},
        {"in_pressure_input=1O1.3", "@/in_pressure_input: '1O1.3' is not a number"},
        {"in_pressure_input=", "@/in_pressure_input: empty"},
        {"in_pressure_input=" + std::string(65, '1'), "@/in_pressure_input: more than 64 bytes"},
        {"in_pressure_input=-5", "-50" + outside},
        {"in_pressure_input=0", "0" + outside},
        {"in_pressure_input=1e300", "1e+301" + outside},
        {"in_pressure_raw=1e300 in_pressure_scale=1e300",
         "@/in_pressure_raw with its offset and scale overflows"},
    };
    ASSERT_EQ(0, orvex_host_sensor_set_backend("iio"));
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].files);
        const fs::path root = fs::path(orvex_host_data_dir()) / ("iio" + std::to_string(i)),
                       dev = root / "iio:device0";
        fs::create_directories(dev);
        std::istringstream files(cases[i].files);
        for (std::string f; files >> f;) {
            const fs::path path = dev / f.substr(0, f.find('='));
            const std::string value = f.substr(f.find('=') + 1);
            if (value == "FIFO")
                EXPECT_EQ(0, mkfifo(path.c_str(), 0600));
            else if (value.rfind("->", 0) == 0)
                fs::create_symlink(value.substr(2), path);
            else
                std::ofstream(path) << value;
        }
        EXPECT_EQ(0, orvex_host_sensor_set_iio_root(root.c_str()));
        if (listeners_.empty()) listen(SENSOR_PRESSURE);
        sensor_event_s e = readAt(kT);
        EXPECT_EQ(SENSOR_DATA_ACCURACY_BAD, e.accuracy);
        EXPECT_EQ(0.0f, e.values[3]);
        std::string expected = cases[i].problem;
        if (expected[0] == '@') expected.replace(0, 1, dev.string());
        const char* problem = orvex_host_sensor_reading_problem();
        EXPECT_EQ(expected, problem ? problem : "");
        sensor_recorder_start(SENSOR_PRESSURE, nullptr);
        EXPECT_EQ(-EIO, orvex_host_sensor_recorder_sample_now());
        EXPECT_EQ(0, orvex_host_sensor_record_count(SENSOR_PRESSURE, 0, 1LL << 40));
    }
}

TEST_F(SensorHostTest, TraceReplaysRowsByElapsedTimeLoopingOrNot) {
    trace("# by hand\n\ntime_s,pressure_hpa\n0,1000.0\n10,1001.5\n20,1003.0\n", true);
    listen(SENSOR_PRESSURE);
    // The replay starts at the first read; after the last row it waits one row interval and
    // starts again.
    const std::pair<double, float> expected[] = {{0, 1000.0f},  {9.5, 1000.0f}, {10, 1001.5f},
                                                 {25, 1003.0f}, {31, 1000.0f},  {41, 1001.5f}};
    for (const auto& [elapsed, hpa] : expected) EXPECT_EQ(hpa, readAt(kT + elapsed).values[0]);
    listen(SENSOR_PRESSURE_TREND);  // the change over the readings of the last three hours
    EXPECT_FLOAT_EQ(1.5f, readAt(kT + 41).values[0]);

    // Without looping the last row comes once, even when no reading fell on its time.
    trace("0,990.5\n5,991\n", false);
    orvex_host_sensor_set_clock(kT);
    sensor_listener_h l = listen(SENSOR_PRESSURE, 5);
    ASSERT_TRUE(runUntil([&] { return !g_events[l].empty(); }));
    orvex_host_sensor_set_clock(kT + 6);
    // Time for more events: a listener of the trend sensor has had three of its own.
    sensor_listener_h clock = listen(SENSOR_PRESSURE_TREND, 5);
    ASSERT_TRUE(runUntil([&] { return g_events[clock].size() >= 3; }));
    EXPECT_EQ(991.0f, g_events[l].back());
    EXPECT_EQ(1, std::count(g_events[l].begin(), g_events[l].end(), 991.0f));
    sensor_event_s e{};
    EXPECT_EQ(SENSOR_ERROR_NO_DATA, sensor_listener_read_data(l, &e));
}

// The configuration is read again only when it changed, here or in another process.
TEST_F(SensorHostTest, ChoiceFollowsChangesOfAnotherProcess) {
    std::string path = trace("0,1000\n10,1001.5\n", true);
    listen(SENSOR_PRESSURE);
    EXPECT_EQ(1000.0f, readAt(kT).values[0]);
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK,
              sqlite3_open((std::string(orvex_host_data_dir()) + "/host.db").c_str(), &db));
    sqlite3_busy_timeout(db, 5000);
    // An unrelated write: the running replay goes on where it was.
    sqlite3_exec(db, "INSERT INTO host_config VALUES('other','1')", nullptr, nullptr, nullptr);
    EXPECT_EQ(1001.5f, readAt(kT + 10).values[0]);
    sqlite3_exec(db, "UPDATE host_config SET value='/nowhere.csv' WHERE key='sensor_trace'",
                 nullptr, nullptr, nullptr);
    sqlite3_close(db);
    EXPECT_STREQ("/nowhere.csv: cannot read (No such file or directory)",
                 orvex_host_sensor_backend_problem());
    ASSERT_EQ(0, orvex_host_sensor_set_trace(path.c_str(), 1));  // and back, from here
    EXPECT_EQ(nullptr, orvex_host_sensor_backend_problem());
}

}  // namespace
