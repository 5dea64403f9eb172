#include "timer/TimerFixture.h"

#include <limits>

namespace test
{
namespace
{

/// The two ways to hear from a timer.
class TimerFactoryTest : public TimerFixture
{
protected:
    /// A function that counts its calls and keeps what came last.
    TimerNoticFunc Counted(Event& calls)
    {
        return [this, &calls](std::shared_ptr<ITimerHandleInterface> timer, void* userData)
        {
            m_pTold = timer;
            m_ToldUserData = userData;
            calls.Set();
        };
    }

    /// Runs a timer for some expiries, counted by another one, and deletes it.
    void RunAndDelete(const std::shared_ptr<ITimerHandleInterface>& timer)
    {
        StartEngine();
        Add(timer);
        PassTurns();
        TimerCompletion deleted;
        ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
        ASSERT_TRUE(deleted.Wait());
        EXPECT_EQ(deleted.Result(), 0);
        StopEngine();
        EXPECT_TRUE(m_Log.Texts(kError).empty());
    }

    std::shared_ptr<ITimerHandleInterface> m_pTold;
    void* m_ToldUserData = nullptr;
    Event m_Expired;
    Event m_Closed;
};

TEST_F(TimerFactoryTest, FunctionsAreCalledInPlaceOfANotice)
{
    const auto timer =
        ITimerHandleInterface::Create(Counted(m_Expired), Counted(m_Closed), 1, 1, &m_UserData);
    StartEngine();
    Add(timer);
    EXPECT_TRUE(m_Expired.Wait(2));
    EXPECT_EQ(m_Closed.Count(), 0);
    EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
    EXPECT_TRUE(m_Closed.Wait());
    StopEngine();
    EXPECT_EQ(m_Closed.Count(), 1);
    EXPECT_EQ(m_pTold, timer);
    EXPECT_EQ(m_ToldUserData, &m_UserData);
}

TEST_F(TimerFactoryTest, EmptyCloseFunctionIsSkipped)
{
    RunAndDelete(ITimerHandleInterface::Create(Counted(m_Expired), nullptr, 1, 1, nullptr));
    EXPECT_GE(m_Expired.Count(), 1);
}

TEST_F(TimerFactoryTest, EmptyExpiryFunctionIsSkipped)
{
    RunAndDelete(ITimerHandleInterface::Create(nullptr, Counted(m_Closed), 1, 1, nullptr));
    EXPECT_EQ(m_Closed.Count(), 1);
}

TEST_F(TimerFactoryTest, BothFunctionsMayBeEmpty)
{
    const TimerNoticFunc none;
    RunAndDelete(ITimerHandleInterface::Create(none, none, 1, 1, nullptr));
}

TEST_F(TimerFactoryTest, NoticeMayBeEmpty)
{
    RunAndDelete(
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), 1, 1, nullptr));
}

TEST_F(TimerFactoryTest, HostMayChangeItsFunctionsAfterwards)
{
    TimerNoticFunc onTimer = Counted(m_Expired);
    TimerNoticFunc onClose = Counted(m_Closed);
    const auto timer = ITimerHandleInterface::Create(onTimer, onClose, 1, 1, nullptr);
    onTimer = nullptr;
    onClose = nullptr;
    StartEngine();
    Add(timer);
    EXPECT_TRUE(m_Expired.Wait());
    EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
    EXPECT_TRUE(m_Closed.Wait());
}

// It is never used as an address.
TEST_F(TimerFactoryTest, UserDataComesBackBitForBit)
{
    StartEngine();
    for (const std::uintptr_t bits :
         {std::uintptr_t{0}, std::uintptr_t{1}, static_cast<std::uintptr_t>(0xdeadbeef12345677U),
          static_cast<std::uintptr_t>(0x8000000000000000U),
          std::numeric_limits<std::uintptr_t>::max()})
    {
        void* const userData = reinterpret_cast<void*>(bits);
        const auto notic = std::make_shared<TimerNotic>();
        notic->m_UserData = &m_UserData;
        const auto told = ITimerHandleInterface::Create(notic, 1, 0, userData);
        Add(told);
        ASSERT_TRUE(notic->m_Expired.Wait());
        EXPECT_EQ(notic->m_UserData, userData);
        notic->m_UserData = &m_UserData;
        ASSERT_EQ(m_pEngine->DelTimerReq(told, false, nullptr, nullptr), 0);
        ASSERT_TRUE(notic->m_Closed.Wait());
        EXPECT_EQ(notic->m_UserData, userData);

        const int closed = m_Closed.Count();
        const auto counted =
            ITimerHandleInterface::Create(nullptr, Counted(m_Closed), 1, 0, userData);
        Add(counted);
        ASSERT_EQ(m_pEngine->DelTimerReq(counted, false, nullptr, nullptr), 0);
        ASSERT_TRUE(m_Closed.Wait(closed + 1));
        EXPECT_EQ(m_ToldUserData, userData);
    }
}

} // namespace
} // namespace test
