#include "fuzz/Calls.h"

#include <utility>

namespace fuzz
{

std::shared_ptr<CalledTimer> CalledTimer::Make(std::shared_ptr<CalledEngine> engine,
                                               Tickets& tickets, Kind kind, std::uint64_t timeoutMs,
                                               std::uint64_t repeatMs)
{
    auto made = std::make_shared<CalledTimer>(std::move(engine), tickets);
    CalledTimer* const self = made.get();
    made->m_bNotified = kind != Silent;
    if (kind == Functions)
    {
        made->m_pTimer = ITimerHandleInterface::Create(
            [self](std::shared_ptr<ITimerHandleInterface> timer, void* user)
            { self->OnTimer(std::move(timer), user); },
            [self](std::shared_ptr<ITimerHandleInterface> timer, void* user)
            { self->OnClose(std::move(timer), user); },
            timeoutMs, repeatMs, self);
        return made;
    }
    // Owns nothing: the run holds the object until the timer is closed.
    const std::shared_ptr<ITimerHandleNotic> notic(std::shared_ptr<void>(),
                                                   kind == Notic ? self : nullptr);
    made->m_pTimer = ITimerHandleInterface::Create(notic, timeoutMs, repeatMs, self);
    return made;
}

void CalledTimer::Add(bool onLoop, bool async, bool told)
{
    m_pEngine->WhileOpen(
        [&]
        {
            if (m_bAdded.exchange(true))
            {
                return; // a timer is added once
            }
            m_pEngine->AddBegins();
            const auto ticket = m_Tickets.Draw();
            const int result = m_pEngine->Get().AddTimerReq(m_pTimer, async,
                                                            OnDone(told, What::Add, ticket), this);
            ticket->Answered(result, onLoop && !async);
            if (ticket->Completions() == 0 && result != 0)
            {
                m_pEngine->AddEnds();
                m_bAdded = false;
            }
        });
}

void CalledTimer::Delete(bool onLoop, bool async, bool told)
{
    const auto ticket = m_Tickets.Draw();
    const int result =
        m_pEngine->Get().DelTimerReq(m_pTimer, async, OnDone(told, What::Delete, ticket), this);
    ticket->Answered(result, onLoop && !async);
}

// Both may be dropped, and then are not completed, where the engine stops
// meanwhile: at most once is all that holds.
void CalledTimer::Stop(bool told)
{
    const int result =
        m_pTimer->StopTimer(OnDone(told, What::Other, std::make_shared<Ticket>()), this);
    FUZZ_CHECK(result == 0 || result == -1);
}

void CalledTimer::Again(bool told)
{
    const int result =
        m_pTimer->AgainTimer(OnDone(told, What::Other, std::make_shared<Ticket>()), this);
    FUZZ_CHECK(result == 0 || result == -1);
}

TimerReqCallback CalledTimer::OnDone(bool told, What what, const std::shared_ptr<Ticket>& ticket)
{
    return [this, told, what, ticket](std::shared_ptr<ITimerHandleInterface> timer, void* user,
                                      int result)
    {
        FUZZ_CHECK(timer == m_pTimer && user == this && (result == 0 || result == -1));
        ticket->Completed();
        if (what == What::Add)
        {
            m_pEngine->AddEnds();
            m_bStarted = result == 0;
            m_bDeleted = result != 0;
        }
        if (what == What::Delete && result == 0 && m_bStarted)
        {
            m_bDeleted = true;
        }
        if (told)
        {
            m_pEngine->Notify();
        }
    };
}

void CalledTimer::CheckAtEnd()
{
    const std::weak_ptr<ITimerHandleInterface> left = m_pTimer;
    m_pTimer.reset();
    Await([&] { return left.expired(); });
    FUZZ_CHECK(m_Closes == (m_bNotified && m_bStarted ? 1 : 0));
}

void CalledTimer::OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* userData)
{
    FUZZ_CHECK(timer == m_pTimer && userData == this);
    FUZZ_CHECK(m_Closes == 0);
    m_pEngine->Notify();
}

void CalledTimer::OnClose(std::shared_ptr<ITimerHandleInterface> timer, void* userData)
{
    FUZZ_CHECK(timer == m_pTimer && userData == this);
    FUZZ_CHECK(++m_Closes == 1);
    m_pEngine->Notify();
}

} // namespace fuzz
