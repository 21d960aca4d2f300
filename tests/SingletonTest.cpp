// The life cycle every singleton of the library shares.
#include "HostFixture.h"
#include "NetworkProxy.h"
#include "OrvexAltitudeMgr.h"
#include "OrvexLocationMgr.h"
#include "OrvexLogging.h"
#include "OrvexStorageMgr.h"

using namespace orvex_test;
using Life = std::pair<void* (*)(), void (*)()>;  // how a singleton is reached and released

template <class T>
Life life() {
    return {[]() -> void* { return T::getInstance(); }, T::deleteInstance};
}

class SingletonTest : public HostTest {};

TEST_F(SingletonTest, CreatedOnFirstUseDeletedOnRequestAndRetriedAfterNoMemory) {
    const Life proxy{[]() -> void* { return NetworkProxy::GetInstance(); }, NetworkProxy::Destory};
    const Life singletons[] = {life<OrvexStorageMgr>(), life<OrvexAltitudeMgr>(),
                               life<OrvexLocationMgr>(), life<OrvexLogging>(), proxy};
    int index = 0;
    for (const auto& [get, drop] : singletons) {
        SCOPED_TRACE(index++);
        void* first = get();
        EXPECT_NE(nullptr, first);
        EXPECT_EQ(first, get());
        drop();
        drop();  // harmless
        clearLog();
        {
            FailNothrowNew noMemory;
            EXPECT_EQ(nullptr, get());
        }
        EXPECT_EQ(Lines{"_pInstance is NULL"}, errors());
        EXPECT_NE(nullptr, get());
        drop();
    }
}
