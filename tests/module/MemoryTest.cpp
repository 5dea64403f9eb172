/// What is allocated, and what happens when nothing can be: a program of its
/// own, since every `new` in it comes here.

#include "http_interface/http_interface.h"
#include "module/HttpLog.h"

#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

namespace
{

thread_local int allocations = 0;
thread_local int allowed = -1; // further allocations before one fails; negative: all

} // namespace

void* operator new(std::size_t size)
{
    ++allocations;
    if (allowed == 0)
    {
        throw std::bad_alloc();
    }
    allowed -= allowed > 0 ? 1 : 0;
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace test
{
namespace
{

using namespace http_interface;

/// How many allocations a function makes.
template <typename Function>
int AllocationsOf(Function function)
{
    const int before = allocations;
    function();
    return allocations - before;
}

/// Calls a function with no memory for its first allocation, then with memory
/// for one, and so on, until it succeeds; each failure must be std::bad_alloc.
/// Returns how often it failed.
template <typename Function>
int FailuresUntilSuccess(Function function)
{
    constexpr int kBound = 100;
    for (int granted = 0; granted < kBound; ++granted)
    {
        bool failed = false;
        allowed = granted;
        try
        {
            function();
        }
        catch (const std::bad_alloc&)
        {
            failed = true;
        }
        allowed = -1;
        if (!failed)
        {
            return granted;
        }
    }
    ADD_FAILURE() << "never succeeded";
    return kBound;
}

TEST(MemoryTest, ObjectAndItsCountAreOneBlock)
{
    EXPECT_EQ(AllocationsOf([] { IHttpInterface::Create(); }), 1);
    EXPECT_EQ(AllocationsOf([] { IHttpHandleInterface::Create(); }), 1);
    EXPECT_EQ(AllocationsOf([] { ITimerHandleInterface::Create(nullptr, 0, 0, nullptr); }), 1);
    // The notice around the two functions is an object of its own.
    EXPECT_EQ(AllocationsOf([] { ITimerHandleInterface::Create(nullptr, nullptr, 0, 0, nullptr); }),
              2);
}

TEST(MemoryTest, FactoriesThrowWithoutMemory)
{
    EXPECT_EQ(FailuresUntilSuccess([] { IHttpInterface::Create(); }), 1);
    EXPECT_EQ(FailuresUntilSuccess([] { IHttpHandleInterface::Create(); }), 1);
    EXPECT_EQ(FailuresUntilSuccess([] { ITimerHandleInterface::Create(nullptr, 0, 0, nullptr); }),
              1);
    // Too much for a std::function to hold in place: every copy allocates.
    const std::array<char, 64> large{};
    const TimerNoticFunc function = [large](std::shared_ptr<ITimerHandleInterface>, void*)
    {
        (void)large;
    };
    EXPECT_GT(FailuresUntilSuccess(
                  [&] { ITimerHandleInterface::Create(function, function, 0, 0, nullptr); }),
              4);
}

class SilentLogger : public base::IBaseLogInterface
{
public:
    void WriteLog(const int*, const long*, const char*, ...) override {}
};

TEST(MemoryTest, LogLineAllocatesNothing)
{
    base::IBaseLogInterface::SetLogInstance(std::make_shared<SilentLogger>());
    EXPECT_EQ(
        AllocationsOf([] { HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]err[%d:%s]", 7, "text"); }),
        0);
    base::IBaseLogInterface::SetLogInstance(nullptr);
}

} // namespace
} // namespace test
