// API keys of the weather services in the host key storage. Values come from standard input and
// are never printed.
#include <orvex_host/key_storage_control.h>
#include <platform/key_storage.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "Tool.h"

namespace orvex_tool {
namespace {

int runKeys(const Options& options, const Args& args);

const Command kKeys{
    "keys", "store or list the weather services' API keys",
    "list\n"
    "       orvex keys set ALIAS     (the value is read from standard input)\n"
    "       orvex keys remove ALIAS\n\n"
    "Aliases: twc_api_key (The Weather Company; used when longer than one character) and\n"
    "orvex_accueweather_api_key (AccuWeather). Values never appear on the command line or in\n"
    "any output.",
    runKeys};

[[maybe_unused]] const bool registered = addCommand(kKeys);

// What the key store said, else what the platform's code means.
std::string keyStoreProblem(int code) {
    if (const char* problem = orvex_host_key_storage_problem()) return problem;
    if (code == KEY_STORAGE_ERROR_PERMISSION_DENIED) return "keys.db is readable by others";
    if (code == KEY_STORAGE_ERROR_INVALID_PARAMETER) return "that is not an alias";
    return "error " + std::to_string(code);
}

int runKeys(const Options& options, const Args& args) {
    if (args.size() == 2 && args[0] == "set") {
        std::string value;
        std::getline(std::cin, value);
        while (!value.empty() && (value.back() == '\r' || value.back() == ' ')) value.pop_back();
        if (value.empty()) return fail("no key on standard input");
        if (int rc = orvex_host_key_set(args[1].c_str(), value.c_str()); rc != 0)
            return fail("cannot store the key: " + keyStoreProblem(rc));
        return 0;
    }
    if (args.size() == 2 && args[0] == "remove") {
        if (int rc = orvex_host_key_set(args[1].c_str(), nullptr); rc != 0)
            return fail("cannot remove the key: " + keyStoreProblem(rc));
        return 0;
    }
    if (!args.empty() && !(args.size() == 1 && args[0] == "list"))
        return usageError(kKeys, "expected list, set ALIAS or remove ALIAS");
    char* raw = orvex_host_key_aliases();
    if (!raw) return fail("cannot list the keys: " + keyStoreProblem(KEY_STORAGE_ERROR_IO_ERROR));
    std::string aliases = raw;
    free(raw);
    if (options.json) {
        JsonLine json;
        json.beginArray("aliases");
        size_t start = 0;
        while (start < aliases.size()) {
            size_t end = aliases.find('\n', start);
            json.addString(aliases.substr(start, end - start));
            start = end == std::string::npos ? aliases.size() : end + 1;
        }
        json.endArray().print();
    } else {
        std::cout << (aliases.empty() ? "no keys stored\n" : aliases);
    }
    return 0;
}

}  // namespace
}  // namespace orvex_tool
