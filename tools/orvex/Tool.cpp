// Shared pieces of the orvex tool: command registry, options, output, units and waiting.
#include "Tool.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>

#include <glib-unix.h>
#include <glib.h>
#include <json-glib/json-glib.h>
#include <orvex_host/plausible.h>

#include <csignal>

#include "OrvexStorageMgr.h"
#include "orvex_host/control.h"

namespace orvex_tool {

namespace {
std::vector<Command>& registry() {
    static std::vector<Command> list;
    return list;
}
}  // namespace

bool addCommand(const Command& command) {
    registry().push_back(command);
    return true;
}

const std::vector<Command>& commands() { return registry(); }

int fail(const std::string& message) {
    std::cerr << "orvex: error: " << message << "\n";
    return 1;
}

int usageError(const Command& command, const std::string& message) {
    std::cerr << "orvex " << command.name << ": " << message << " (see 'orvex " << command.name
              << " --help')\n";
    return 2;
}

bool parseDouble(const std::string& text, double* value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    double v = strtod(text.c_str(), &end);
    if (*end != '\0' || errno == ERANGE || !std::isfinite(v)) return false;
    *value = v;
    return true;
}

bool parseLongLong(const std::string& text, long long* value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    long long v = strtoll(text.c_str(), &end, 10);
    if (*end != '\0' || errno == ERANGE) return false;
    *value = v;
    return true;
}

bool parseInt(const std::string& text, int* value) {
    long long v = 0;
    if (!parseLongLong(text, &v) || v < -2147483648LL || v > 2147483647LL) return false;
    *value = static_cast<int>(v);
    return true;
}

bool parseTimeout(const std::string& text, guint* milliseconds) {
    if (text.empty()) return false;
    char* end = nullptr;
    double seconds = g_ascii_strtod(text.c_str(), &end);
    // Overflow gives infinity, which clamps like any other value too long for a source.
    if (*end != '\0' || std::isnan(seconds) || seconds <= 0) return false;
    double ms = std::ceil(seconds * 1000.0);
    *milliseconds = ms >= static_cast<double>(G_MAXUINT) ? G_MAXUINT : static_cast<guint>(ms);
    return true;
}

std::string secondsText(guint milliseconds) {
    char text[32];
    snprintf(text, sizeof text, "%g", milliseconds / 1000.0);
    return text;
}

bool parseOptions(const Command& command, Args& args, GOptionEntry* entries, int* rc) {
    std::vector<char*> argv;
    argv.push_back(g_strdup(command.name));
    for (const auto& a : args) argv.push_back(g_strdup(a.c_str()));
    argv.push_back(nullptr);
    auto** strv = static_cast<char**>(g_memdup2(argv.data(), argv.size() * sizeof(char*)));
    GOptionContext* context = g_option_context_new(nullptr);
    g_option_context_set_help_enabled(context, FALSE);
    // A negative number ("-73.98", a longitude) is an argument, not an option: GLib leaves what it
    // does not know, and only what is not a number is refused below.
    g_option_context_set_ignore_unknown_options(context, TRUE);
    g_option_context_add_main_entries(context, entries, nullptr);
    GError* error = nullptr;
    bool ok = g_option_context_parse_strv(context, &strv, &error);
    if (ok) {
        args.assign(strv + 1, strv + g_strv_length(strv));
        double number = 0;
        for (const auto& a : args) {
            if (a.size() > 1 && a[0] == '-' && !parseDouble(a, &number)) {
                *rc = usageError(command, "Unknown option " + a);
                ok = false;
                break;
            }
        }
    } else {
        *rc = usageError(command, error->message);
        g_error_free(error);
    }
    g_option_context_free(context);
    g_strfreev(strv);
    return ok;
}

JsonLine::JsonLine(Root root) : builder_(json_builder_new()), root_(root) {
    if (root_ == Array)
        json_builder_begin_array(builder_);
    else
        json_builder_begin_object(builder_);
}

JsonLine::~JsonLine() { g_object_unref(builder_); }

JsonLine& JsonLine::add(const std::string& key, const std::string& value) {
    json_builder_set_member_name(builder_, key.c_str());
    json_builder_add_string_value(builder_, value.c_str());
    return *this;
}

JsonLine& JsonLine::add(const std::string& key, const char* value) {
    return value ? add(key, std::string(value)) : addNull(key);
}

JsonLine& JsonLine::add(const std::string& key, double value) {
    if (!std::isfinite(value)) return addNull(key);
    json_builder_set_member_name(builder_, key.c_str());
    json_builder_add_double_value(builder_, value);
    return *this;
}

JsonLine& JsonLine::add(const std::string& key, long long value) {
    json_builder_set_member_name(builder_, key.c_str());
    json_builder_add_int_value(builder_, value);
    return *this;
}

JsonLine& JsonLine::add(const std::string& key, int value) {
    return add(key, static_cast<long long>(value));
}

JsonLine& JsonLine::add(const std::string& key, bool value) {
    json_builder_set_member_name(builder_, key.c_str());
    json_builder_add_boolean_value(builder_, value);
    return *this;
}

JsonLine& JsonLine::addNull(const std::string& key) {
    json_builder_set_member_name(builder_, key.c_str());
    json_builder_add_null_value(builder_);
    return *this;
}

JsonLine& JsonLine::beginArray(const std::string& key) {
    json_builder_set_member_name(builder_, key.c_str());
    json_builder_begin_array(builder_);
    return *this;
}

JsonLine& JsonLine::beginObject() {
    json_builder_begin_object(builder_);
    return *this;
}

JsonLine& JsonLine::beginObject(const std::string& key) {
    json_builder_set_member_name(builder_, key.c_str());
    json_builder_begin_object(builder_);
    return *this;
}

JsonLine& JsonLine::endObject() {
    json_builder_end_object(builder_);
    return *this;
}

JsonLine& JsonLine::addString(const std::string& value) {
    json_builder_add_string_value(builder_, value.c_str());
    return *this;
}

JsonLine& JsonLine::endArray() {
    json_builder_end_array(builder_);
    return *this;
}

void JsonLine::print() {
    if (root_ == Array)
        json_builder_end_array(builder_);
    else
        json_builder_end_object(builder_);
    JsonNode* root = json_builder_get_root(builder_);
    JsonGenerator* generator = json_generator_new();
    json_generator_set_root(generator, root);
    gchar* text = json_generator_to_data(generator, nullptr);
    // Flushed at once: a script reading `live --json` sees each line as it comes.
    std::cout << text << std::endl;
    g_free(text);
    g_object_unref(generator);
    json_node_unref(root);
}

void printRows(const std::vector<std::pair<std::string, std::string>>& rows) {
    size_t width = 0;
    for (const auto& r : rows) width = std::max(width, r.first.size());
    for (const auto& r : rows)
        std::cout << r.first << std::string(width - r.first.size() + 3, ' ') << r.second << "\n";
}

const char* distanceUnitName(int code) { return code == 1 ? "feet" : "metres"; }
const char* distanceUnitSymbol(int code) { return code == 1 ? "ft" : "m"; }

const char* pressureUnitName(int code) {
    switch (code) {
        case 1:
            return "inches of mercury";
        case 2:
            return "millimetres of mercury";
        default:
            return "hectopascals";
    }
}

const char* pressureUnitSymbol(int code) {
    switch (code) {
        case 1:
            return "inHg";
        case 2:
            return "mmHg";
        default:
            return "hPa";
    }
}

double metresTo(int distanceCode, double metres) {
    return distanceCode == 1 ? metres / 0.3048 : metres;
}

double hpaTo(int pressureCode, double hpa) {
    switch (pressureCode) {
        case 1:
            return hpa * 100.0 / 3386.389;
        case 2:
            return hpa * 100.0 / 133.322387415;
        default:
            return hpa;
    }
}

std::string printable(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7f) {
            char escaped[5];
            snprintf(escaped, sizeof escaped, "\\x%02x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string formatDouble(double value, int decimals) {
    char buf[64];
    snprintf(buf, sizeof buf, "%.*f", decimals, value);
    return buf;
}

// GDateTime counts in 64-bit seconds, so a 32-bit time_t (armhf) still shows the years past 2038.
std::string formatTime(long long t, const char* format, bool utc) {
    g_autoptr(GDateTime) when =
        utc ? g_date_time_new_from_unix_utc(t) : g_date_time_new_from_unix_local(t);
    g_autofree char* text = when ? g_date_time_format(when, format) : nullptr;
    return text ? text : std::to_string(t);
}

std::string implausibleSlp(const std::string& what, double hpa) {
    char text[160];
    snprintf(text, sizeof text, "%s %g hPa is implausible (a sea-level pressure is %g to %g hPa)",
             what.c_str(), hpa, ORVEX_HOST_SLP_MIN_HPA, ORVEX_HOST_SLP_MAX_HPA);
    return text;
}

namespace {
gboolean raiseFlag(gpointer flag) {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_CONTINUE;
}
}  // namespace

WaitEnd waitFor(const std::function<bool()>& done, guint timeoutMs) {
    // Removes the sources however the wait ends: a library callback may throw through it.
    struct Sources {
        bool signalled = false, expired = false;
        guint ids[3] = {0, 0, 0};
        ~Sources() {
            for (guint id : ids)
                if (id) g_source_remove(id);
        }
    } s;
    s.ids[0] = g_unix_signal_add(SIGINT, raiseFlag, &s.signalled);
    s.ids[1] = g_unix_signal_add(SIGTERM, raiseFlag, &s.signalled);
    if (timeoutMs) s.ids[2] = g_timeout_add(timeoutMs, raiseFlag, &s.expired);
    bool finished = done();
    while (!finished && !s.signalled && !s.expired) {
        g_main_context_iteration(nullptr, TRUE);
        finished = done();
    }
    if (finished) return WaitEnd::Done;
    return s.signalled ? WaitEnd::Interrupted : WaitEnd::TimedOut;
}

int interruptedExit() {
    std::cerr << "orvex: interrupted\n";
    return 130;
}

bool initialiseStore() {
    // The library resets a store whose marker it cannot read: it must not meet one it cannot read.
    if (orvex_host_store_problem()) return false;
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    if (!store) return false;
    store->initStorage();
    return orvex_host_store_problem() == nullptr;
}

std::string storeProblem(int code) {
    if (const char* problem = orvex_host_store_problem()) return problem;
    if (code < 0 && code > -4096) return std::string("the store failed: ") + strerror(-code);
    if (code != 0) return "the store failed (error " + std::to_string(code) + ")";
    return "cannot create the settings store";
}

}  // namespace orvex_tool
