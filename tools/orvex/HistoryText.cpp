// The calibration-history text: read into entries, and one entry taken out again.
#include "HistoryText.h"

#include <glib.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "OrvexStorageMgr.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

const char kEntry[] = "T:";
const char kPressure[] = ";P+";

// Where the entry starting at `at` ends: at the next entry, or at the end of the text.
size_t entryEnd(const std::string& text, size_t at) {
    size_t next = text.find(kEntry, at + 2);
    return next == std::string::npos ? text.size() : next;
}

bool readTime(const std::string& text, long long* t) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    *t = g_ascii_strtoll(text.c_str(), &end, 10);
    return *end == '\0' && errno == 0;
}

bool readPressure(const std::string& text, double* hpa) {
    if (text.empty()) return false;
    char* end = nullptr;
    *hpa = g_ascii_strtod(text.c_str(), &end);
    return *end == '\0' && std::isfinite(*hpa);
}

}  // namespace

std::vector<HistoryEntry> readHistory(const std::string& text) {
    std::vector<HistoryEntry> entries;
    for (size_t at = text.find(kEntry); at != std::string::npos; at = text.find(kEntry, at + 2)) {
        const std::string entry = text.substr(at + 2, entryEnd(text, at) - at - 2);
        const size_t sep = entry.find(kPressure);
        HistoryEntry e{};
        if (sep != std::string::npos && readTime(entry.substr(0, sep), &e.time) &&
            readPressure(entry.substr(sep + 3), &e.slp))
            entries.push_back(e);
    }
    return entries;
}

std::string storedHistoryText(OrvexStorageMgr* store) {
    char* raw = store->getDataSLPHistory();
    std::string text = raw ? raw : "";
    free(raw);
    return text;
}

std::vector<HistoryEntry> storedHistory(OrvexStorageMgr* store) {
    return readHistory(storedHistoryText(store));
}

std::string withoutEntry(const std::string& text, long long time) {
    const std::string head = kEntry + std::to_string(time) + kPressure;
    const size_t at = text.rfind(head);
    if (at == std::string::npos) return text;
    return text.substr(0, at) + text.substr(entryEnd(text, at));
}

long long storedCalibrationTime(OrvexStorageMgr* store) {
    try {
        return store->getDataCalTime();
    } catch (const std::exception&) {
        return 0;
    }
}

std::string calibrationTimeText(long long time) {
    return time == 0 ? "never" : formatTime(time, "%Y-%m-%d %H:%M:%S");
}

}  // namespace orvex_tool
