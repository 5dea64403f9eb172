/// What each cycle of Init, Start and Stop leaves behind on purpose, since its
/// loop is found busy when it is closed; docs/limits.md gives the figures.

#include "support/EngineTest.h"
#include "support/Resources.h"
#include "support/Scale.h"
#include "support/Servers.h"

#include <cstdio>

namespace test
{
namespace
{

#ifdef _WIN32
constexpr int kHandlesAnIdleCycle = 1;
constexpr int kHandlesACycle = 2;
#else
constexpr int kHandlesAnIdleCycle = 5;
constexpr int kHandlesACycle = 5;
#endif

/// The loop has a table of all descriptors on Linux, which doubles as it grows.
std::size_t MostBytesACycle()
{
    return 1024 + 2 * sizeof(void*) * OpenHandles();
}

class CycleCostTest : public EngineTest, public ::testing::WithParamInterface<bool>
{
protected:
    void Cycle()
    {
        StartEngine();
        if (GetParam())
        {
            const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
            Run(handle);
            EXPECT_EQ(m_pNotic->m_Result, 0);
            Delete(handle);
        }
        StopEngine();
        m_Log.Clear();
    }
};

TEST_P(CycleCostTest, HundredCyclesLeaveAHundredTimesWhatOneLeaves)
{
    constexpr int kWarmUps = 10; // what a process allocates once
    constexpr int kCycles = 100;
    for (int i = 0; i < kWarmUps; ++i)
    {
        Cycle();
    }
    const std::size_t handles = OpenHandles();
    const std::size_t memory = AllocatedMemory();
    for (int i = 0; i < kCycles; ++i)
    {
        Cycle();
    }
    const auto newHandles = static_cast<double>(OpenHandles() - handles);
    const std::size_t newMemory = AllocatedMemory() - memory;
    std::printf("a cycle leaves %g handles, %zu bytes\n", newHandles / kCycles,
                newMemory / kCycles);
    constexpr double kComingAndGoing = 3; // of threads that are ending
    EXPECT_NEAR(newHandles, kCycles * (GetParam() ? kHandlesACycle : kHandlesAnIdleCycle),
                kComingAndGoing);
    if (!kSanitized) // whose heap is not the system's
    {
        EXPECT_LT(newMemory, kCycles * MostBytesACycle());
    }
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), kWarmUps + kCycles);
}

INSTANTIATE_TEST_SUITE_P(, CycleCostTest, ::testing::Bool(),
                         [](const auto& it) { return it.param ? "WithARequest" : "Idle"; });

} // namespace
} // namespace test
