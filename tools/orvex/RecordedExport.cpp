// `orvex recorded --csv` and `--svg FILE`: the recorded hours as rows and as a chart to keep.
#include "RecordedExport.h"

#include <glib.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <iostream>
#include <sstream>

#include "HistoryText.h"
#include "OrvexStorageMgr.h"
#include "ReplaceFile.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

constexpr long long kWindow = 6 * 3600;

// Numbers in files never follow the locale: a decimal comma would break both formats.
std::string num(double v, int decimals) {
    char format[8];
    snprintf(format, sizeof format, "%%.%df", decimals);
    char buf[G_ASCII_DTOSTR_BUF_SIZE];
    return g_ascii_formatd(buf, sizeof buf, format, v);
}

std::string escaped(const std::string& text) {
    char* e = g_markup_escape_text(text.c_str(), -1);
    std::string out = e;
    g_free(e);
    return out;
}

// A step of 1, 2 or 5 times a power of ten that cuts the span into about `parts` pieces.
double niceStep(double span, int parts) {
    double raw = span / parts;
    double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    for (double f : {1.0, 2.0, 5.0})
        if (f * magnitude >= raw) return f * magnitude;
    return 10.0 * magnitude;
}

// Times of every calibration the store remembers: the history's entries and the last one.
std::vector<long long> calibrationTimes(OrvexStorageMgr* store) {
    std::vector<long long> times;
    for (const HistoryEntry& e : storedHistory(store)) times.push_back(e.time);
    try {
        if (long long last = store->getDataCalTime(); last > 0) times.push_back(last);
    } catch (const std::exception&) {
        // A calibration time that is not a number marks nothing.
    }
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    return times;
}

}  // namespace

std::string leftOutText(size_t leftOut) {
    return std::to_string(leftOut) + (leftOut == 1 ? " record" : " records") +
           " left out (not a plausible pressure)";
}

void writeRecordedCsv(std::ostream& out, const Records& records, int distanceUnit) {
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    out << "time,pressure_hpa,altitude_" << distanceUnitSymbol(distanceUnit) << "\n";
    for (const auto& [t, hpa] : records) {
        double altitude = metresTo(distanceUnit, store->getAltivalue(hpa));
        out << formatTime(t, "%Y-%m-%dT%H:%M:%SZ", true) << ',' << num(hpa, 2) << ','
            << (std::isfinite(altitude) ? num(altitude, 1) : "") << "\n";
    }
}

void writeRecordedSvg(std::ostream& out, const Records& records, int pressureUnit,
                      const std::vector<long long>& calibrations, size_t leftOut) {
    constexpr double kWidth = 800, kHeight = 420;
    constexpr double kLeft = 80, kRight = 770, kTop = 40, kBottom = 350;
    const std::string unit = pressureUnitSymbol(pressureUnit);

    long long t0 = records.empty() ? 0 : records.front().first;
    long long t1 = records.empty() ? 0 : records.back().first;
    // A calibration after the last record still belongs to the window the records came from.
    for (long long c : calibrations)
        if (c > t1 && c <= t0 + kWindow) t1 = c;
    if (t1 <= t0) t1 = t0 + 60;
    std::vector<double> values;
    for (const auto& r : records) values.push_back(hpaTo(pressureUnit, r.second));
    double lo = values.empty() ? 0 : *std::min_element(values.begin(), values.end());
    double hi = values.empty() ? 1 : *std::max_element(values.begin(), values.end());
    if (hi - lo < 1e-6) {
        lo -= 0.5;
        hi += 0.5;
    }
    const double pStep = niceStep(hi - lo, 5);
    lo = std::floor(lo / pStep) * pStep;
    hi = std::ceil(hi / pStep) * pStep;
    const int decimals = pStep >= 1 ? 0 : pStep >= 0.1 ? 1 : 2;

    auto x = [&](long long t) {
        return kLeft +
               (kRight - kLeft) * static_cast<double>(t - t0) / static_cast<double>(t1 - t0);
    };
    auto y = [&](double v) { return kBottom - (kBottom - kTop) * (v - lo) / (hi - lo); };

    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\""
        << kHeight << "\" viewBox=\"0 0 " << kWidth << ' ' << kHeight
        << "\" font-family=\"sans-serif\" font-size=\"12\">\n"
        << "<title>" << escaped("Recorded pressure") << "</title>\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
        << "<text x=\"" << (kLeft + kRight) / 2 << "\" y=\"24\" text-anchor=\"middle\" "
        << "font-size=\"15\">"
        << escaped("Recorded pressure, " + formatTime(t0, "%Y-%m-%d %H:%M", false) + " to " +
                   formatTime(t1, "%Y-%m-%d %H:%M", false))
        << "</text>\n";

    // Pressure ticks and grid.
    for (int i = 0; lo + i * pStep <= hi + pStep / 2; ++i) {
        double v = lo + i * pStep;
        out << "<line x1=\"" << kLeft - 5 << "\" x2=\"" << kRight << "\" y1=\"" << num(y(v), 1)
            << "\" y2=\"" << num(y(v), 1) << "\" stroke=\"#dddddd\"/>\n"
            << "<text x=\"" << kLeft - 8 << "\" y=\"" << num(y(v) + 4, 1)
            << "\" text-anchor=\"end\">" << escaped(num(v, decimals)) << "</text>\n";
    }
    // Time ticks on whole steps of the clock.
    long long tStep = 60;
    for (long long s : {60, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400})
        if ((t1 - t0) / s <= 8) {
            tStep = s;
            break;
        }
    for (long long t = (t0 + tStep - 1) / tStep * tStep; t <= t1; t += tStep)
        out << "<line x1=\"" << num(x(t), 1) << "\" x2=\"" << num(x(t), 1) << "\" y1=\"" << kBottom
            << "\" y2=\"" << kBottom + 5 << "\" stroke=\"black\"/>\n"
            << "<text x=\"" << num(x(t), 1) << "\" y=\"" << kBottom + 20
            << "\" text-anchor=\"middle\">" << escaped(formatTime(t, "%H:%M", false))
            << "</text>\n";
    out << "<polyline points=\"" << kLeft << ',' << kTop << ' ' << kLeft << ',' << kBottom << ' '
        << kRight << ',' << kBottom << "\" fill=\"none\" stroke=\"black\"/>\n"
        << "<text x=\"" << (kLeft + kRight) / 2 << "\" y=\"" << kBottom + 42
        << "\" text-anchor=\"middle\">" << escaped("time (local)") << "</text>\n"
        << "<text transform=\"translate(22 " << (kTop + kBottom) / 2
        << ") rotate(-90)\" text-anchor=\"middle\">" << escaped("pressure (" + unit + ")")
        << "</text>\n";

    for (long long c : calibrations) {
        if (c < t0 || c > t1) continue;
        out << "<line class=\"calibration\" x1=\"" << num(x(c), 1) << "\" x2=\"" << num(x(c), 1)
            << "\" y1=\"" << kTop << "\" y2=\"" << kBottom
            << "\" stroke=\"#c62828\" stroke-width=\"1.5\" stroke-dasharray=\"6 4\"/>\n"
            << "<text x=\"" << num(x(c) - 4, 1) << "\" y=\"" << kTop + 12
            << "\" text-anchor=\"end\" fill=\"#c62828\">"
            << escaped("calibrated " + formatTime(c, "%H:%M", false)) << "</text>\n";
    }

    if (leftOut > 0)
        out << "<text class=\"note\" x=\"" << kRight << "\" y=\"" << kHeight - 8
            << "\" text-anchor=\"end\" fill=\"#c62828\">" << escaped(leftOutText(leftOut))
            << "</text>\n";
    out << "<polyline class=\"pressure\" fill=\"none\" stroke=\"#1565c0\" stroke-width=\"2\" "
           "points=\"";
    for (size_t i = 0; i < values.size(); ++i)
        out << (i ? " " : "") << num(x(records[i].first), 1) << ',' << num(y(values[i]), 1);
    out << "\"/>\n</svg>\n";
}

int exportRecords(ExportFormat format, const std::string& file, const Records& records,
                  size_t leftOut) {
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    std::ostringstream text;
    if (format == ExportFormat::Csv)
        writeRecordedCsv(text, records, store->getSettingDistance());
    else
        writeRecordedSvg(text, records, store->getSettingPressure(), calibrationTimes(store),
                         leftOut);
    if (file.empty()) {
        std::cout << text.str();
        return std::cout.flush() ? 0 : fail("cannot write the rows");
    }
    std::string error;
    if (!replaceFile(file, text.str(), &error)) return fail(printable(error));
    std::cout << (format == ExportFormat::Csv ? "rows of " : "chart of ") << records.size()
              << " records written to " << printable(file) << "\n";
    return 0;
}

}  // namespace orvex_tool
