// The table of the location service's back ends, the chooser, and the checks of its settings.
#include <glib.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>

#include "core/host_internal.h"
#include "location/location_source.h"
#include "orvex_host/plausible.h"
#include "platform/dlog.h"

namespace orvex_host {
namespace location {

// Each in its back end's file.
std::unique_ptr<Source> makeFixedSource();
std::unique_ptr<Source> makeTrackSource();
std::unique_ptr<Source> makeGpsdSource();

namespace {

const Backend kBackends[] = {
    {"fixed", "the position set with 'location set' (the default)", makeFixedSource},
    {"track", "replay of the file given to 'location track' (GPX 1.0/1.1 or CSV)", makeTrackSource},
    {"gpsd", "the fixes of a gpsd daemon (default localhost:2947); up while it has a fix",
     makeGpsdSource},
    {nullptr, nullptr, nullptr},
};

// The service's own settings, beside the back ends'.
const char* const kFlags[] = {"location_enabled", "location_supported", "location_enable_answer",
                              nullptr};

std::string quoted(const std::string& value) { return "'" + value + "'"; }

std::string names() {
    std::string text;
    for (const Backend* b = kBackends; b->name; ++b) {
        if (!text.empty()) text += (b + 1)->name ? ", " : " or ";
        text += b->name;
    }
    return text;
}

std::string envName(const std::string& key) {
    std::string env = "ORVEX_HOST_" + key;
    for (auto& c : env) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return env;
}

const Backend* settingOwner(const std::string& key) {
    for (const Backend* b = kBackends; b->name; ++b)
        for (const char* const* k = prototype(b).settings(); *k; ++k)
            if (key == *k) return b;
    return nullptr;
}

// The configured name; the track when only a track file is set (a choice made before the back
// end had a setting of its own, or by the environment).
std::string configuredName() {
    if (auto name = orvex_host::config("location_backend")) return *name;
    const char* track = nameOf(makeTrackSource);
    return orvex_host::config("location_track") ? track : kBackends[0].name;
}

struct Chosen {
    const Backend* backend = nullptr;
    std::unique_ptr<Source> source;
    bool started = false;
} g_chosen;

void resetChosen() {
    if (g_chosen.source && g_chosen.started) g_chosen.source->stop();
    g_chosen = Chosen{};
}

[[maybe_unused]] const bool g_reset = orvex_host::onReset(&resetChosen);

}  // namespace

const Backend* backends() { return kBackends; }

const Backend* findBackend(const std::string& name) {
    for (const Backend* b = kBackends; b->name; ++b)
        if (name == b->name) return b;
    return nullptr;
}

const Source& prototype(const Backend* backend) {
    static std::unique_ptr<Source> made[std::size(kBackends)];
    auto& p = made[size_t(backend - kBackends)];
    if (!p) p = backend->make();
    return *p;
}

const char* const* Source::settings() const {
    static const char* const none[] = {nullptr};
    return none;
}

std::string Source::checkSetting(const std::string&, const std::string&) const { return ""; }

const char* nameOf(std::unique_ptr<Source> (*make)()) {
    for (const Backend* b = kBackends; b->name; ++b)
        if (b->make == make) return b->name;
    return nullptr;
}

std::string settingProblem(const std::string& key, const std::string& value) {
    if (key == "location_backend")
        return findBackend(value)
                   ? ""
                   : "unknown location back end " + quoted(value) + " (" + names() + ")";
    for (const char* const* k = kFlags; *k; ++k)
        if (key == *k) return value == "0" || value == "1" ? "" : quoted(value) + " is not 0 or 1";
    const Backend* owner = settingOwner(key);
    return owner ? prototype(owner).checkSetting(key, value) : "no location setting " + quoted(key);
}

std::string configProblem() {
    auto check = [](const char* key) -> std::string {
        const char* value = getenv(envName(key).c_str());
        if (!value) return "";
        std::string problem = settingProblem(key, value);
        return problem.empty() ? "" : envName(key) + ": " + problem;
    };
    std::string problem = check("location_backend");
    for (const char* const* k = kFlags; problem.empty() && *k; ++k) problem = check(*k);
    for (const Backend* b = kBackends; problem.empty() && b->name; ++b)
        for (const char* const* k = prototype(b).settings(); problem.empty() && *k; ++k)
            problem = check(*k);
    return problem;
}

bool flag(const char* key, bool fallback) {
    auto v = orvex_host::config(key);
    if (!v || !settingProblem(key, *v).empty()) return fallback;
    return *v == "1";
}

Source* chosenSource() {
    const Backend* wanted = findBackend(configuredName());
    if (!wanted || !configProblem().empty()) {
        resetChosen();
        return nullptr;
    }
    if (g_chosen.backend != wanted) {
        bool started = g_chosen.started;
        resetChosen();
        g_chosen.backend = wanted;
        g_chosen.source = wanted->make();
        if (started) {
            g_chosen.started = true;
            g_chosen.source->start();
        }
    }
    return g_chosen.source.get();
}

const char* chosenName() {
    const Backend* b = findBackend(configuredName());
    return b ? b->name : nullptr;
}

// Starts or stops the chosen source as managers start and stop.
void runChosen(bool wanted) {
    Source* source = chosenSource();
    if (!source || g_chosen.started == wanted) return;
    g_chosen.started = wanted;
    if (wanted)
        source->start();
    else
        source->stop();
}

bool parseNumber(const std::string& text, double* value) {
    const char* p = text.c_str();
    while (g_ascii_isspace(*p)) ++p;
    // g_ascii_strtod also takes "nan", "inf" and hex; only plain decimals are numbers here.
    const char* digits = p + (*p == '+' || *p == '-');
    if (!g_ascii_isdigit(*digits) && *digits != '.') return false;
    char* end = nullptr;
    *value = g_ascii_strtod(p, &end);
    if (end == p || strpbrk(p, "xX")) return false;
    while (g_ascii_isspace(*end)) ++end;
    return *end == '\0' && std::isfinite(*value);
}

std::string implausibleAltitude(double metres) {
    g_autofree char* text =
        g_strdup_printf("altitude %g m is implausible (an altitude is %g to %g m)", metres,
                        ORVEX_HOST_ALTITUDE_MIN_M, ORVEX_HOST_ALTITUDE_MAX_M);
    return text;
}

std::string implausibleTime(const std::string& text) {
    g_autoptr(GDateTime) from = g_date_time_new_from_unix_utc(ORVEX_HOST_TIME_MIN);
    g_autoptr(GDateTime) to = g_date_time_new_from_unix_utc(ORVEX_HOST_TIME_MAX);
    return "time " + text + " is implausible (a time is " +
           std::to_string(g_date_time_get_year(from)) + " to " +
           std::to_string(g_date_time_get_year(to)) + ")";
}

void logError(const std::string& message) {
    __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "ORVEX_HOST", "%s", message.c_str());
}

void logInfo(const std::string& message) {
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "ORVEX_HOST", "%s", message.c_str());
}

}  // namespace location
}  // namespace orvex_host
