// The GNSS calibration policy on fix sequences: each gate refuses on its own, the rest settle.
#include <gtest/gtest.h>
#include "CalibrationPolicy.h"

using orvex_tool::CalibrationPolicy;
using orvex_tool::GnssFix;
using Verdict = CalibrationPolicy::Verdict;

namespace {

struct Row {
    using Edit = void (*)(int, GnssFix&);
    using Baro = double (*)(int, double);
    Row(const char* n, Verdict v = Verdict::Settled, Edit e = nullptr)
        : name(n), expected(v), edit(e) {}
    Row& run(int n, double seconds) {
        fixes = n;
        spacing = seconds;
        return *this;
    }
    Row& readings(int n, double spread) {
        readingsPerFix = n;
        baroSpread = spread;
        return *this;
    }

    const char* name;
    Verdict expected;
    Edit edit;                    // a fix's defect
    Baro baroAltitude = nullptr;  // reading index, usual altitude -> the altitude read
    int fixes = 12;
    double spacing = 3.0;  // seconds between fixes
    int readingsPerFix = 2;
    double baroSpread = 0.4;  // m, alternating around 300 m
    int repeat = 1;           // times each fix is given
};

// A receiver standing at 574 m above sea level (heights alternating 0.5 m around it) with a
// barometer reading twice per fix.
Verdict feed(CalibrationPolicy& policy, const Row& row) {
    int reading = 0;
    for (int i = 0; i < row.fixes; ++i) {
        for (int r = 0; r < row.readingsPerFix; ++r, ++reading) {
            double altitude = 300.0 + (reading % 2 ? row.baroSpread / 2 : -row.baroSpread / 2);
            if (row.baroAltitude) altitude = row.baroAltitude(reading, altitude);
            policy.addReading(950.0 + (reading % 2 ? 0.02 : -0.02), altitude);
        }
        GnssFix fix;
        fix.time = 1700000000.0 + i * row.spacing;
        fix.threeD = true;
        fix.latitude = 47.2692;
        fix.longitude = 11.4041;
        fix.altMsl = 574.0 + (i % 2 ? 0.5 : -0.5);
        fix.verticalError = 4.0;
        fix.climb = 0.02;
        if (row.edit) row.edit(i, fix);
        for (int k = 0; k < row.repeat; ++k) policy.addFix(fix);
    }
    return policy.verdict();
}

TEST(CalibrationPolicyTest, SettlesOnlyOnAStillThreeDimensionalFixAboveSeaLevel) {
    Row slide("window slides past a climb");
    // Still climbing by barometer during the first fixes; the window moves past them.
    slide.baroAltitude = [](int reading, double usual) {
        return reading < 16 ? 280.0 + reading : usual;
    };
    slide.fixes = 24;
    // A receiver polled faster than it fixes gives the same fix again.
    Row twice("8 fixes over 42 s, each seen twice", Verdict::TooFewFixes);
    twice.run(8, 6.0).repeat = 2;
    const Row rows[] = {
        Row("settled on altMSL"),
        Row("settled on altHAE - geoidSep", Verdict::Settled,
            [](int, GnssFix& f) {
                f.altHae = f.altMsl + 47.3;
                f.geoidSep = 47.3;
                f.altMsl = NAN;
            }),
        Row("error and climb not reported count as good", Verdict::Settled,
            [](int, GnssFix& f) { f.verticalError = f.climb = NAN; }),
        Row("2D fixes", Verdict::NotThreeD, [](int, GnssFix& f) { f.threeD = false; }),
        Row("latitude not a number", Verdict::NotFinite, [](int, GnssFix& f) { f.latitude = NAN; }),
        Row("ellipsoid height alone", Verdict::NoMslHeight,
            [](int, GnssFix& f) {
                f.altHae = 621.0;
                f.altMsl = NAN;
            }),
        Row("vertical error 12 m", Verdict::VerticalError,
            [](int, GnssFix& f) { f.verticalError = 12.0; }),
        Row("descending 0.15 m/s", Verdict::Climbing, [](int, GnssFix& f) { f.climb = -0.15; }),
        Row("9 fixes over 40 s", Verdict::TooFewFixes).run(9, 5.0),
        Row("15 fixes over 28 s", Verdict::TooShort).run(15, 2.0),
        Row("no barometer readings", Verdict::TooFewReadings).readings(0, 0.4),
        Row("barometer wandering 1.5 m", Verdict::BaroUnsteady).readings(2, 1.5),
        Row("a 2D fix restarts the run", Verdict::TooShort,
            [](int i, GnssFix& f) { f.threeD = i != 12; })
            .run(20, 3.0),
        slide,
        twice,
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CalibrationPolicy policy;
        EXPECT_EQ(row.expected, feed(policy, row)) << CalibrationPolicy::describe(policy.verdict());
        if (row.expected != Verdict::Settled) continue;
        const auto& w = policy.window();
        EXPECT_NEAR(574.0, w.altitudeM, 0.05);
        EXPECT_NEAR(950.0, w.pressureHpa, 0.021);
        EXPECT_GE(w.fixes, CalibrationPolicy::kMinFixes);
        EXPECT_GE(w.spanSeconds, CalibrationPolicy::kMinSpanSeconds);
        EXPECT_LE(w.baroRangeM, CalibrationPolicy::kMaxBaroRangeM);
    }
}

}  // namespace
