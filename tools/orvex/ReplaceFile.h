// Writing a file the user asked for as a whole or not at all.
#ifndef ORVEX_TOOL_REPLACE_FILE_H
#define ORVEX_TOOL_REPLACE_FILE_H

#include <string>

namespace orvex_tool {

// Writes text to path through a temporary file in the same directory, synced and then renamed over
// the target, so that a full disk or a crash leaves the earlier file whole. A target that is a
// symbolic link (dangling or not) or not a regular file is refused, never followed. False with a
// one-line *error when nothing was written; the earlier file is then as it was.
bool replaceFile(const std::string& path, const std::string& text, std::string* error);

}  // namespace orvex_tool

#endif
