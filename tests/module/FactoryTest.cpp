#include "module/Stubs.h"

#include <gtest/gtest.h>

namespace test
{
namespace
{

TEST(FactoryTest, EachCallMakesAnObjectOfItsOwn)
{
    const auto engine = IHttpInterface::Create();
    const auto handle = IHttpHandleInterface::Create();
    const auto timer = ITimerHandleInterface::Create(nullptr, 1, 0, nullptr);
    const auto functions = ITimerHandleInterface::Create(nullptr, nullptr, 1, 0, nullptr);
    EXPECT_NE(engine, IHttpInterface::Create());
    EXPECT_NE(handle, IHttpHandleInterface::Create());
    EXPECT_NE(timer, ITimerHandleInterface::Create(nullptr, 1, 0, nullptr));
    EXPECT_NE(functions, ITimerHandleInterface::Create(nullptr, nullptr, 1, 0, nullptr));
}

TEST(FactoryTest, HostIsTheOnlyOwnerOfANewObject)
{
    EXPECT_EQ(IHttpInterface::Create().use_count(), 1);
    EXPECT_EQ(IHttpHandleInterface::Create().use_count(), 1);
    EXPECT_EQ(ITimerHandleInterface::Create(nullptr, 1, 0, nullptr).use_count(), 1);
    EXPECT_EQ(ITimerHandleInterface::Create(nullptr, nullptr, 1, 0, nullptr).use_count(), 1);
}

/// The address of an object's virtual table, which its class's constructor
/// installs.
const void* TableOf(const void* object)
{
    return *static_cast<const void* const*>(object);
}

template <typename Interface, typename Stub>
void ExpectAssignmentCopiesNothing(Interface& made)
{
    Stub stub;
    const void* const table = TableOf(&made);
    Interface& result = (made = stub);
    EXPECT_EQ(&result, &made);
    EXPECT_EQ(TableOf(&made), table);
    const Interface& self = made;
    EXPECT_EQ(&(made = self), &made);
}

TEST(FactoryTest, AssignmentCopiesNothingAndReturnsTheObject)
{
    const auto engine = IHttpInterface::Create();
    ExpectAssignmentCopiesNothing<IHttpInterface, StubEngine>(*engine);
    EXPECT_EQ(engine->Stop(false), -1); // still the library's

    const auto handle = IHttpHandleInterface::Create();
    ExpectAssignmentCopiesNothing<IHttpHandleInterface, StubHandle>(*handle);
    EXPECT_EQ(handle->GetResponseCode(), -1);

    const auto timer = ITimerHandleInterface::Create(nullptr, 1, 0, nullptr);
    ExpectAssignmentCopiesNothing<ITimerHandleInterface, StubTimer>(*timer);
    EXPECT_EQ(timer->StopTimer(nullptr, nullptr), -1);
}

// The exported constructors, copy included, serve classes of the host.
TEST(FactoryTest, HostMayDeriveFromTheExportedClasses)
{
    const StubEngine engine;
    StubEngine engineCopy(engine);
    EXPECT_EQ(static_cast<IHttpInterface&>(engineCopy).Stop(false), 0);

    StubHandle handle;
    handle.m_Text = "text";
    StubHandle handleCopy(handle);
    EXPECT_EQ(static_cast<IHttpHandleInterface&>(handleCopy).GetUrl(), "text");

    const StubTimer timer;
    StubTimer timerCopy(timer);
    EXPECT_EQ(static_cast<ITimerHandleInterface&>(timerCopy).StopTimer(nullptr, nullptr), 0);
}

} // namespace
} // namespace test
