// The one reader of the calibration-history text the library keeps: "T:<time>;P+<hPa>" per entry,
// with nothing between the entries.
#ifndef ORVEX_TOOL_HISTORY_TEXT_H
#define ORVEX_TOOL_HISTORY_TEXT_H

#include <string>
#include <vector>

class OrvexStorageMgr;

namespace orvex_tool {

struct HistoryEntry {
    long long time;
    double slp;
};

// The entries in the order they were added. An entry whose time or pressure is not a number (a
// text written by hand, a value no long long holds) is left out.
std::vector<HistoryEntry> readHistory(const std::string& text);

// The store's history text, and its entries.
std::string storedHistoryText(OrvexStorageMgr* store);
std::vector<HistoryEntry> storedHistory(OrvexStorageMgr* store);

// The stored calibration time; a text that is not a number reads as none (0).
long long storedCalibrationTime(OrvexStorageMgr* store);
// A calibration time as people read it, "never" for none.
std::string calibrationTimeText(long long time);

// The text without the entry of `time`, as the library added it; the text as it is when there is
// no such entry.
std::string withoutEntry(const std::string& text, long long time);

}  // namespace orvex_tool

#endif
