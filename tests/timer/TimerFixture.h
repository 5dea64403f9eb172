#pragma once

#include "support/EngineTest.h"

#include <cstdint>
#include <memory>

namespace test
{

/// Milliseconds that no test lasts.
constexpr std::uint64_t kNeverMs = 1000 * 1000;

/// An engine test whose timers tell m_pTimerNotic.
class TimerFixture : public EngineTest
{
protected:
    std::shared_ptr<ITimerHandleInterface> Make(std::uint64_t timeoutMs, std::uint64_t repeatMs)
    {
        return ITimerHandleInterface::Create(m_pTimerNotic, timeoutMs, repeatMs, &m_UserData);
    }

    void Add(const std::shared_ptr<ITimerHandleInterface>& timer)
    {
        TimerCompletion added;
        ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, added.Function(), nullptr), 0);
        ASSERT_TRUE(added.Wait());
        ASSERT_EQ(added.Result(), 0);
    }

    /// Deletes a timer with m_pTimerNotic and waits until it is closed.
    void Delete(const std::shared_ptr<ITimerHandleInterface>& timer)
    {
        const int before = m_pTimerNotic->m_Closed.Count();
        ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
        ASSERT_TRUE(m_pTimerNotic->m_Closed.Wait(before + 1));
    }

    /// Lets the loop turn and its clock go on.
    void PassTurns()
    {
        const auto notic = std::make_shared<TimerNotic>();
        const auto timer = ITimerHandleInterface::Create(notic, 1, 1, nullptr);
        Add(timer);
        EXPECT_TRUE(notic->m_Expired.Wait(5));
        ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
        EXPECT_TRUE(notic->m_Closed.Wait());
    }

    std::shared_ptr<TimerNotic> m_pTimerNotic = std::make_shared<TimerNotic>();
};

} // namespace test
