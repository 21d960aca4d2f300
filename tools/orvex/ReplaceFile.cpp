// Whole-or-nothing writes of the files the tool exports.
#include "ReplaceFile.h"

#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace orvex_tool {
namespace {

bool writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool replaceFile(const std::string& path, const std::string& text, std::string* error) {
    const std::string quoted = "'" + path + "'";
    struct stat st;
    bool existed = lstat(path.c_str(), &st) == 0;
    if (existed && S_ISLNK(st.st_mode)) {
        *error = quoted + " is a symbolic link; not writing through it";
        return false;
    }
    if (existed && !S_ISREG(st.st_mode)) {
        *error = quoted + " is not a regular file";
        return false;
    }
    g_autofree char* dir = g_path_get_dirname(path.c_str());
    g_autofree char* base = g_path_get_basename(path.c_str());
    std::string temp = std::string(dir) + "/." + base + ".XXXXXX";
    // A new file gets the usual mode under the umask; a replaced one keeps its own.
    int fd = g_mkstemp_full(&temp[0], O_WRONLY | O_CLOEXEC, 0666);
    if (fd < 0) {
        *error = "cannot create a file beside " + quoted + " (" + strerror(errno) + ")";
        return false;
    }
    bool ok =
        (!existed || fchmod(fd, st.st_mode & 07777) == 0) && writeAll(fd, text) && fsync(fd) == 0;
    int writeErrno = errno;
    if (close(fd) != 0 && ok) {
        ok = false;
        writeErrno = errno;
    }
    if (ok && rename(temp.c_str(), path.c_str()) != 0) {
        ok = false;
        writeErrno = errno;
    }
    if (!ok) {
        g_unlink(temp.c_str());
        *error = "cannot write " + quoted + " (" + strerror(writeErrno) + ")" +
                 (existed ? "; the earlier file is unchanged" : "");
        return false;
    }
    // The rename itself survives a power cut only once the directory is on disk too.
    int dirFd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        fsync(dirFd);
        close(dirFd);
    }
    return true;
}

}  // namespace orvex_tool
