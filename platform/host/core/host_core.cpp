// The data directory and the reset of the host.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/host_internal.h"
#include "orvex_host/control.h"
#include "platform/dlog.h"

namespace orvex_host {
namespace {

std::mutex g_dirMutex;
std::string g_dataDir;  // empty: not resolved yet
std::string g_dirProblem;

std::vector<void (*)()>& resetHooks() {
    static std::vector<void (*)()> hooks;
    return hooks;
}

// A relative directory would move with the working directory of whichever process asks.
std::string relativeHomeProblem(const char* home) {
    if (!home || !*home || home[0] == '/') return "";
    return std::string("ORVEX_HOST_HOME is '") + home + "', not an absolute path";
}

[[maybe_unused]] const bool g_homeCheck =
    addConfigCheck([] { return relativeHomeProblem(getenv("ORVEX_HOST_HOME")); });

std::string defaultDataDir() {
    if (const char* home = getenv("ORVEX_HOST_HOME"); home && *home) return home;
    if (const char* xdg = getenv("XDG_DATA_HOME"); xdg && *xdg) return std::string(xdg) + "/orvex";
    const char* home = getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/.local/share/orvex";
}

// Creates what is missing of path, 0700. A directory that already exists keeps its mode: it is the
// user's, and refused rather than changed when group or others can write to it.
int makeDirs(const std::string& path, std::string* problem) {
    bool created = false;
    for (size_t pos = 0; pos != std::string::npos;) {
        pos = path.find('/', pos + 1);
        std::string partial = path.substr(0, pos);
        if (partial.empty()) continue;
        created = mkdir(partial.c_str(), 0700) == 0;
        if (!created && errno != EEXIST) {
            int err = errno;
            *problem = "cannot create the data directory " + path + ": " + strerror(err);
            return -err;
        }
    }
    // Under a umask that takes the owner's bits, a directory we made would be unusable.
    if (created && chmod(path.c_str(), 0700) != 0) {
        int err = errno;
        *problem = "cannot make the data directory " + path + " private: " + strerror(err);
        return -err;
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *problem = "the data directory " + path + " is not a directory";
        return -ENOTDIR;
    }
    if (st.st_mode & (S_IWGRP | S_IWOTH)) {
        *problem = "the data directory " + path + " is writable by group or others; refused";
        return -EPERM;
    }
    // A read-only directory (or file system) lets nothing be stored: said once, up front.
    if (faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        int err = errno;
        *problem = "cannot write to the data directory " + path + ": " + strerror(err);
        return -err;
    }
    return 0;
}

}  // namespace

bool onReset(void (*hook)()) {
    resetHooks().push_back(hook);
    return true;
}

std::string dataDir() {
    std::lock_guard<std::mutex> lock(g_dirMutex);
    if (g_dataDir.empty()) {
        g_dataDir = defaultDataDir();
        g_dirProblem = relativeHomeProblem(getenv("ORVEX_HOST_HOME"));
        // Said at once: nothing the host keeps can be stored.
        if (!g_dirProblem.empty() || makeDirs(g_dataDir, &g_dirProblem) != 0)
            __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "ORVEX_HOST", "%s", g_dirProblem.c_str());
    }
    return g_dataDir;
}

std::string dataDirProblem() {
    dataDir();
    std::lock_guard<std::mutex> lock(g_dirMutex);
    return g_dirProblem;
}

std::string dataPath(const char* name) { return dataDir() + "/" + name; }

}  // namespace orvex_host

using namespace orvex_host;

extern "C" const char* orvex_host_data_dir(void) {
    static thread_local std::string copy;
    copy = dataDir();
    return copy.c_str();
}

extern "C" const char* orvex_host_data_dir_problem(void) {
    static thread_local std::string slot;
    return lendProblem(slot, dataDirProblem());
}

extern "C" const char* orvex_host_store_problem(void) {
    static thread_local std::string slot;
    return lendProblem(slot, storeProblem());
}

extern "C" int orvex_host_set_data_dir(const char* path) {
    if (path && path[0] != '/') return -EINVAL;
    std::string problem;
    if (path) {
        if (int rc = makeDirs(path, &problem); rc != 0) return rc;
    }
    std::lock_guard<std::recursive_mutex> storeLock(storeMutex());
    closeStore();
    std::lock_guard<std::mutex> lock(g_dirMutex);
    g_dataDir = path ? path : "";
    g_dirProblem.clear();
    return 0;
}

extern "C" int orvex_host_reset(void) {
    const char* tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/orvex-host-XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) return -errno;
    if (int rc = orvex_host_set_data_dir(buf.data()); rc != 0) return rc;
    orvex_host_clear_faults();
    for (auto hook : resetHooks()) hook();
    return 0;
}
