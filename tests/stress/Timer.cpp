#include "stress/Timer.h"

#include "stress/HostLog.h"
#include "stress/Session.h"

#include <utility>

namespace stress
{

using http_interface::ITimerHandleInterface;
using http_interface::ITimerHandleNotic;

std::shared_ptr<Timer> Timer::Make(Session& session, std::uint64_t id, Script script,
                                   std::uint64_t timeoutMs, std::uint64_t repeatMs,
                                   std::function<void()> onTimer)
{
    auto timer = std::make_shared<Timer>(session, id, script, repeatMs, std::move(onTimer));
    if (id % 2 == 0)
    {
        timer->m_pTimer = ITimerHandleInterface::Create(timer, timeoutMs, repeatMs, timer.get());
    }
    else
    {
        timer->m_pTimer = ITimerHandleInterface::Create(
            [timer](auto handle, void* user) { timer->OnTimer(handle, user); },
            [timer](auto handle, void* user) { timer->OnClose(handle, user); }, timeoutMs, repeatMs,
            timer.get());
    }
    session.Enter(timer);
    return timer;
}

Timer::Timer(Session& session, std::uint64_t id, Script script, std::uint64_t repeatMs,
             std::function<void()> onTimer)
    : Entry(session, id, script), m_bRepeats(repeatMs > 0), m_OnTimer(std::move(onTimer))
{
}

/// To be called once: a second add is not refused.
bool Timer::Add(Caller caller, bool async)
{
    const bool atOnce = caller == Caller::Loop && !async;
    const bool accepts = atOnce && Owner().Accepts();
    const auto call = Owner().Open(Operation::AddTimer);
    const int result = Owner().Engine().AddTimerReq(
        m_pTimer, async,
        [this, self = shared_from_this(), call](auto timer, void* user, int addResult)
        {
            OnAdded(timer.get(), user, addResult);
            call->Complete(addResult);
            Act(Moment::Added);
        },
        this);
    const bool owed = atOnce ? accepts : result == 0;
    if (atOnce && call->Completions() != (owed ? 1 : 0))
    {
        Differ("an add at once was not completed once");
    }
    call->Return(owed);
    return owed;
}

void Timer::OnAdded(const void* timer, const void* user, int result)
{
    Remember("added:" + std::to_string(result));
    if (timer != m_pTimer.get() || user != this)
    {
        Differ("the completion of its add names another");
    }
    m_bAdded = result == 0;
    if (!m_bAdded && (result != -1 || Owner().Accepts()))
    {
        Differ("its add was completed with " + std::to_string(result));
    }
}

void Timer::Delete(Caller caller, bool async)
{
    const bool atOnce = caller == Caller::Loop && !async;
    const auto call = Owner().Open(Operation::DeleteTimer);
    const int result = Owner().Engine().DelTimerReq(
        m_pTimer, async,
        [this, self = shared_from_this(), call](auto timer, void* user, int deleteResult)
        {
            OnDeleted(timer.get(), user, deleteResult);
            call->Complete(deleteResult);
        },
        this);
    if (atOnce && (call->Completions() != 1 || result != 0))
    {
        Differ("a delete at once was not completed once");
    }
    call->Return(atOnce || result == 0);
}

void Timer::OnDeleted(const void* timer, const void* user, int result)
{
    Remember("deleted:" + std::to_string(result));
    if (timer != m_pTimer.get() || user != this)
    {
        Differ("the completion of its delete names another");
    }
    if (result != 0)
    {
        Differ("its delete was completed with " + std::to_string(result));
    }
    m_bDeleted = m_bAdded;
}

void Timer::Stop(Caller caller, std::function<void()> done)
{
    CallPause(Operation::StopTimer, &Handle::StopTimer, caller,
              [this, done = std::move(done)]
              {
                  m_bStopped = true;
                  if (done)
                  {
                      done();
                  }
              });
}

void Timer::Again(Caller caller)
{
    CallPause(Operation::AgainTimer, &Handle::AgainTimer, caller,
              [this] { m_bStopped = m_bStopped && !m_bRepeats; });
}

void Timer::CallPause(Operation operation, Pause pause, Caller caller, std::function<void()> done)
{
    const auto call = Owner().Open(operation);
    HostLog::TakeRefusal();
    const int result = (*m_pTimer.*pause)(
        [this, self = shared_from_this(), call, done](auto timer, void* user, int pauseResult)
        {
            if (timer != m_pTimer || user != this || pauseResult != 0)
            {
                Differ("a wrong completion of a stop or restart");
            }
            done();
            call->Complete(pauseResult);
        },
        this);
    const bool owed = result == 0 && !HostLog::TakeRefusal();
    if (caller == Caller::Loop && call->Completions() != (owed ? 1 : 0))
    {
        Differ("a stop or restart at once was not completed once");
    }
    call->Return(owed);
}

bool Timer::AsksEngine()
{
    return m_pTimer->StopTimer(nullptr, nullptr) == 0;
}

bool Timer::HoldsLoop() const
{
    return m_bAdded && !m_bLeftOver && !m_bStopped && (m_bRepeats || !m_bExpired);
}

/// A timer that does not hold the loop may be left over: it is deleted in the
/// engine's next run.
void Timer::Sweep()
{
    if (m_bAdded && !m_bDeleted && (HoldsLoop() || Id() % 3 == 0))
    {
        Delete(Caller::Loop, false);
    }
}

bool Timer::Settle()
{
    if (m_bAdded && m_bDeleted != m_bClosed)
    {
        Differ(m_bDeleted ? "deleted and not closed" : "closed and not deleted");
    }
    if (HoldsLoop() && !m_bDeleted)
    {
        Differ("it still runs although the loop has ended");
    }
    m_bLeftOver = true;
    return !m_bAdded || m_bDeleted;
}

void Timer::Release()
{
    m_pTimer.reset();
}

std::string Timer::Describe() const
{
    return "timer " + Name();
}

void Timer::Perform(Action action)
{
    switch (action)
    {
    case Action::StopTimer:
        Stop(Caller::Loop);
        break;
    case Action::AgainTimer:
        Again(Caller::Loop);
        break;
    default:
        Entry::Perform(action);
    }
}

void Timer::CheckNotice(const char* name, const std::shared_ptr<Handle>& timer,
                        const void* user) const
{
    if (m_bClosed || !m_bAdded || timer != m_pTimer || user != this)
    {
        Differ(std::string("a wrong ") + name);
    }
}

void Timer::OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* userData)
{
    CheckNotice("OnTimer", timer, userData);
    Owner().Books().Noted(Notice::Expiry);
    if (m_bDeleted || m_bStopped || (m_bExpired && !m_bRepeats))
    {
        Differ("an expiry too many");
    }
    m_bExpired = true;
    if (m_OnTimer)
    {
        m_OnTimer();
    }
    Act(Moment::Expired);
}

void Timer::OnClose(std::shared_ptr<ITimerHandleInterface> timer, void* userData)
{
    Remember("closed");
    CheckNotice("OnClose", timer, userData);
    Owner().Books().Noted(Notice::Close);
    if (!m_bDeleted)
    {
        Differ("closed before the completion of its delete");
    }
    m_bClosed = true;
}

} // namespace stress
