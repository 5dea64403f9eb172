#include "base/base.h"
#include "support/Event.h"

#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace test
{
namespace
{

long SystemTid()
{
#if defined(_WIN32)
    return static_cast<long>(GetCurrentThreadId());
#else
    return syscall(SYS_gettid);
#endif
}

TEST(TidTest, IsTheSystemsIdOfTheThread)
{
    EXPECT_EQ(base::GetTid(), SystemTid());
    EXPECT_EQ(base::GetTid(), base::GetTid());
    std::thread([] { EXPECT_EQ(base::GetTid(), SystemTid()); }).join();
}

TEST(TidTest, DiffersBetweenThreadsThatLiveAtOnce)
{
    constexpr int kThreads = 8;
    Event asked;
    std::mutex mutex;
    std::set<long> ids{base::GetTid()};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back(
            [&]
            {
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    ids.insert(base::GetTid());
                }
                asked.Set();
                EXPECT_TRUE(asked.Wait(kThreads));
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(ids.size(), kThreads + 1U);
    EXPECT_EQ(ids.count(0), 0U);
}

} // namespace
} // namespace test
