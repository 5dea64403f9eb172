#include "faults/TimerUse.h"

#include <gtest/gtest.h>

namespace test
{
namespace
{

constexpr std::uint64_t kFirstMs = 0;
constexpr std::uint64_t kRepeatMs = 1;

} // namespace

TimerUse::TimerUse(Host& host, const std::shared_ptr<IHttpInterface>& engine)
    : m_Host(host), m_pEngine(engine)
{
}

bool TimerUse::Run()
{
    const std::shared_ptr<ITimerHandleNotic> self = shared_from_this();
    EXPECT_TRUE(m_Host.Ask(
        [&]
        {
            m_pTimer = ITimerHandleInterface::Create(self, kFirstMs, kRepeatMs, this);
            return 0;
        }));
    if (!Complete([this](TimerReqCallback done)
                  { return m_pEngine->AddTimerReq(m_pTimer, true, std::move(done), nullptr); }))
    {
        m_pTimer.reset();
        return false;
    }
    const bool added = m_Completed.Count() != 0;
    const auto stop = [this](TimerReqCallback done)
    {
        return m_pTimer->StopTimer(std::move(done), nullptr);
    };
    const auto again = [this](TimerReqCallback done)
    {
        return m_pTimer->AgainTimer(std::move(done), nullptr);
    };
    const auto del = [this](TimerReqCallback done)
    {
        return m_pEngine->DelTimerReq(m_pTimer, true, std::move(done), nullptr);
    };
    if (added) // else its wake-up was lost, and comes with the delete's
    {
        m_Host.Wait(m_Expired, 1);
        EXPECT_TRUE(Complete(stop) || Complete(stop));
        EXPECT_TRUE(Complete(again) || Complete(again));
        m_Host.Wait(m_Expired, m_Expired.Count() + 1);
    }
    EXPECT_TRUE(Complete(del) || Complete(del));
    m_pTimer.reset();
    return true;
}

/// True when the completion tells of success, or of nothing in time.
bool TimerUse::Complete(const Call& call)
{
    m_Result = 0;
    EXPECT_TRUE(m_Host.Ask(
        [&]
        {
            TimerReqCallback done =
                [this](std::shared_ptr<ITimerHandleInterface>, void*, int result)
            {
                const TestCode inTest;
                m_Result = result;
                m_Completed.Set();
            };
            const int result = call(std::move(done));
            m_Accepted += result == 0 ? 1 : 0;
            return result;
        }));
    m_Host.Wait(m_Completed, m_Accepted);
    if (m_Result != 0)
    {
        m_Host.Refused();
    }
    return m_Result == 0;
}

void TimerUse::ExpectAnswered()
{
    EXPECT_EQ(m_Completed.Count(), m_Accepted);
}

void TimerUse::OnTimer(std::shared_ptr<ITimerHandleInterface>, void* user)
{
    const TestCode inTest;
    EXPECT_EQ(user, this);
    m_Expired.Set();
}

void TimerUse::OnClose(std::shared_ptr<ITimerHandleInterface>, void* user)
{
    const TestCode inTest;
    EXPECT_EQ(user, this);
    m_Closed.Set();
}

} // namespace test
