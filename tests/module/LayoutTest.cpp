#include "frame/CHttpFrame.h"
#include "handle/CHttpHandle.h"
#include "timer/CTimerHandle.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <memory>

namespace test
{
namespace
{

using namespace http_interface;

/// How far into the object a base class lies.
template <typename Base, typename Object>
std::ptrdiff_t OffsetOf(Object* object)
{
    return reinterpret_cast<const char*>(static_cast<Base*>(object)) -
           reinterpret_cast<const char*>(object);
}

constexpr std::ptrdiff_t kAfterTable = sizeof(void*);
constexpr std::ptrdiff_t kAfterSelf = kAfterTable + 2 * sizeof(void*);

// The exported class comes first, whatever the order of declaration, since it
// is the first with a virtual table; the others follow in that order.

TEST(LayoutTest, EngineBeginsWithItsInterface)
{
    const auto frame = std::make_shared<CHttpFrame>();
    EXPECT_EQ(OffsetOf<IHttpInterface>(frame.get()), 0);
    EXPECT_EQ(OffsetOf<std::enable_shared_from_this<CHttpFrame>>(frame.get()), kAfterTable);
}

TEST(LayoutTest, RequestKeepsTheOrderOfItsBases)
{
    const auto handle = std::make_shared<CHttpHandle>();
    EXPECT_EQ(OffsetOf<IHttpHandleInterface>(handle.get()), 0);
    EXPECT_EQ(OffsetOf<std::enable_shared_from_this<CHttpHandle>>(handle.get()), kAfterTable);
    EXPECT_EQ(OffsetOf<IAsynOperInterface>(handle.get()), kAfterSelf);
}

TEST(LayoutTest, TimerKeepsTheOrderOfItsBases)
{
    const auto timer = std::make_shared<CTimerHandle>(nullptr, 0U, 0U, nullptr);
    EXPECT_EQ(OffsetOf<ITimerHandleInterface>(timer.get()), 0);
    EXPECT_EQ(OffsetOf<std::enable_shared_from_this<CTimerHandle>>(timer.get()), kAfterTable);
    EXPECT_EQ(OffsetOf<IAsynOperInterface>(timer.get()), kAfterSelf);
}

TEST(LayoutTest, FactoriesTieObjectsToTheirSharedPointer)
{
    const auto engine = IHttpInterface::Create();
    EXPECT_EQ(static_cast<CHttpFrame*>(engine.get())->weak_from_this().lock(), engine);
    const auto handle = IHttpHandleInterface::Create();
    EXPECT_EQ(static_cast<CHttpHandle*>(handle.get())->weak_from_this().lock(), handle);
    const auto withNotice = ITimerHandleInterface::Create(nullptr, 0, 0, nullptr);
    EXPECT_EQ(static_cast<CTimerHandle*>(withNotice.get())->weak_from_this().lock(), withNotice);
    const auto withFunctions = ITimerHandleInterface::Create(nullptr, nullptr, 0, 0, nullptr);
    EXPECT_EQ(static_cast<CTimerHandle*>(withFunctions.get())->weak_from_this().lock(),
              withFunctions);
}

TEST(LayoutTest, NewEngineIsEmpty)
{
    const auto engine = IHttpInterface::Create();
    const auto& frame = static_cast<CHttpFrame&>(*engine);
    EXPECT_EQ(frame.Loop(), nullptr);
    EXPECT_EQ(frame.Multi(), nullptr);
    EXPECT_FALSE(frame.IsRunning());
    EXPECT_FALSE(frame.IsLoopThread());
}

} // namespace
} // namespace test
