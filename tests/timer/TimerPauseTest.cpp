#include "timer/TimerFixture.h"

namespace test
{
namespace
{

const std::string kRefused = "[HTTP_INTERFACE]Can not again timer req now";

/// StopTimer and AgainTimer.
class TimerPauseTest : public TimerFixture
{
};

TEST_F(TimerPauseTest, BeforeTheAddBothAreRefusedWithoutALine)
{
    const auto timer = Make(1, 1);
    TimerCompletion done;
    EXPECT_EQ(timer->StopTimer(done.Function(), nullptr), -1);
    EXPECT_EQ(timer->AgainTimer(done.Function(), nullptr), -1);
    StartEngine();
    EXPECT_EQ(timer->StopTimer(done.Function(), nullptr), -1);
    OnLoop([&] { EXPECT_EQ(timer->AgainTimer(done.Function(), nullptr), -1); });
    EXPECT_EQ(done.Calls(), 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(TimerPauseTest, WhileTheEngineDoesNotRunBothAreRefusedWithTheSameLine)
{
    StartEngine();
    const auto timer = Make(kNeverMs, 1);
    Add(timer);
    Delete(timer);
    StopEngine();
    TimerCompletion done;
    EXPECT_EQ(timer->StopTimer(done.Function(), nullptr), -1);
    EXPECT_EQ(timer->AgainTimer(done.Function(), nullptr), -1);
    EXPECT_EQ(m_Log.Texts(kError), (std::vector<std::string>{kRefused, kRefused}));
    EXPECT_EQ(m_Log.Find(kRefused).threadId, base::GetTid());
    EXPECT_EQ(done.Calls(), 0);
}

TEST_F(TimerPauseTest, InsideTheStopNoticeBothAreRefusedWithTheLoopThreadsId)
{
    StartEngine();
    const auto timer = Make(kNeverMs, 1);
    Add(timer);
    Delete(timer);
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>&)
    {
        EXPECT_EQ(timer->StopTimer(nullptr, nullptr), -1);
        EXPECT_EQ(timer->AgainTimer(nullptr, nullptr), -1);
    };
    StopEngine();
    EXPECT_EQ(m_Log.Count(kError, kRefused), 2);
    EXPECT_EQ(m_Log.Find(kRefused).threadId, m_pEngineNotic->m_ThreadId);
}

TEST_F(TimerPauseTest, StoppedTimerExpiresNoMoreAndIsStillOpen)
{
    StartEngine();
    const auto timer = Make(1, 1);
    Add(timer);
    ASSERT_TRUE(m_pTimerNotic->m_Expired.Wait(2));
    TimerCompletion stopped;
    EXPECT_EQ(timer->StopTimer(stopped.Function(), nullptr), 0);
    ASSERT_TRUE(stopped.Wait());
    EXPECT_EQ(stopped.Result(), 0);
    const int expired = m_pTimerNotic->m_Expired.Count();
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), expired);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 0);
    Delete(timer);
}

TEST_F(TimerPauseTest, StopInsideOnTimerIsPerformedAtOnce)
{
    StartEngine();
    const auto timer = Make(1, 1);
    TimerCompletion stopped;
    int user = 0;
    m_pTimerNotic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>& expired)
    {
        EXPECT_EQ(expired->StopTimer(stopped.Function(), &user), 0);
        EXPECT_EQ(stopped.Calls(), 1); // before the call has returned
    };
    Add(timer);
    ASSERT_TRUE(m_pTimerNotic->m_Expired.Wait());
    EXPECT_EQ(stopped.Result(), 0);
    EXPECT_EQ(stopped.User(), &user);
    EXPECT_EQ(stopped.Target(), timer);
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 1);
    Delete(timer);
}

TEST_F(TimerPauseTest, AgainInsideOnTimerIsPerformedAtOnce)
{
    StartEngine();
    const auto timer = Make(1, 1);
    TimerCompletion again;
    m_pTimerNotic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>& expired)
    {
        const int before = again.Calls();
        EXPECT_EQ(expired->AgainTimer(again.Function(), nullptr), 0);
        EXPECT_EQ(again.Calls(), before + 1);
    };
    Add(timer);
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait(3));
    Delete(timer);
    EXPECT_EQ(again.Result(), 0);
}

TEST_F(TimerPauseTest, RestartedTimerExpiresAgain)
{
    StartEngine();
    const auto timer = Make(1, 1);
    Add(timer);
    for (int round = 0; round < 5; ++round)
    {
        ASSERT_TRUE(m_pTimerNotic->m_Expired.Wait());
        TimerCompletion stopped;
        ASSERT_EQ(timer->StopTimer(stopped.Function(), nullptr), 0);
        ASSERT_TRUE(stopped.Wait());
        const int expired = m_pTimerNotic->m_Expired.Count();
        TimerCompletion again;
        ASSERT_EQ(timer->AgainTimer(again.Function(), nullptr), 0);
        ASSERT_TRUE(again.Wait());
        EXPECT_EQ(again.Result(), 0);
        ASSERT_TRUE(m_pTimerNotic->m_Expired.Wait(expired + 1));
    }
    Delete(timer);
}

TEST_F(TimerPauseTest, AgainRunsARunningTimerWithItsRepeatInterval)
{
    StartEngine();
    const auto timer = Make(kNeverMs, 1);
    Add(timer);
    ASSERT_EQ(timer->AgainTimer(nullptr, nullptr), 0);
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait(2));
    Delete(timer);
}

// libuv has nothing to repeat, and says so with success.
TEST_F(TimerPauseTest, AgainOfATimerWithoutARepeatDoesNothing)
{
    StartEngine();
    const auto timer = Make(1, 0);
    Add(timer);
    ASSERT_TRUE(m_pTimerNotic->m_Expired.Wait());
    TimerCompletion again;
    EXPECT_EQ(timer->AgainTimer(again.Function(), nullptr), 0);
    ASSERT_TRUE(again.Wait());
    EXPECT_EQ(again.Result(), 0);
    OnLoop([&] { EXPECT_EQ(timer->AgainTimer(again.Function(), nullptr), 0); });
    EXPECT_EQ(again.Calls(), 2);
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 1);
    Delete(timer);
}

TEST_F(TimerPauseTest, ClosedTimerAnswersWithSuccess)
{
    StartEngine();
    const auto timer = Make(1, 1);
    Add(timer);
    Delete(timer);
    const int expired = m_pTimerNotic->m_Expired.Count();
    TimerCompletion done;
    EXPECT_EQ(timer->StopTimer(done.Function(), nullptr), 0);
    EXPECT_EQ(timer->AgainTimer(done.Function(), nullptr), 0);
    ASSERT_TRUE(done.Wait(2));
    EXPECT_EQ(done.Result(), 0);
    OnLoop(
        [&]
        {
            EXPECT_EQ(timer->StopTimer(done.Function(), nullptr), 0);
            EXPECT_EQ(timer->AgainTimer(done.Function(), nullptr), 0);
        });
    EXPECT_EQ(done.Calls(), 4);
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), expired);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(TimerPauseTest, InsideOnCloseBothAnswerWithSuccess)
{
    StartEngine();
    const auto timer = Make(1, 1);
    m_pTimerNotic->m_OnClose = [&](const std::shared_ptr<ITimerHandleInterface>& closed)
    {
        EXPECT_EQ(closed->StopTimer(nullptr, nullptr), 0);
        EXPECT_EQ(closed->AgainTimer(nullptr, nullptr), 0);
        EXPECT_EQ(m_pEngine->DelTimerReq(closed, false, nullptr, nullptr), 0);
    };
    Add(timer);
    Delete(timer);
    StopEngine();
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
}

} // namespace
} // namespace test
