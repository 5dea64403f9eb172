#include "support/EngineTest.h"
#include "support/HeldLoop.h"

#include <algorithm>
#include <thread>

namespace test
{
namespace
{

class LifecycleTest : public EngineTest
{
protected:
    /// One expiry of a timer, which is then deleted and closed.
    void RunTimer()
    {
        const auto notic = std::make_shared<TimerNotic>();
        const auto timer = ITimerHandleInterface::Create(notic, 1, 0, nullptr);
        ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
        ASSERT_TRUE(notic->m_Expired.Wait());
        ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
        ASSERT_TRUE(notic->m_Closed.Wait());
    }
};

TEST_F(LifecycleTest, SecondInitIsRefusedWithoutALineAndChangesNothing)
{
    ASSERT_EQ(m_pEngine->Init(m_pEngineNotic, &m_UserData), 0);
    const auto other = std::make_shared<EngineNotic>();
    EXPECT_EQ(m_pEngine->Init(other, nullptr), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
    EXPECT_EQ(other.use_count(), 1);

    ASSERT_EQ(m_pEngine->Start(true), 0);
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    EXPECT_EQ(m_pEngineNotic->m_UserData, &m_UserData);
    EXPECT_EQ(other->m_Stopped.Count(), 0);
}

TEST_F(LifecycleTest, InitIsRefusedWhileTheLoopRuns)
{
    StartEngine();
    EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), -1);
    OnLoop([&] { EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), -1); });
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(LifecycleTest, InitIsRefusedInsideTheStopNotice)
{
    int result = 0;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>& engine)
    {
        result = engine->Init(nullptr, nullptr);
    };
    StartEngine();
    StopEngine();
    EXPECT_EQ(result, -1);
}

TEST_F(LifecycleTest, OfSeveralInitsAtOnceOneSucceeds)
{
    constexpr int kThreads = 4;
    for (int round = 0; round < 10; ++round)
    {
        std::atomic<int> succeeded{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
        {
            threads.emplace_back([&]
                                 { succeeded += m_pEngine->Init(nullptr, nullptr) == 0 ? 1 : 0; });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(succeeded, 1);
        ASSERT_EQ(m_pEngine->Start(true), 0);
        StopEngine();
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(LifecycleTest, NoticeMayBeEmpty)
{
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    ASSERT_EQ(m_pEngine->Start(true), 0);
    StopEngine();
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(LifecycleTest, NoticeIsToldOnTheLoopThreadWithItsUserData)
{
    long loopThread = 0;
    std::shared_ptr<IHttpInterface> told;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>& engine)
    {
        told = engine;
    };
    StartEngine();
    OnLoop([&] { loopThread = base::GetTid(); });
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    EXPECT_EQ(m_pEngineNotic->m_UserData, &m_UserData);
    EXPECT_EQ(m_pEngineNotic->m_ThreadId, loopThread);
    EXPECT_NE(loopThread, base::GetTid());
    EXPECT_EQ(told, m_pEngine);
}

TEST_F(LifecycleTest, NoticeIsLetGoOnceItWasTold)
{
    const std::weak_ptr<EngineNotic> notic = m_pEngineNotic;
    StartEngine();
    m_pEngineNotic.reset();
    EXPECT_FALSE(notic.expired());
    StopEngine();
    EXPECT_TRUE(notic.expired());
}

TEST_F(LifecycleTest, LoopThreadKeepsTheEngineAliveUntilItEnds)
{
    std::weak_ptr<IHttpInterface> engine = m_pEngine;
    StartEngine();
    {
        HeldLoop held(m_pEngine);
        EXPECT_GE(m_pEngine.use_count(), 2);
        held.Release();
    }
    StopEngine();
    EXPECT_EQ(m_pEngine.use_count(), 1);
}

TEST_F(LifecycleTest, CycleWritesItsLinesInOrderOnTheLoopThread)
{
    StartEngine();
    StopEngine();
    const std::vector<LogLine> lines = m_Log.Lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].text, "[HTTP_INTERFACE]FrameThread Start");
    EXPECT_EQ(lines[1].text, "[HTTP_INTERFACE]http_interface::CHttpFrame::OnStop");
    EXPECT_EQ(lines[2].text, "[HTTP_INTERFACE]FrameThread Stop");
    EXPECT_EQ(lines[3].text, "[HTTP_INTERFACE]m_AsynOperReqList size[0]");
    EXPECT_EQ(lines[1].format, "[HTTP_INTERFACE]%s");
    EXPECT_EQ(lines[3].format, "[HTTP_INTERFACE]m_AsynOperReqList size[%zu]");
    for (const LogLine& line : lines)
    {
        EXPECT_EQ(line.level, kDebug);
        EXPECT_EQ(line.threadId, m_pEngineNotic->m_ThreadId);
    }
}

TEST_F(LifecycleTest, EngineRunsTwentyCycles)
{
    constexpr int kCycles = 20;
    for (int cycle = 1; cycle <= kCycles; ++cycle)
    {
        StartEngine();
        RunTimer();
        StopEngine();
        EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), cycle);
    }
    EXPECT_EQ(m_Log.Count(kDebug, "[HTTP_INTERFACE]FrameThread Start"), kCycles);
    EXPECT_EQ(m_Log.Count(kDebug, "[HTTP_INTERFACE]m_AsynOperReqList size[0]"), kCycles);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(LifecycleTest, NextCycleTellsItsOwnNotice)
{
    StartEngine();
    StopEngine();
    const auto second = std::make_shared<EngineNotic>();
    int userData = 0;
    ASSERT_EQ(m_pEngine->Init(second, &userData), 0);
    ASSERT_EQ(m_pEngine->Start(true), 0);
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    EXPECT_EQ(second->m_Stopped.Count(), 1);
    EXPECT_EQ(second->m_UserData, &userData);
}

TEST_F(LifecycleTest, TwoEnginesHaveLoopThreadsOfTheirOwn)
{
    const auto other = IHttpInterface::Create();
    const auto otherNotic = std::make_shared<EngineNotic>();
    EXPECT_NE(m_pEngine, other);
    StartEngine();
    ASSERT_EQ(other->Init(otherNotic, nullptr), 0);
    ASSERT_EQ(other->Start(true), 0);

    EXPECT_EQ(other->Stop(false), 0);
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 0);
    RunTimer();
    StopEngine();
    EXPECT_NE(m_pEngineNotic->m_ThreadId, otherNotic->m_ThreadId);
}

} // namespace
} // namespace test
