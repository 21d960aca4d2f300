// Shared pieces of the orvex tool: command registry, options, output and units.
#ifndef ORVEX_TOOL_H
#define ORVEX_TOOL_H

#include <string>
#include <utility>
#include <vector>

namespace orvex_tool {

struct Options {
    bool verbose = false;
    bool json = false;
};

using Args = std::vector<std::string>;

struct Command {
    const char* name;
    const char* summary;
    const char* usage;  // the lines after "usage: orvex NAME", options included
    int (*run)(const Options& options, const Args& args);
};

// Each command file registers itself: `static const bool registered = addCommand({...});`
bool addCommand(const Command& command);
const std::vector<Command>& commands();

// One clear line on stderr; returns the exit code for the caller to pass on.
int fail(const std::string& message);
int usageError(const Command& command, const std::string& message);

// Parses a number as a whole argument; false when it is not one.
bool parseDouble(const std::string& text, double* value);
bool parseInt(const std::string& text, int* value);
bool parseLongLong(const std::string& text, long long* value);

// A flat JSON object written in insertion order.
class Json {
public:
    Json& add(const std::string& key, const std::string& value);
    Json& add(const std::string& key, const char* value);
    Json& add(const std::string& key, double value);
    Json& add(const std::string& key, int value);
    Json& add(const std::string& key, long long value);
    Json& add(const std::string& key, bool value);
    Json& addNull(const std::string& key);
    Json& addRaw(const std::string& key, const std::string& json);
    std::string str() const;

    static std::string quote(const std::string& text);

private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

// Prints aligned "label   value" rows.
void printRows(const std::vector<std::pair<std::string, std::string>>& rows);

// Units of the settings as people read them.
const char* distanceUnitName(int code);    // "metres", "feet"
const char* distanceUnitSymbol(int code);  // "m", "ft"
const char* pressureUnitName(int code);    // "hectopascals", ...
const char* pressureUnitSymbol(int code);  // "hPa", "inHg", "mmHg"
double metresTo(int distanceCode, double metres);
double hpaTo(int pressureCode, double hpa);
std::string formatDouble(double value, int decimals);

// Runs the loop until something quits it or Ctrl-C (SIGINT) or SIGTERM arrives; false when a
// signal ended it. The caller then ends normally, so every singleton is still deleted on exit.
bool runMainLoop(struct _GMainLoop* loop);
// One line on stderr for a command that a signal interrupted; returns the exit code (130).
int interruptedExit();

// Opens the library's store the way the application does at start.
bool initialiseStore();

}  // namespace orvex_tool

#endif
