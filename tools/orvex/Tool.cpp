#include "Tool.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include <glib-unix.h>
#include <glib.h>

#include <csignal>

#include "OrvexStorageMgr.h"

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

std::string Json::quote(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

Json& Json::add(const std::string& key, const std::string& value) {
    fields_.emplace_back(key, quote(value));
    return *this;
}

Json& Json::add(const std::string& key, const char* value) {
    return value ? add(key, std::string(value)) : addNull(key);
}

Json& Json::add(const std::string& key, double value) {
    if (!std::isfinite(value)) return addNull(key);
    char buf[64];
    snprintf(buf, sizeof buf, "%.17g", value);
    fields_.emplace_back(key, buf);
    return *this;
}

Json& Json::add(const std::string& key, int value) {
    fields_.emplace_back(key, std::to_string(value));
    return *this;
}

Json& Json::add(const std::string& key, long long value) {
    fields_.emplace_back(key, std::to_string(value));
    return *this;
}

Json& Json::add(const std::string& key, bool value) {
    fields_.emplace_back(key, value ? "true" : "false");
    return *this;
}

Json& Json::addNull(const std::string& key) {
    fields_.emplace_back(key, "null");
    return *this;
}

Json& Json::addRaw(const std::string& key, const std::string& json) {
    fields_.emplace_back(key, json);
    return *this;
}

std::string Json::str() const {
    std::string out = "{";
    for (size_t i = 0; i < fields_.size(); ++i) {
        if (i) out += ", ";
        out += quote(fields_[i].first) + ": " + fields_[i].second;
    }
    return out + "}";
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

std::string formatDouble(double value, int decimals) {
    char buf[64];
    snprintf(buf, sizeof buf, "%.*f", decimals, value);
    return buf;
}

namespace {
struct LoopRun {
    GMainLoop* loop;
    bool signalled;
};

gboolean onSignal(gpointer data) {
    auto* run = static_cast<LoopRun*>(data);
    run->signalled = true;
    g_main_loop_quit(run->loop);
    return G_SOURCE_CONTINUE;
}
}  // namespace

bool runMainLoop(GMainLoop* loop) {
    LoopRun run{loop, false};
    guint sigint = g_unix_signal_add(SIGINT, onSignal, &run);
    guint sigterm = g_unix_signal_add(SIGTERM, onSignal, &run);
    g_main_loop_run(loop);
    g_source_remove(sigint);
    g_source_remove(sigterm);
    return !run.signalled;
}

int interruptedExit() {
    std::cerr << "orvex: interrupted\n";
    return 130;
}

bool initialiseStore() {
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    if (!store) return false;
    store->initStorage();
    return true;
}

}  // namespace orvex_tool
