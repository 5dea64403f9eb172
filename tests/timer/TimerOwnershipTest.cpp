#include "timer/TimerFixture.h"

namespace test
{
namespace
{

/// Who keeps a timer, its notice and its engine alive, and until when.
class TimerOwnershipTest : public TimerFixture
{
};

TEST_F(TimerOwnershipTest, RunningTimerOwnsItselfUntilItIsClosed)
{
    StartEngine();
    auto timer = Make(1, 1);
    const std::weak_ptr<ITimerHandleInterface> weak = timer;
    Add(timer);
    timer.reset();
    const int expired = m_pTimerNotic->m_Expired.Count();
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait(expired + 3));
    timer = weak.lock();
    ASSERT_NE(timer, nullptr);
    Delete(timer);
    OnLoop([] {}); // past the close, which held the timer
    EXPECT_EQ(timer.use_count(), 1);
    timer.reset();
    EXPECT_TRUE(weak.expired());
}

TEST_F(TimerOwnershipTest, TimerThatTheHostLetGoIsDestroyedWhenItIsClosed)
{
    StartEngine();
    const std::weak_ptr<ITimerHandleInterface> weak = [&]
    {
        const auto timer = Make(1, 0);
        m_pTimerNotic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>& expired)
        {
            m_pEngine->DelTimerReq(expired, false, nullptr, nullptr);
        };
        EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
        return timer;
    }();
    ASSERT_TRUE(m_pTimerNotic->m_Closed.Wait());
    OnLoop([] {});
    EXPECT_TRUE(weak.expired());
}

TEST_F(TimerOwnershipTest, NewTimerBelongsToTheHostAlone)
{
    auto timer = Make(1, 0);
    const std::weak_ptr<ITimerHandleInterface> weak = timer;
    EXPECT_EQ(m_pTimerNotic.use_count(), 2);
    timer.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(m_pTimerNotic.use_count(), 1);
}

TEST_F(TimerOwnershipTest, NoticeIsKeptUntilTheTimerIsClosed)
{
    StartEngine();
    const auto timer = Make(kNeverMs, 0);
    Add(timer);
    EXPECT_EQ(m_pTimerNotic.use_count(), 2);
    Delete(timer);
    OnLoop([] {});
    EXPECT_EQ(m_pTimerNotic.use_count(), 1); // though the timer is still there
}

TEST_F(TimerOwnershipTest, NoticeThatTheHostLetGoIsStillTold)
{
    Event closed;
    const std::weak_ptr<TimerNotic> notic = m_pTimerNotic;
    m_pTimerNotic->m_OnClose = [&](const std::shared_ptr<ITimerHandleInterface>&)
    {
        closed.Set();
    };
    StartEngine();
    const auto timer = Make(1, 0);
    m_pTimerNotic.reset();
    Add(timer);
    EXPECT_FALSE(notic.expired());
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
    ASSERT_TRUE(closed.Wait());
    OnLoop([] {});
    EXPECT_TRUE(notic.expired());
}

TEST_F(TimerOwnershipTest, FunctionsAreKeptUntilTheTimerIsClosed)
{
    StartEngine();
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> weak = token;
    Event closed;
    const auto timer = ITimerHandleInterface::Create(
        [token](std::shared_ptr<ITimerHandleInterface>, void*) {},
        [token, &closed](std::shared_ptr<ITimerHandleInterface>, void*) { closed.Set(); }, kNeverMs,
        0, nullptr);
    token.reset();
    Add(timer);
    EXPECT_FALSE(weak.expired());
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
    ASSERT_TRUE(closed.Wait());
    OnLoop([] {});
    EXPECT_TRUE(weak.expired()); // though the timer is still there
}

TEST_F(TimerOwnershipTest, AddedTimerKeepsItsEngineUntilItIsDestroyed)
{
    StartEngine();
    auto timer = Make(kNeverMs, 0);
    Add(timer);
    Delete(timer);
    StopEngine();
    const std::weak_ptr<IHttpInterface> engine = m_pEngine;
    m_pEngine = IHttpInterface::Create();
    EXPECT_FALSE(engine.expired());
    timer.reset();
    EXPECT_TRUE(engine.expired());
}

TEST_F(TimerOwnershipTest, TimerThatWasNeverAddedKeepsNoEngine)
{
    const auto timer = Make(1, 0);
    StartEngine();
    StopEngine();
    EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), -1);
    EXPECT_EQ(m_pEngine.use_count(), 1);
    EXPECT_EQ(timer.use_count(), 1);
}

TEST_F(TimerOwnershipTest, CompletionIsLetGoOnceCalledOrRefused)
{
    auto token = std::make_shared<int>();
    const auto completion = [&](Event& called)
    {
        return [token, &called](std::shared_ptr<ITimerHandleInterface>, void*, int)
        {
            called.Set();
        };
    };
    Event called;
    const auto timer = Make(kNeverMs, 1);
    EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, completion(called), nullptr), -1);
    EXPECT_EQ(timer->StopTimer(completion(called), nullptr), -1);
    EXPECT_EQ(timer->AgainTimer(completion(called), nullptr), -1);
    EXPECT_EQ(token.use_count(), 1);

    StartEngine();
    EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, completion(called), nullptr), 0);
    ASSERT_TRUE(called.Wait());
    EXPECT_EQ(timer->StopTimer(completion(called), nullptr), 0);
    EXPECT_EQ(timer->AgainTimer(completion(called), nullptr), 0);
    ASSERT_TRUE(called.Wait(3));
    Delete(timer);
    OnLoop([] {});
    EXPECT_EQ(token.use_count(), 1);
}

} // namespace
} // namespace test
