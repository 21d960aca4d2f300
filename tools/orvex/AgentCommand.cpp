// `orvex agent`: the weather agent's back end, and what its simulator answers.
#include <glib.h>
#include <orvex_host/agent_control.h>
#include <orvex_host/control.h>

#include <algorithm>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "Tool.h"

namespace orvex_tool {
namespace {

int runAgent(const Options& options, const Args& args);

std::vector<orvex_host_agent_backend_info> backends() {
    std::vector<orvex_host_agent_backend_info> list;
    orvex_host_agent_backend_info info{};
    for (int i = 0; orvex_host_agent_backend_info_get(i, &info) == 0; ++i) list.push_back(info);
    return list;
}

// "sim or open-meteo"; only those that fetch, when asked.
std::string names(bool fetchingOnly = false) {
    std::vector<std::string> chosen;
    for (const auto& b : backends())
        if (!fetchingOnly || b.fetches) chosen.push_back(b.name);
    std::string text;
    for (size_t i = 0; i < chosen.size(); ++i)
        text += (i == 0 ? "" : i + 1 == chosen.size() ? " or " : ", ") + chosen[i];
    return text;
}

// Rows of "  NAME  TEXT", the text wrapped under itself to stay within 100 columns.
std::string rows(const std::vector<std::pair<std::string, std::string>>& list) {
    size_t width = 0;
    for (const auto& [name, text] : list) width = std::max(width, name.size());
    std::string out;
    for (const auto& [name, text] : list) {
        std::string line = "  " + name + std::string(width - name.size() + 2, ' ');
        const size_t indent = line.size();
        size_t at = 0;
        while (at < text.size()) {
            size_t end = text.find(' ', at);
            std::string word = text.substr(at, end == std::string::npos ? end : end - at);
            if (line.size() > indent && line.size() + 1 + word.size() > 99) {
                out += line + "\n";
                line = std::string(indent, ' ');
            }
            line += (line.size() > indent ? " " : "") + word;
            at = end == std::string::npos ? text.size() : end + 1;
        }
        out += line + "\n";
    }
    return out;
}

std::string usage() {
    std::vector<std::pair<std::string, std::string>> list;
    for (const auto& b : backends()) list.emplace_back(b.name, b.summary);
    list.emplace_back("--url URL",
                      "the server " + names(true) + " fetches from (without it, the public one)");
    return "[set [--pressure TEXT] [--age SECONDS] [--missing KEY] [--empty KEY] [--silent] | "
           "reset]\n"
           "       orvex agent backend [NAME] [--url URL]\n\n"
           "  --pressure TEXT  send TEXT as \"pressure\" (9999: no sea-level pressure here)\n"
           "  --age SECONDS    make the observation that old (over 3600 counts as stale)\n"
           "  --missing KEY    leave \"refreshedTime\" or \"pressure\" out of the answer\n"
           "  --empty KEY      send that entry empty\n"
           "  --silent         take requests but never answer\n"
           "set and reset configure the simulated agent; reset goes back to a prompt agent that "
           "reports\n"
           "the simulated weather.\n\n"
           "backend NAME chooses where the agent's answers come from:\n" +
           rows(list) +
           "The environment variable ORVEX_HOST_AGENT_BACKEND wins over the stored choice.";
}

const std::string kUsage = usage();
const Command kAgent{"agent", "show or configure the weather agent", kUsage.c_str(), runAgent};
[[maybe_unused]] const bool registered = addCommand(kAgent);

// `agent backend [NAME] [--url URL]`: stores the choice when one is given, then shows the back end
// in use.
int runBackend(const Options& options, Args args) {
    gchar* url = nullptr;
    GOptionEntry entries[] = {{"url", 0, 0, G_OPTION_ARG_STRING, &url, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    int rc = 0;
    const bool parsed = parseOptions(kAgent, args, entries, &rc);
    const std::optional<std::string> given = url ? std::optional<std::string>(url) : std::nullopt;
    g_free(url);
    if (!parsed) return rc;
    const std::string expected = "expected backend " + names() + " [--url URL]";
    if (args.size() > 1) return usageError(kAgent, expected);

    const orvex_host_agent_backend_info* chosen = nullptr;
    std::vector<orvex_host_agent_backend_info> list = backends();
    for (const auto& b : list)
        if (!args.empty() && args[0] == b.name) chosen = &b;
    if ((!args.empty() && !chosen) || (given && !(chosen && chosen->fetches)))
        return usageError(kAgent, expected);
    if (given && given->rfind("https://", 0) != 0 && given->rfind("http://", 0) != 0)
        return fail("'" + printable(*given) + "' is not an http:// or https:// URL");
    if (chosen) {
        rc = orvex_host_agent_set_backend(chosen->name);
        if (rc == 0 && chosen->fetches)
            rc = orvex_host_agent_set_url(given ? given->c_str() : nullptr);
        if (rc != 0) return fail("cannot store the choice (error " + std::to_string(rc) + ")");
    }

    const std::string backend = orvex_host_agent_backend();
    const orvex_host_agent_backend_info* inUse = nullptr;
    for (const auto& b : list)
        if (backend == b.name) inUse = &b;
    const bool fetches = inUse && inUse->fetches;
    if (options.json) {
        JsonLine()
            .add("backend", backend)
            .add("url", fetches ? orvex_host_agent_url() : nullptr)
            .print();
    } else if (fetches) {
        printRows({{"backend", backend}, {"url", printable(orvex_host_agent_url())}});
    } else {
        printRows({{"backend", printable(backend)}});
    }
    return inUse ? 0 : fail("unknown back end '" + printable(backend) + "' (" + names() + ")");
}

// No age given: an age of 0 is a value of its own.
constexpr gint64 kNoAge = G_MININT64;

int runSet(Args args) {
    gboolean silent = FALSE;
    gchar *pressure = nullptr, *missing = nullptr, *empty = nullptr;
    gint64 age = kNoAge;
    GOptionEntry entries[] = {{"silent", 0, 0, G_OPTION_ARG_NONE, &silent, nullptr, nullptr},
                              {"pressure", 0, 0, G_OPTION_ARG_STRING, &pressure, nullptr, nullptr},
                              {"age", 0, 0, G_OPTION_ARG_INT64, &age, nullptr, nullptr},
                              {"missing", 0, 0, G_OPTION_ARG_STRING, &missing, nullptr, nullptr},
                              {"empty", 0, 0, G_OPTION_ARG_STRING, &empty, nullptr, nullptr},
                              {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    int rc = 0;
    if (parseOptions(kAgent, args, entries, &rc) && !args.empty())
        rc = usageError(kAgent, "unexpected argument '" + args[0] + "'");
    if (rc == 0) {
        for (const char* key : {missing, empty})
            if (key && std::string(key) != "refreshedTime" && std::string(key) != "pressure")
                rc = fail("the entry is refreshedTime or pressure");
        if (rc == 0 && ((silent && orvex_host_agent_set_silent(1) != 0) ||
                        (pressure && orvex_host_agent_set_pressure(pressure) != 0) ||
                        (age != kNoAge && orvex_host_agent_set_age(age) != 0) ||
                        (missing && orvex_host_agent_set_missing(missing) != 0) ||
                        (empty && orvex_host_agent_set_empty(empty) != 0)))
            rc = fail("cannot store the agent's settings");
    }
    g_free(pressure);
    g_free(missing);
    g_free(empty);
    return rc;
}

int runReset(Args args) {
    GOptionEntry none[] = {{nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    int rc = 0;
    if (!parseOptions(kAgent, args, none, &rc)) return rc;
    if (!args.empty()) return usageError(kAgent, "reset takes no arguments");
    return orvex_host_agent_reset() == 0 ? 0 : fail("cannot store the agent's settings");
}

int runAgent(const Options& options, const Args& args) {
    const std::string sub = args.empty() ? "" : args[0];
    const Args rest = args.empty() ? args : Args(args.begin() + 1, args.end());
    int rc = 0;
    if (sub == "backend") return runBackend(options, rest);
    if (sub == "set")
        rc = runSet(rest);
    else if (sub == "reset")
        rc = runReset(rest);
    else if (!sub.empty())
        return usageError(kAgent, "expected set, reset or backend");
    if (rc != 0) return rc;
    double slp = orvex_host_weather_slp(static_cast<double>(time(nullptr)));
    if (options.json) {
        JsonLine().add("weather_slp_hpa", slp).print();
    } else {
        printRows({{"simulated weather", formatDouble(slp, 2) + " hPa sea-level pressure now"}});
    }
    return 0;
}

}  // namespace
}  // namespace orvex_tool
