// API keys of the weather services in the host key storage. Values come from standard input and
// are never printed.
#include <orvex_host/key_storage_control.h>

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

int runKeys(const Options& options, const Args& args) {
    if (args.size() == 2 && args[0] == "set") {
        std::string value;
        std::getline(std::cin, value);
        while (!value.empty() && (value.back() == '\r' || value.back() == ' ')) value.pop_back();
        if (value.empty()) return fail("no key on standard input");
        if (orvex_host_key_set(args[1].c_str(), value.c_str()) != 0)
            return fail("cannot store the key (is keys.db readable by others?)");
        return 0;
    }
    if (args.size() == 2 && args[0] == "remove") {
        if (orvex_host_key_set(args[1].c_str(), nullptr) != 0) return fail("cannot remove the key");
        return 0;
    }
    if (!args.empty() && !(args.size() == 1 && args[0] == "list"))
        return usageError(kKeys, "expected list, set ALIAS or remove ALIAS");
    char* raw = orvex_host_key_aliases();
    if (!raw) return fail("the key store is unreadable or readable by others");
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
