// Where the host's position comes from: 'orvex location backend' and 'orvex location track'.
#ifndef ORVEX_TOOL_LOCATION_BACKEND_H
#define ORVEX_TOOL_LOCATION_BACKEND_H

#include <string>

#include "Tool.h"

namespace orvex_tool {

// Usage lines of the two sub-commands, with the host's back ends, for the location command's help.
std::string locationBackendUsage();

// args: what follows "backend": nothing (show), or a back end's name, with --host and --port for
// gpsd.
int runLocationBackend(const Command& command, const Options& options, Args args);
// args: what follows "track": FILE (GPX or CSV) or "none". A file that is no track is refused
// with one line naming the file and line, and the previous choice stays.
int runLocationTrack(const Options& options, const Args& args);

// Why a host location setting cannot be used, one line for the user; empty when it can.
std::string locationSettingProblem(const char* key, const std::string& value);

}  // namespace orvex_tool

#endif
