// orvex: the host tool that plays the application's part on top of liborvexlib.
#include <orvex_host/control.h>
#include <platform/dlog.h>

#include <cstring>
#include <iostream>

#include "NetworkProxy.h"
#include "OrvexAltitudeMgr.h"
#include "OrvexLocationMgr.h"
#include "OrvexLogging.h"
#include "OrvexStorageMgr.h"
#include "Tool.h"

using namespace orvex_tool;

namespace {

void printOverview() {
    std::cout << "usage: orvex [-v] [--json] COMMAND [ARGS]\n\n"
                 "The altimeter and barometer library on this machine's host platform.\n\n"
                 "Commands:\n";
    size_t width = 0;
    for (const auto& c : commands()) width = std::max(width, strlen(c.name));
    for (const auto& c : commands())
        std::cout << "  " << c.name << std::string(width - strlen(c.name) + 3, ' ') << c.summary
                  << "\n";
    std::cout << "\nOptions:\n"
                 "  -v, --verbose   show the library's log lines\n"
                 "  --json          print data as JSON, for scripts\n"
                 "  -h, --help      this help; 'orvex COMMAND --help' for a command\n"
                 "  --version       the version of the tool and its library\n\n"
                 "State lives in "
              << orvex_host_data_dir() << "\n";
}

void printCommandHelp(const Command& c) {
    std::cout << "usage: orvex " << c.name << " " << c.usage << "\n\n" << c.summary << "\n";
}

const Command* findCommand(const std::string& name) {
    for (const auto& c : commands())
        if (name == c.name) return &c;
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    // The tool's own options may stand anywhere on the line; whatever GLib does not know (the
    // command, its arguments and options, a negative number) is left, in order, for the command.
    gboolean verbose = FALSE, json = FALSE, help = FALSE, version = FALSE;
    GOptionEntry entries[] = {
        {"verbose", 'v', 0, G_OPTION_ARG_NONE, &verbose, "show the library's log lines", nullptr},
        {"json", 0, 0, G_OPTION_ARG_NONE, &json, "print data for scripts", nullptr},
        {"help", 'h', 0, G_OPTION_ARG_NONE, &help, "explain the tool or a command", nullptr},
        {"version", 0, 0, G_OPTION_ARG_NONE, &version, "print the version", nullptr},
        {}};
    GOptionContext* context = g_option_context_new(nullptr);
    g_option_context_set_help_enabled(context, FALSE);
    g_option_context_set_ignore_unknown_options(context, TRUE);
    g_option_context_add_main_entries(context, entries, nullptr);
    GError* error = nullptr;
    bool parsed = g_option_context_parse(context, &argc, &argv, &error);
    g_option_context_free(context);
    if (!parsed) {
        int rc = fail(error->message);
        g_error_free(error);
        return rc;
    }
    Options options;
    options.verbose = verbose;
    options.json = json;
    Args args(argv + 1, argv + argc);
    orvex_host_log_set_stderr_threshold(options.verbose ? DLOG_INFO : DLOG_SILENT);
    if (version) {
        std::cout << "orvex " ORVEX_VERSION "\n";
        return 0;
    }

    if (args.empty() || args[0] == "help") {
        if (args.size() > 1) {
            if (const Command* c = findCommand(args[1])) {
                printCommandHelp(*c);
                return 0;
            }
            return fail("unknown command '" + args[1] + "'");
        }
        printOverview();
        return args.empty() && !help ? 2 : 0;
    }
    const Command* command = findCommand(args[0]);
    if (!command) return fail("unknown command '" + args[0] + "' (see 'orvex --help')");
    if (help) {
        printCommandHelp(*command);
        return 0;
    }
    if (const char* problem = orvex_host_config_problem()) return fail(problem);
    // A refused data directory opens no store: every command would fail on it, some silently.
    if (const char* problem = orvex_host_data_dir_problem()) return fail(problem);
    args.erase(args.begin());
    int rc = command->run(options, args);
    // The application's stop: every singleton goes, the HTTP engine cancelling what is left.
    OrvexAltitudeMgr::deleteInstance();
    OrvexLocationMgr::deleteInstance();
    OrvexLogging::deleteInstance();
    OrvexStorageMgr::deleteInstance();
    NetworkProxy::Destory();
    return rc;
}
