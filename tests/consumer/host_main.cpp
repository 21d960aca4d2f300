// Drives the host platform's control interface as the tests and the tool do, so it links
// liborvexhost as well: the library's store must land in the host's data directory.
#include <OrvexStorageMgr.h>
#include <orvex_host/control.h>

#include <sys/stat.h>
#include <cstdio>
#include <string>

int main() {
    OrvexStorageMgr::getInstance()->initStorage();
    OrvexStorageMgr::deleteInstance();
    std::string store = std::string(orvex_host_data_dir()) + "/host.db";
    struct stat st;
    std::printf("store in the data directory: %s\n", store.c_str());
    return stat(store.c_str(), &st) == 0 ? 0 : 1;
}
