// The calibration history and the last calibration, as the store keeps them.
#include <iostream>
#include <vector>

#include "HistoryText.h"
#include "OrvexStorageMgr.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runHistory(const Options& options, const Args& args);

const Command kHistory{"history", "show the calibration history and the last calibration", "",
                       runHistory};
[[maybe_unused]] const bool registered = addCommand(kHistory);

int runHistory(const Options& options, const Args& args) {
    if (!args.empty()) return usageError(kHistory, "takes no arguments");
    if (!initialiseStore()) return fail(storeProblem());
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    std::vector<HistoryEntry> entries = storedHistory(store);
    long long last = storedCalibrationTime(store);
    if (options.json) {
        JsonLine json;
        json.add("slp_hpa", store->getDataSLP()).add("calibrated_at", last).beginArray("history");
        for (const auto& e : entries)
            json.beginObject().add("time", e.time).add("slp_hpa", e.slp).endObject();
        json.endArray().print();
        return 0;
    }
    printRows({{"sea-level pressure", formatDouble(store->getDataSLP(), 2) + " hPa"},
               {"last calibration", calibrationTimeText(last)}});
    if (entries.empty()) {
        std::cout << "no calibration recorded yet\n";
        return 0;
    }
    std::cout << "\n  time                  sea-level pressure\n";
    for (const auto& e : entries)
        std::cout << "  " << calibrationTimeText(e.time) << "   " << formatDouble(e.slp, 2)
                  << " hPa\n";
    return 0;
}

}  // namespace
}  // namespace orvex_tool
