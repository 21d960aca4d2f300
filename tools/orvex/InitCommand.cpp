// Initialises the store as the application does at its start, and shows the settings it holds.
#include "OrvexStorageMgr.h"
#include "SettingsCommand.h"
#include "Tool.h"

namespace orvex_tool {
namespace {

int runInit(const Options& options, const Args& args);

const Command kInit{"init", "initialise the store as the application does at start", "", runInit};
[[maybe_unused]] const bool registered = addCommand(kInit);

int runInit(const Options& options, const Args& args) {
    if (!args.empty()) return usageError(kInit, "takes no arguments");
    if (!initialiseStore()) return fail(storeProblem());
    return showSettings(options, OrvexStorageMgr::getInstance());
}

}  // namespace
}  // namespace orvex_tool
