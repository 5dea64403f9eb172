#include "timer/TimerFixture.h"

#include <chrono>
#include <limits>

namespace test
{
namespace
{

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class TimerTest : public TimerFixture
{
};

TEST_F(TimerTest, WithoutARepeatItExpiresOnceAndStaysOpenUntilDeleted)
{
    StartEngine();
    const auto timer = Make(1, 0);
    Add(timer);
    ASSERT_TRUE(m_pTimerNotic->m_Expired.Wait());
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 1);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 0);
    Delete(timer);
    StopEngine();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 1);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(TimerTest, WithARepeatItExpiresUntilDeleted)
{
    StartEngine();
    const auto timer = Make(1, 1);
    Add(timer);
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait(10));
    Delete(timer);
    const int expired = m_pTimerNotic->m_Expired.Count();
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), expired);
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
}

TEST_F(TimerTest, NoticesComeOnTheLoopThreadWithTheTimerAndItsUserData)
{
    StartEngine();
    const auto timer = Make(1, 0);
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    const auto check = [&](const std::shared_ptr<ITimerHandleInterface>& told)
    {
        EXPECT_EQ(told, timer);
        EXPECT_EQ(base::GetTid(), loopThread);
        EXPECT_EQ(m_pTimerNotic->m_UserData, &m_UserData);
        m_pTimerNotic->m_UserData = nullptr;
    };
    m_pTimerNotic->m_OnTimer = check;
    m_pTimerNotic->m_OnClose = check;
    Add(timer);
    ASSERT_TRUE(m_pTimerNotic->m_Expired.Wait());
    Delete(timer);
}

// libuv counts whole milliseconds, so that an expiry may come within the last
// one.
TEST_F(TimerTest, NoExpiryComesBeforeItsTime)
{
    constexpr int kTimeoutMs = 30;
    constexpr int kRepeatMs = 10;
    StartEngine();
    const auto timer = Make(kTimeoutMs, kRepeatMs);
    std::vector<Clock::time_point> times;
    m_pTimerNotic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>&)
    {
        times.push_back(Clock::now());
    };
    const Clock::time_point start = Clock::now();
    Add(timer);
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait(5));
    Delete(timer);
    for (std::size_t i = 0; i < times.size(); ++i)
    {
        const milliseconds due(kTimeoutMs + kRepeatMs * static_cast<int>(i) - 1);
        EXPECT_GE(times[i] - start, due) << i;
    }
}

// However long the turn of the loop in which it was added has lasted.
TEST_F(TimerTest, NoExpiryComesBeforeItsTimeAfterALongTurn)
{
    StartEngine();
    const auto timer = Make(30, 0);
    Clock::time_point start;
    Clock::time_point expired;
    m_pTimerNotic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>&)
    {
        expired = Clock::now();
    };
    OnLoop(
        [&]
        {
            const Clock::time_point begin = Clock::now();
            while (Clock::now() - begin < milliseconds(40))
            {
            }
            start = Clock::now();
            EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
        });
    ASSERT_TRUE(m_pTimerNotic->m_Expired.Wait());
    EXPECT_GE(expired - start, milliseconds(29));
    Delete(timer);
}

TEST_F(TimerTest, WithATimeoutOfZeroItExpiresAfterTheAdd)
{
    StartEngine();
    const auto timer = Make(0, 0);
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
            EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 0);
        });
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait());
    Delete(timer);
}

TEST_F(TimerTest, LongestTimesAreAccepted)
{
    constexpr std::uint64_t kLongest = std::numeric_limits<std::uint64_t>::max();
    StartEngine();
    const auto timer = Make(kLongest, kLongest);
    Add(timer);
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 0);
    TimerCompletion again;
    EXPECT_EQ(timer->AgainTimer(again.Function(), nullptr), 0);
    EXPECT_TRUE(again.Wait());
    EXPECT_EQ(again.Result(), 0);
    PassTurns();
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 0);
    Delete(timer);
}

TEST_F(TimerTest, CompletionsGetTheUserDataOfTheirRequest)
{
    StartEngine();
    const auto timer = Make(kNeverMs, kNeverMs);
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    int users[4] = {};
    TimerCompletion done[4];
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, true, done[0].Function(), &users[0]), 0);
    ASSERT_TRUE(done[0].Wait());
    ASSERT_EQ(timer->StopTimer(done[1].Function(), &users[1]), 0);
    ASSERT_EQ(timer->AgainTimer(done[2].Function(), &users[2]), 0);
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, true, done[3].Function(), &users[3]), 0);
    for (int i = 0; i < 4; ++i)
    {
        ASSERT_TRUE(done[i].Wait());
        EXPECT_EQ(done[i].Result(), 0);
        EXPECT_EQ(done[i].User(), &users[i]);
        EXPECT_EQ(done[i].Target(), timer);
        EXPECT_EQ(done[i].ThreadId(), loopThread);
    }
    EXPECT_TRUE(m_pTimerNotic->m_Closed.Wait());
}

TEST_F(TimerTest, EmptyCompletionsAreSkipped)
{
    StartEngine();
    const auto timer = Make(kNeverMs, kNeverMs);
    EXPECT_EQ(m_pEngine->AddTimerReq(timer, true, nullptr, nullptr), 0);
    OnLoop([] {});
    EXPECT_EQ(timer->StopTimer(nullptr, nullptr), 0);
    EXPECT_EQ(timer->AgainTimer(nullptr, nullptr), 0);
    OnLoop(
        [&]
        {
            EXPECT_EQ(timer->StopTimer(nullptr, nullptr), 0);
            EXPECT_EQ(timer->AgainTimer(nullptr, nullptr), 0);
        });
    Delete(timer);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

} // namespace
} // namespace test
