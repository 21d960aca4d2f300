// Where the host's position comes from: 'orvex location backend' and 'orvex location track'.
#ifndef ORVEX_TOOL_LOCATION_BACKEND_H
#define ORVEX_TOOL_LOCATION_BACKEND_H

#include "Tool.h"

namespace orvex_tool {

// Usage lines of the two sub-commands, for the location command's help.
extern const char* const kLocationBackendUsage;

// args: what follows "backend": nothing (show), "fixed", "track" or "gpsd [--host H] [--port P]".
int runLocationBackend(const Options& options, const Args& args);
// args: what follows "track": FILE (GPX or CSV) or "none". A file that is no track is refused
// with one line naming the file and line, and the previous choice stays.
int runLocationTrack(const Options& options, const Args& args);

}  // namespace orvex_tool

#endif
