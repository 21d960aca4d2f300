// Shared pieces of the orvex tool: command registry, options, output, units and waiting.
#ifndef ORVEX_TOOL_H
#define ORVEX_TOOL_H

#include <glib.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

struct _JsonBuilder;

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

// A time-out in seconds as a GLib source takes it, in milliseconds: anything above G_MAXUINT ms
// (infinity included) waits that long, the longest a source can. False for a value that is not a
// positive number.
bool parseTimeout(const std::string& text, guint* milliseconds);
// "0.3", "15": the time-out as the user gave it, for messages.
std::string secondsText(guint milliseconds);

// Parses args with GLib's option parser; the options are removed, the positional arguments stay.
// False after a usage error was reported (the exit code is then in *rc).
bool parseOptions(const Command& command, Args& args, GOptionEntry* entries, int* rc);

// One JSON object (or array of objects) built with json-glib and printed on a line of its own.
// Numbers that are not finite have no JSON form and are printed as null.
class JsonLine {
public:
    enum Root { Object, Array };
    explicit JsonLine(Root root = Object);
    ~JsonLine();
    JsonLine(const JsonLine&) = delete;
    JsonLine& operator=(const JsonLine&) = delete;

    JsonLine& add(const std::string& key, const std::string& value);
    JsonLine& add(const std::string& key, const char* value);  // null for nullptr
    JsonLine& add(const std::string& key, double value);
    JsonLine& add(const std::string& key, long long value);
    JsonLine& add(const std::string& key, int value);
    JsonLine& add(const std::string& key, bool value);
    JsonLine& addNull(const std::string& key);
    // An array under key; objects and strings go into it until endArray().
    JsonLine& beginArray(const std::string& key);
    JsonLine& beginObject();
    // An object under key; members go into it until endObject().
    JsonLine& beginObject(const std::string& key);
    JsonLine& endObject();
    JsonLine& addString(const std::string& value);
    JsonLine& endArray();
    void print();

private:
    _JsonBuilder* builder_;
    Root root_;
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
// A time in seconds since the epoch with a strftime-style format (g_date_time_format), in local
// time or in UTC; the number itself outside the years 1 to 9999.
std::string formatTime(long long t, const char* format, bool utc = false);

// "WHAT 2000 hPa is implausible (a sea-level pressure is 850 to 1100 hPa)"
std::string implausibleSlp(const std::string& what, double hpa);

// Text from outside (a server's error, a file name) made safe for a terminal: control characters,
// escape sequences and line breaks included, are shown as \xNN, so they can neither move the cursor
// nor forge a line of output.
std::string printable(const std::string& text);

enum class WaitEnd { Done, TimedOut, Interrupted };

// Runs the default main context until done() holds, timeoutMs passes (0: no time-out) or Ctrl-C
// (SIGINT) or SIGTERM arrives. done() is asked again after every event the loop handles. A command
// that was interrupted ends normally, so every singleton is still deleted on exit.
WaitEnd waitFor(const std::function<bool()>& done, guint timeoutMs);
// One line on stderr for a command that a signal interrupted; returns the exit code (130).
int interruptedExit();

// Opens the library's store the way the application does at start. False, with nothing written,
// when the store cannot be used (unreadable, corrupt) and when initialising it failed; say
// storeProblem() then.
bool initialiseStore();
// What failed in the host's store, in one line: the host's own account when it has one, otherwise
// the platform's error code of the failed call (0: none known).
std::string storeProblem(int code = 0);

}  // namespace orvex_tool

#endif
