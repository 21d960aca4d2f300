// The settings as the settings command shows them, for the commands that end by showing them.
#ifndef ORVEX_TOOL_SETTINGS_COMMAND_H
#define ORVEX_TOOL_SETTINGS_COMMAND_H

#include "Tool.h"

class OrvexStorageMgr;

namespace orvex_tool {

int showSettings(const Options& options, OrvexStorageMgr* store);

}  // namespace orvex_tool

#endif
