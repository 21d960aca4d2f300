// Initialises the store and converts a pressure, then checks the answer.
#include <OrvexStorageMgr.h>

#include <cmath>
#include <cstdio>

int main() {
    OrvexStorageMgr* store = OrvexStorageMgr::getInstance();
    if (!store) return 1;
    store->initStorage();
    double altitude = store->getAltivalue(900.0);
    std::printf("900.0 hPa against %.2f hPa is %.1f m\n", store->getDataSLP(), altitude);
    OrvexStorageMgr::deleteInstance();
    return std::fabs(altitude - 988.6) < 0.1 ? 0 : 1;
}
