#include "support/HeldLoop.h"
#include "timer/TimerFixture.h"

namespace test
{
namespace
{

class TimerDeleteTest : public TimerFixture
{
};

TEST_F(TimerDeleteTest, CompletionComesBeforeOnClose)
{
    StartEngine();
    const auto timer = Make(kNeverMs, 0);
    Add(timer);
    TimerCompletion deleted;
    int callsBeforeClose = 0;
    m_pTimerNotic->m_OnClose = [&](const std::shared_ptr<ITimerHandleInterface>&)
    {
        callsBeforeClose = deleted.Calls();
    };
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
            EXPECT_EQ(deleted.Calls(), 1);
            EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 0); // on a later turn
        });
    ASSERT_TRUE(m_pTimerNotic->m_Closed.Wait());
    EXPECT_EQ(deleted.Result(), 0);
    EXPECT_EQ(callsBeforeClose, 1);
}

TEST_F(TimerDeleteTest, InsideOnTimerEndsTheExpiries)
{
    StartEngine();
    const auto timer = Make(1, 1);
    m_pTimerNotic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>& expired)
    {
        EXPECT_EQ(m_pEngine->DelTimerReq(expired, false, nullptr, nullptr), 0);
    };
    Add(timer);
    ASSERT_TRUE(m_pTimerNotic->m_Closed.Wait());
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 1);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
}

TEST_F(TimerDeleteTest, TwiceClosesOnce)
{
    StartEngine();
    const auto timer = Make(kNeverMs, 0);
    Add(timer);
    TimerCompletion deleted;
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
            EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
        });
    ASSERT_TRUE(m_pTimerNotic->m_Closed.Wait());
    EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
    ASSERT_TRUE(deleted.Wait(3));
    EXPECT_EQ(deleted.Result(), 0);
    StopEngine();
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

// libuv must not see such a timer: it would crash.
TEST_F(TimerDeleteTest, OfATimerThatWasNeverAddedSucceedsWithoutClosing)
{
    StartEngine();
    const auto timer = Make(1, 1);
    TimerCompletion deleted;
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, true, deleted.Function(), nullptr), 0);
    ASSERT_TRUE(deleted.Wait());
    EXPECT_EQ(deleted.Result(), 0);
    OnLoop([&]
           { EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0); });
    EXPECT_EQ(deleted.Calls(), 2);
    EXPECT_EQ(deleted.Result(), 0);
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 0);

    Add(timer); // it may still be added
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait());
    Delete(timer);
}

// The add is taken back, the delete is still performed.
TEST_F(TimerDeleteTest, BehindAnAddThatTheStopCancelsSucceeds)
{
    StartEngine();
    const auto timer = Make(1, 1);
    TimerCompletion added;
    TimerCompletion deleted;
    HeldLoop held(m_pEngine);
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, true, added.Function(), nullptr), 0);
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, true, deleted.Function(), nullptr), 0);
    held.ReleaseWithStop();
    EXPECT_EQ(added.Calls(), 1);
    EXPECT_EQ(added.Result(), -1);
    EXPECT_EQ(deleted.Calls(), 1);
    EXPECT_EQ(deleted.Result(), 0);
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 0);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 0);
    EXPECT_EQ(timer.use_count(), 3); // two completions hold it
}

TEST_F(TimerDeleteTest, AndPausesThatWaitAtAStopArePerformed)
{
    StartEngine();
    const auto timer = Make(kNeverMs, 1);
    Add(timer);
    TimerCompletion stopped;
    TimerCompletion again;
    TimerCompletion deleted;
    HeldLoop held(m_pEngine);
    ASSERT_EQ(timer->StopTimer(stopped.Function(), nullptr), 0);
    ASSERT_EQ(timer->AgainTimer(again.Function(), nullptr), 0);
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, true, deleted.Function(), nullptr), 0);
    held.ReleaseWithStop();
    for (TimerCompletion* const done : {&stopped, &again, &deleted})
    {
        EXPECT_EQ(done->Calls(), 1);
        EXPECT_EQ(done->Result(), 0);
    }
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
}

TEST_F(TimerDeleteTest, InsideTheAddsCompletionClosesAtOnce)
{
    StartEngine();
    const auto timer = Make(1, 1);
    ASSERT_EQ(m_pEngine->AddTimerReq(
                  timer, true,
                  [&](std::shared_ptr<ITimerHandleInterface> added, void*, int)
                  { m_pEngine->DelTimerReq(added, false, nullptr, nullptr); },
                  nullptr),
              0);
    ASSERT_TRUE(m_pTimerNotic->m_Closed.Wait());
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 0);
}

} // namespace
} // namespace test
