#include "support/EngineTest.h"
#include "support/Scale.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <thread>

namespace test
{
namespace
{

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// What one of many timers has to do, and did. Its address is the user data.
struct Task
{
    int timeoutMs;
    int repeatMs;
    int expiries; ///< after which it is deleted
    Clock::time_point start;
    int expired = 0;
    int early = 0; ///< expiries before their time
    int closed = 0;
};

/// The notice of all of them: deletes each after its last expiry.
class TasksNotic : public ITimerHandleNotic
{
public:
    TasksNotic(std::shared_ptr<IHttpInterface> engine, int tasks)
        : m_pEngine(std::move(engine)), m_Open(tasks)
    {
    }

    void OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* userData) override
    {
        auto& task = *static_cast<Task*>(userData);
        // libuv counts whole milliseconds: one may be missing.
        const milliseconds due(task.timeoutMs + task.repeatMs * task.expired - 1);
        task.early += Clock::now() - task.start < due ? 1 : 0;
        if (++task.expired == task.expiries)
        {
            m_pEngine->DelTimerReq(timer, false, nullptr, nullptr);
        }
    }

    void OnClose(std::shared_ptr<ITimerHandleInterface>, void* userData) override
    {
        ++static_cast<Task*>(userData)->closed;
        if (--m_Open == 0)
        {
            m_AllClosed.Set();
        }
    }

    Event m_AllClosed;

private:
    const std::shared_ptr<IHttpInterface> m_pEngine;
    int m_Open; ///< loop thread only
};

class TimerLoadTest : public EngineTest
{
protected:
    void RunTasks(std::deque<Task>& tasks)
    {
        StartEngine();
        const auto notic = std::make_shared<TasksNotic>(m_pEngine, static_cast<int>(tasks.size()));
        for (Task& task : tasks)
        {
            const auto timer =
                ITimerHandleInterface::Create(notic, static_cast<std::uint64_t>(task.timeoutMs),
                                              static_cast<std::uint64_t>(task.repeatMs), &task);
            task.start = Clock::now();
            ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
        }
        EXPECT_TRUE(notic->m_AllClosed.Wait());
        StopEngine();
        for (const Task& task : tasks)
        {
            ASSERT_EQ(task.expired, task.expiries);
            ASSERT_EQ(task.early, 0);
            ASSERT_EQ(task.closed, 1);
        }
        EXPECT_TRUE(m_Log.Texts(kError).empty());
    }
};

TEST_F(TimerLoadTest, ManyTimersExpireOnceEach)
{
    std::deque<Task> tasks;
    for (int i = 0; i < Scaled(100000); ++i)
    {
        tasks.push_back({i % 200, 0, 1, {}});
    }
    RunTasks(tasks);
}

TEST_F(TimerLoadTest, ManyTimersExpireTenTimesEach)
{
    std::deque<Task> tasks;
    for (int i = 0; i < Scaled(10000); ++i)
    {
        tasks.push_back({i % 20, 5 + i % 50, 10, {}});
    }
    RunTasks(tasks);
}

TEST_F(TimerLoadTest, FourThreadsMakeStopRestartAndDeleteTimers)
{
    constexpr int kThreads = 4;
    constexpr int kOperations = 4; // of one timer, each with a completion
    const int timers = Scaled(5000);
    StartEngine();
    Event closed;
    std::atomic<int> succeeded{0};
    const TimerReqCallback count = [&](std::shared_ptr<ITimerHandleInterface>, void*, int result)
    {
        succeeded += result == 0 ? 1 : 0;
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                for (int j = 0; j < timers; ++j)
                {
                    const auto timer = ITimerHandleInterface::Create(
                        nullptr,
                        [&](std::shared_ptr<ITimerHandleInterface>, void*) { closed.Set(); },
                        static_cast<std::uint64_t>(j % 3), static_cast<std::uint64_t>(i % 2),
                        nullptr);
                    EXPECT_EQ(m_pEngine->AddTimerReq(timer, true, count, nullptr), 0);
                    // Refused until the loop thread has performed the add.
                    while (timer->StopTimer(count, nullptr) != 0)
                    {
                        std::this_thread::yield();
                    }
                    EXPECT_EQ(timer->AgainTimer(count, nullptr), 0);
                    EXPECT_EQ(m_pEngine->DelTimerReq(timer, true, count, nullptr), 0);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_TRUE(closed.Wait(kThreads * timers));
    StopEngine();
    EXPECT_EQ(closed.Count(), kThreads * timers);
    EXPECT_EQ(succeeded, kThreads * timers * kOperations);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

} // namespace
} // namespace test
