#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HostFixture.h"
#include "NetworkProxy.h"
#include "OrvexAltitudeMgr.h"
#include "OrvexLocationMgr.h"
#include "OrvexLogging.h"
#include "OrvexStorageMgr.h"

namespace {

template <class T>
struct Life;

#define ORVEX_LIFE(T, GET, DROP)             \
    template <>                              \
    struct Life<T> {                         \
        static T* get() { return T::GET(); } \
        static void drop() { T::DROP(); }    \
    };
ORVEX_LIFE(OrvexStorageMgr, getInstance, deleteInstance)
ORVEX_LIFE(OrvexAltitudeMgr, getInstance, deleteInstance)
ORVEX_LIFE(OrvexLocationMgr, getInstance, deleteInstance)
ORVEX_LIFE(OrvexLogging, getInstance, deleteInstance)
ORVEX_LIFE(NetworkProxy, GetInstance, Destory)

template <class T>
class SingletonTest : public orvex_test::HostTest {
protected:
    void TearDown() override {
        Life<T>::drop();
        NetworkProxy::Destory();
        HostTest::TearDown();
    }
};

using Singletons = ::testing::Types<OrvexStorageMgr, OrvexAltitudeMgr, OrvexLocationMgr,
                                    OrvexLogging, NetworkProxy>;
TYPED_TEST_SUITE(SingletonTest, Singletons);

TYPED_TEST(SingletonTest, CreatedOnFirstUseDeletedOnRequestAndRetriedAfterNoMemory) {
    using L = Life<TypeParam>;
    TypeParam* first = L::get();
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, L::get());
    L::drop();
    L::drop();  // harmless
    orvex_test::clearLog();
    {
        orvex_test::FailNothrowNew noMemory;
        EXPECT_EQ(nullptr, L::get());
    }
    EXPECT_EQ(std::vector<std::string>{"_pInstance is NULL"}, orvex_test::errors());
    EXPECT_NE(nullptr, L::get());
}

}  // namespace
