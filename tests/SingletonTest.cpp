#include "HostFixture.h"
#include "NetworkProxy.h"
#include "OrvexAltitudeMgr.h"
#include "OrvexLocationMgr.h"
#include "OrvexLogging.h"
#include "OrvexStorageMgr.h"

// How each singleton is reached and released.
template <class T>
struct Life {
    static T* get() { return T::getInstance(); }
    static void drop() { T::deleteInstance(); }
};
template <>
struct Life<NetworkProxy> {
    static NetworkProxy* get() { return NetworkProxy::GetInstance(); }
    static void drop() { NetworkProxy::Destory(); }
};

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
    EXPECT_EQ(orvex_test::Lines{"_pInstance is NULL"}, orvex_test::errors());
    EXPECT_NE(nullptr, L::get());
}
