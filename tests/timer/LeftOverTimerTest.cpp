// A timer that does not run any more does not hold a stop up. It is left over
// when the loop that it was initialised on goes, and a delete or a restart of it
// in the engine's next run must not touch that loop.

#include "support/EngineTest.h"

namespace test
{
namespace
{

class LeftOverTimerTest : public EngineTest
{
protected:
    /// A timer with m_pTimerNotic that has expired once and does not run.
    std::shared_ptr<ITimerHandleInterface> Expired(std::uint64_t repeatMs)
    {
        m_pTimerNotic->m_OnTimer = [](const std::shared_ptr<ITimerHandleInterface>& timer)
        {
            EXPECT_EQ(timer->StopTimer(nullptr, nullptr), 0);
        };
        const auto timer = ITimerHandleInterface::Create(m_pTimerNotic, 1, repeatMs, &m_UserData);
        EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
        EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait());
        return timer;
    }

    void NextRun()
    {
        StopEngine();
        StartEngine();
    }

    std::shared_ptr<TimerNotic> m_pTimerNotic = std::make_shared<TimerNotic>();
};

TEST_F(LeftOverTimerTest, IsClosedByADeleteInTheNextRun)
{
    StartEngine();
    auto timer = Expired(0);
    NextRun();
    TimerCompletion deleted;
    bool closedBeforeTheCompletion = false;
    m_pTimerNotic->m_OnClose = [&](const std::shared_ptr<ITimerHandleInterface>&)
    {
        closedBeforeTheCompletion = deleted.Calls() == 0;
    };
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
    ASSERT_TRUE(m_pTimerNotic->m_Closed.Wait());
    EXPECT_EQ(deleted.Result(), 0);
    EXPECT_FALSE(closedBeforeTheCompletion);
    EXPECT_EQ(m_pTimerNotic->m_UserData, &m_UserData);
    OnLoop([] {}); // past the operation, which held the timer
    deleted = TimerCompletion();
    const std::weak_ptr<ITimerHandleInterface> weak = timer;
    timer.reset();
    EXPECT_TRUE(weak.expired());
}

TEST_F(LeftOverTimerTest, IsClosedOnce)
{
    StartEngine();
    const auto timer = Expired(0);
    NextRun();
    TimerCompletion deleted;
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
    ASSERT_TRUE(deleted.Wait(2));
    EXPECT_EQ(deleted.Result(), 0);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
}

TEST_F(LeftOverTimerTest, IsNotRestarted)
{
    StartEngine();
    const auto timer = Expired(1);
    NextRun();
    TimerCompletion again;
    ASSERT_EQ(timer->AgainTimer(again.Function(), nullptr), 0);
    ASSERT_TRUE(again.Wait());
    EXPECT_EQ(again.Result(), 0);
    OnLoop([&] { EXPECT_EQ(timer->AgainTimer(again.Function(), nullptr), 0); });
    OnLoop([&] { EXPECT_EQ(timer->StopTimer(again.Function(), nullptr), 0); });
    EXPECT_EQ(again.Calls(), 3);
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 1);
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
    ASSERT_TRUE(m_pTimerNotic->m_Closed.Wait());
}

// The loop turns no more, so that nothing else would call back.
TEST_F(LeftOverTimerTest, IsClosedByADeleteInTheStopNotice)
{
    StartEngine();
    auto timer = Expired(0);
    TimerCompletion deleted;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>& engine)
    {
        EXPECT_EQ(engine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
    };
    StopEngine();
    EXPECT_EQ(deleted.Calls(), 1);
    EXPECT_EQ(deleted.Result(), 0);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
    deleted = TimerCompletion();
    const std::weak_ptr<ITimerHandleInterface> weak = timer;
    timer.reset();
    EXPECT_TRUE(weak.expired());
}

} // namespace
} // namespace test
