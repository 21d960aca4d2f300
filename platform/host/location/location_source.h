// The shape of the host location service's back ends: what a source of position offers the
// service, the table of back ends, and what a source tells the service. One back end per file.
#ifndef ORVEX_HOST_LOCATION_SOURCE_H
#define ORVEX_HOST_LOCATION_SOURCE_H

#include <cmath>
#include <memory>
#include <optional>
#include <string>

namespace orvex_host {
namespace location {

struct Fix {
    double latitude = 0, longitude = 0;
    // Above mean sea level; NAN when the position has no height (no 3D fix, a point without one).
    double altitude = NAN;
    // Metres; NAN where the source does not say.
    double horizontalError = NAN, verticalError = NAN;
    // m/s positive up, degrees from true north, m/s; NAN where the source does not say.
    double climb = NAN, direction = NAN, speed = NAN;
};

class Source {
public:
    virtual ~Source() = default;
    // The first manager started, or the last one stopped. A source that watches something outside
    // (a receiver, a file being read) does so in between.
    virtual void start() {}
    virtual void stop() {}
    // Whether the service is up: a configured position always is, a track once read, a receiver
    // while it has a fix. A source whose answer changes says so with sourceUp().
    virtual bool up() = 0;
    // The position `sinceStart` seconds after the first manager started; nullopt when there is
    // none, and problem() then says why.
    virtual std::optional<Fix> position(double sinceStart) = 0;
    // Why there is no position now, one line; empty when there is one or none is needed.
    virtual std::string problem() = 0;

    // The back end's own host configuration keys, ending with nullptr.
    virtual const char* const* settings() const;
    // Why a value of one of them is refused, one line; empty when it is fine.
    virtual std::string checkSetting(const std::string& key, const std::string& value) const;
    // The setting the back end cannot be chosen without; nullptr for none.
    virtual const char* required() const { return nullptr; }
};

// What a source tells the service (location.cpp), on the main loop.
void sourceUp(bool up);
// A new fix of a source that has its own pace: the last known position from now on.
void sourceFix(const Fix& fix);

// One row of the table of back ends (location_backends.cpp), the only list of their names.
struct Backend {
    const char* name;
    const char* summary;  // one line for the tool's usage text
    std::unique_ptr<Source> (*make)();
};
// The rows, ending with a row whose name is nullptr; the first is the default.
const Backend* backends();
// The row of that name, nullptr for an unknown one.
const Backend* findBackend(const std::string& name);
// The name of the row whose factory that is (for the back end's own control functions).
const char* nameOf(std::unique_ptr<Source> (*make)());
// A source of the row's kind that is never started, for what the back end says of itself.
const Source& prototype(const Backend* backend);

// The back end chosen now and its source (made anew when the choice changed); nullptr, with
// configProblem() saying why, when the choice cannot be used.
Source* chosenSource();
const char* chosenName();
// Starts the chosen source when the first manager starts, stops it when the last one stops.
void runChosen(bool wanted);

// Why the location settings cannot be used (an ORVEX_HOST_LOCATION_* value that its option would
// refuse), one line naming the variable; empty when they can.
std::string configProblem();
// Why `value` is no usable setting `key` (a host configuration key, "location_gpsd_port"), one
// line that the tool's options and the environment share; empty when it is.
std::string settingProblem(const std::string& key, const std::string& value);
// A location flag ("location_enabled", ...); the fallback when it is unset or refused.
bool flag(const char* key, bool fallback);

// Texts for a value outside its plausible range.
std::string implausibleAltitude(double metres);
std::string implausibleTime(const std::string& text);

// Lines of the host's location service into the platform log.
void logError(const std::string& message);
void logInfo(const std::string& message);

// A whole text as one finite number (blanks around it allowed).
bool parseNumber(const std::string& text, double* value);

}  // namespace location
}  // namespace orvex_host

#endif
