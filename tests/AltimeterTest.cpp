// The altimeter's logic on traces with a known truth: generated walks and weather, and a real
// glider flight.
#include <glib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>

#include "Altimeter.h"
#include "TraceAnalysis.h"
#include "TraceReader.h"

using namespace orvex_altimeter;

namespace {

using Curve = std::function<double(double hours)>;

// A piecewise-linear curve through (hours, value) points, flat outside them.
Curve through(std::vector<std::pair<double, double>> points) {
    return [points](double h) {
        if (h <= points.front().first) return points.front().second;
        for (size_t i = 1; i < points.size(); ++i)
            if (h <= points[i].first) {
                const auto &a = points[i - 1], &b = points[i];
                return a.second + (b.second - a.second) * (h - a.first) / (b.first - a.first);
            }
        return points.back().second;
    };
}

struct Weather {
    const char* name;
    double hours;
    Curve altitude, slp;  // altitude NaN: no reading
    Curve gnss;           // metres off (and 5 m of noise), NaN: no fix; empty: no GNSS column
    int alerts;
    double ascent;         // NaN: not checked; else within 2 %
    double maxWander;      // ascent + descent at most (NaN: not checked)
    double tendencyError;  // at most, once 3 hours are known (NaN: not checked)
};

struct Outcome {
    std::vector<std::pair<double, double>> alerts;  // time, tendency
    double ascent, descent, worstTendencyError = 0.0;
};

// 1 Hz readings of a sensor with 0.03 hPa of noise.
Outcome play(const Weather& w, Altimeter& a) {
    std::mt19937 random(27);
    std::normal_distribution<double> noise(0.0, 1.0);
    Outcome out;
    const double truthLag = 3.0;
    for (double t = 0; t <= w.hours * 3600; t += 1.0) {
        double h = t / 3600;
        double hPa =
            w.slp(h) * std::pow(1.0 - w.altitude(h) / 44330.0, 5.255) + 0.03 * noise(random);
        double gnss = w.gnss ? w.altitude(h) + w.gnss(h) + 5.0 * noise(random) : NAN;
        AltimeterUpdate u = a.feed(t, hPa, gnss);
        double truth = w.slp(h) - w.slp(h - truthLag);
        if (u.alert == StormAlert::Change::Raised) {
            out.alerts.emplace_back(t, a.alert().raisedTendency());
            EXPECT_NEAR(truth, a.alert().raisedTendency(), 0.1) << "alert at " << t;
        }
        if (u.tendencyChanged && h >= truthLag)
            out.worstTendencyError =
                std::max(out.worstTendencyError, std::fabs(a.tendency() - truth));
    }
    out.ascent = a.totals().ascent();
    out.descent = a.totals().descent();
    return out;
}

TEST(AltimeterTest, TellsClimbsFromWeather) {
    const Curve still = through({{0, 1013.0}});
    auto fall = [](double hPa) { return through({{3, 1013.0}, {6, 1013.0 - hPa}}); };
    const Curve walk = through({{2.5, 500.0}, {3.5, 900.0}, {4.5, 500.0}}),
                walkFall = through({{2, 1013.0}, {5, 1007.0}}), fix = through({{0, 0.0}});
    // clang-format off
    const Weather cases[] = {
        {"6 h at rest, 1 hPa/3 h of drift", 6, through({{0, 250.0}}),
         through({{0, 1013.0}, {6, 1015.0}}), {}, 0, NAN, 3.0, NAN},
        {"a fall of 2.8 hPa", 10, through({{0, 300.0}}), fall(2.8), {}, 0, NAN, NAN, NAN},
        {"a fall of 3.2 hPa", 10, through({{0, 300.0}}), fall(3.2), {}, 1, NAN, NAN, NAN},
        {"a fall of 4.5 hPa", 10, through({{0, 300.0}}), fall(4.5), {}, 1, NAN, NAN, NAN},
        {"a fall of 6.0 hPa", 10, through({{0, 300.0}}), fall(6.0), {}, 1, NAN, NAN, NAN},
        {"two falls with a steady day between", 20, through({{0, 300.0}}),
         through({{3, 1013.0}, {6, 1009.0}, {12, 1009.0}, {15, 1005.0}}), {}, 2, NAN, NAN, NAN},
        {"a 6 hPa fall during a 400 m walk up and down, with GNSS", 8, walk, walkFall, fix, 1,
         400.0, NAN, NAN},
        // A fix missing for seconds keeps its history; one back after more than 30 s starts
        // afresh (its offset may have changed), and so does the first one, from nothing.
        {"the same walk, the fix out for 5 s every minute", 8, walk, walkFall,
         [](double h) { return std::fmod(h * 60, 1.0) < 5.0 / 60 ? NAN : 0.0; }, 1, 400.0, NAN,
         NAN},
        {"the same walk, readings lost for 2 min on the way down and the fix back 30 m off", 8,
         [&](double h) { return h > 4.0 && h < 4.0 + 2.0 / 60 ? NAN : walk(h); }, walkFall,
         [](double h) { return h < 4.0 ? 0.0 : 30.0; }, 1, 400.0, NAN, 0.5},
        {"a 400 m climb from the first reading, with GNSS", 2, through({{0, 500.0}, {1, 900.0}}),
         still, fix, 0, 400.0, NAN, NAN},
        // On until the climb's start is 3 h back: what the estimate took in before the move was
        // recognised must have been put right in the tendency's past too.
        {"a 300 m climb in an hour between hours at rest", 5.25,
         through({{2, 100.0}, {3, 400.0}}), still, {}, 0, 300.0, NAN, 0.1},
    };
    // clang-format on
    for (const auto& w : cases) {
        SCOPED_TRACE(w.name);
        Altimeter altimeter(w.slp(0));
        Outcome out = play(w, altimeter);
        EXPECT_EQ(w.alerts, static_cast<int>(out.alerts.size()));
        if (!std::isnan(w.ascent)) {
            EXPECT_NEAR(w.ascent, out.ascent, 0.02 * w.ascent);
        }
        if (!std::isnan(w.maxWander)) {
            EXPECT_LE(out.ascent + out.descent, w.maxWander);
        }
        if (!std::isnan(w.tendencyError)) {
            EXPECT_LE(out.worstTendencyError, w.tendencyError);
        }
    }
}

TEST(AltimeterTest, VerticalSpeedOverTheLastMinute) {
    // Half an hour at rest, then a climb at 5 m/min.
    Altimeter a;
    std::mt19937 random(5);
    std::normal_distribution<double> noise(0.0, 0.03);
    auto pressureAt = [](double t) {
        double altitude = t < 1800 ? 100.0 : 100.0 + 5.0 * (t - 1800) / 60.0;
        return 1013.25 * std::pow(1.0 - altitude / 44330.0, 5.255);
    };
    for (int t = 0; t <= 3600; ++t) {
        a.feed(t, pressureAt(t) + noise(random));
        if (t > 300 && t < 1800) {
            EXPECT_LT(std::fabs(a.verticalSpeed()), 0.2) << t;
            EXPECT_EQ(Motion::Resting, a.motion()) << t;
        }
        // Recognised as a move within 3 minutes, and measured within a minute after.
        if (t > 1800 + 240) {
            EXPECT_NEAR(5.0, a.verticalSpeed(), 0.5) << t;
            EXPECT_EQ(Motion::Moving, a.motion()) << t;
        }
    }
    // A calibration moves the altitude, not the count.
    double ascent = a.totals().ascent(), before = a.altitude();
    a.calibrate(a.seaLevelPressure() + 1.0);
    a.feed(3601, pressureAt(3601));
    EXPECT_NEAR(before + 8.3, a.altitude(), 1.0);
    EXPECT_NEAR(ascent, a.totals().ascent(), 1.0);

    // After a gap in the readings, the speed waits for half a minute of new ones.
    a.feed(3700, pressureAt(3700));
    a.feed(3729, pressureAt(3729));
    EXPECT_TRUE(std::isnan(a.verticalSpeed()));
    a.feed(3730, pressureAt(3730));
    EXPECT_NEAR(5.0, a.verticalSpeed(), 0.5);
    // Two readings within one second both count: traces may be logged faster than their clock.
    double then = a.altitude();
    a.feed(3730, pressureAt(3790));
    EXPECT_NEAR(then + 5.0, a.altitude(), 0.5);
}

TEST(AltimeterTest, WhenAFixDecidesAndWhenAMoveEnds) {
    // Per second: the pressure altitude (NaN: no reading) and the GNSS altitude (NaN: no fix).
    using Track = std::function<double(int t)>;
    struct Case {
        const char* name;
        int seconds;
        Track baro, gnss;
        Motion motion;  // after the last reading
    };
    std::mt19937 random(3);
    std::normal_distribution<double> noise(0.0, 5.0);
    const Track flat = [](int) { return 300.0; }, none = [](int) { return NAN; };
    const Case cases[] = {
        {"a new fix's first noisy minutes are not a climb", 120, flat,
         [&](int) { return 300.0 + noise(random); }, Motion::Resting},
        {"a fix every 30 s tells a thunderstorm's pressure jump from a climb", 400,
         [](int t) { return t < 200 ? 300.0 : 300.0 - 0.1 * (t - 200); },
         [](int t) { return t % 30 ? NAN : 300.0; }, Motion::Resting},
        {"a fix lost for more than 30 s leaves the stairs to the barometer", 400,
         [](int t) { return t < 200 ? 300.0 : 300.0 + 0.2 * (t - 200); },
         [](int t) { return t < 200 ? 300.0 : NAN; }, Motion::Moving},
        {"a climb, then no sign of one for 599 s", 719,
         [](int t) { return t > 120 && t < 719 ? NAN : 300.0 + t / 6.0; }, none, Motion::Moving},
        {"a climb, then no sign of one for 600 s", 720,
         [](int t) { return t > 120 && t < 720 ? NAN : 300.0 + t / 6.0; }, none, Motion::Resting},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MotionDetector detector;
        for (int t = 0; t <= c.seconds; ++t)
            if (!std::isnan(c.baro(t))) detector.update(t, c.baro(t), c.gnss(t));
        EXPECT_EQ(c.motion, detector.motion());
    }
}

class TraceFile : public ::testing::Test {
protected:
    std::string write(const std::string& text) {
        std::ofstream(path_) << text;
        return path_;
    }
    void TearDown() override { std::remove(path_.c_str()); }
    std::string path_ =
        std::string(g_get_tmp_dir()) + "/altimeter-test-" + std::to_string(getpid()) + ".csv";
};

TEST_F(TraceFile, GliderFlightClimbsWithoutAStorm) {
    // The logged GNSS altitude becomes the third column, empty where the fix was not valid.
    std::ifstream in(ORVEX_TEST_DATA "/olsztyn_reference.csv");
    ASSERT_TRUE(in.good());
    std::ostringstream trace;
    std::string line;
    std::getline(in, line);
    trace << "seconds,hPa,gnss_alt_m\n";
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::istringstream cells(line);
        for (std::string c; std::getline(cells, c, ',');) f.push_back(c);
        ASSERT_EQ(5u, f.size()) << line;
        trace << f[0] << "," << f[1] << "," << (f[4] == "1" ? f[3] : "") << "\n";
    }
    TraceSummary s = TraceAnalysis::run(write(trace.str()), 3.0);
    ASSERT_EQ("", s.error);
    EXPECT_EQ(2469, s.rows);
    EXPECT_TRUE(s.alerts.empty());
    // Between what 10 m and 1 m steps make of its logged altitude, 3 % either side.
    EXPECT_GE(s.ascent, 0.97 * 13462);
    EXPECT_LE(s.ascent, 1.03 * 14488);
}

TEST_F(TraceFile, ReaderTakesTracesAndNamesTheLineItRefuses) {
    struct Case {
        const char* text;
        const char* error;  // after "FILE"
        size_t rows;
    };
    // clang-format off
    const Case cases[] = {
        {"\xEF\xBB\xBFseconds,hPa,gnss_alt_m\n0,1000,\n# x\n\n1, 1000.5 ,12\r\n2,1001", "", 3},
        {"0,1000\nx,1\n", ":2: expected seconds,hPa[,gnss_alt_m]", 1},
        {"0,1000\n1,nan\n", ":2: expected seconds,hPa[,gnss_alt_m]", 1},
        {"0,1000,5,6\n", ":1: expected seconds,hPa[,gnss_alt_m]", 0},
        {"1,1000\n0,1000\n", ":2: time goes back", 1},
        {"0,200\n", ":1: pressure outside 260-1260 hPa", 0},
        {"# nothing\n", ": no rows", 0},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        TraceReader reader(write(c.text));
        std::vector<TraceRow> rows;
        for (TraceRow row; reader.next(&row);) rows.push_back(row);
        EXPECT_EQ(c.error[0] ? path_ + c.error : "", reader.error());
        EXPECT_EQ(c.rows, rows.size());
    }
    TraceReader reader(write("0,1000,\n1,1000.5,12\n"));
    TraceRow row;
    ASSERT_TRUE(reader.next(&row) && reader.next(&row));
    EXPECT_EQ(1.0, row.seconds);
    EXPECT_EQ(1000.5, row.hPa);
    EXPECT_EQ(12.0, row.gnssAltitude);

    // Rows across the reader's blocks, after a comment longer than a block.
    std::string big = "#" + std::string(3 << 20, '-') + "\n";
    for (int i = 0; i < 200000; ++i) big += std::to_string(i) + ",1000.125\n";
    TraceReader large(write(big));
    size_t n = 0;
    while (large.next(&row)) ++n;
    EXPECT_EQ(200000u, n);
    EXPECT_EQ(199999.0, row.seconds);
    EXPECT_EQ(1000.125, row.hPa);

    // A device never ends and a FIFO would block: neither is read.
    TraceReader device("/dev/zero");
    EXPECT_FALSE(device.next(&row));
    EXPECT_EQ("/dev/zero: not a regular file", device.error());
}

}  // namespace
