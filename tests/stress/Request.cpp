#include "stress/Request.h"

#include "stress/HostLog.h"
#include "stress/Session.h"

#include <utility>

namespace stress
{

using http_interface::IHttpHandleInterface;
using http_interface::IHttpHandleNotic;

Request::Request(Session& session, std::uint64_t id, Script script, End end)
    : Entry(session, id, script),
      m_pHandle(IHttpHandleInterface::Create()),
      m_bEndIsTold(end == End::Told)
{
}

bool Request::Init(const std::string& url, int method, int connectTimeoutMs, int timeoutMs)
{
    const std::shared_ptr<IHttpHandleNotic> notic(shared_from_this(), this);
    if (m_pHandle->InitRequest(url.c_str(), nullptr, method, notic, connectTimeoutMs, timeoutMs,
                               this) != 0)
    {
        Differ("InitRequest refused " + url);
        return false;
    }
    return true;
}

bool Request::Add(Caller caller, bool async)
{
    const bool atOnce = caller == Caller::Loop && !async;
    const bool accepts = atOnce && Owner().Accepts();
    const auto call = Owner().Open(Operation::AddRequest);
    ++m_QueuedAdds;
    Remember("add");
    const int result = Owner().Engine().AddHttpReq(
        m_pHandle, async,
        [this, self = shared_from_this(), call](auto handle, void* user, int addResult)
        {
            OnAdded(handle.get(), user, addResult); // before the call is settled
            call->Complete(addResult);
            Act(Moment::Added);
        },
        this);
    const bool owed = atOnce ? accepts : result == 0;
    if (!owed)
    {
        --m_QueuedAdds;
    }
    if (atOnce && call->Completions() != (owed ? 1 : 0))
    {
        Differ("an add at once was completed " + std::to_string(call->Completions()) + " times");
    }
    if (atOnce && owed && call->Result() != result)
    {
        Differ("an add at once told two results");
    }
    if (owed)
    {
        m_bAccepted = true;
    }
    call->Return(owed);
    return result == 0;
}

void Request::OnAdded(const void* handle, const void* user, int result)
{
    const bool accepts = Owner().Accepts();
    Remember("added:" + std::to_string(result));
    if (handle != m_pHandle.get() || user != this)
    {
        Differ("the completion of its add names another");
    }
    const bool mustFail = m_bDeleted || Owner().IsInsideLibcurl() || (m_bEndIsTold && m_bInEngine);
    const bool mayFail = mustFail || !accepts || m_bInEngine;
    if (result == 0 ? mustFail : !mayFail || result != -1)
    {
        Differ("its add was completed with " + std::to_string(result));
    }
    if (result == 0)
    {
        m_bAccepted = true;
        if (m_bEndIsTold)
        {
            Owner().Owed().Change(+1);
        }
        m_bInEngine = true;
        m_bCutOff = m_bLeft = m_bMayBeOut = false;
        if (!accepts)
        {
            CutOff(); // it stood behind the operation that stopped the engine
        }
        Began();
    }
    --m_QueuedAdds;
}

void Request::Delete(Caller caller, bool async)
{
    const bool atOnce = caller == Caller::Loop && !async;
    const auto call = Owner().Open(Operation::DeleteRequest);
    Remember("delete");
    const int result = Owner().Engine().DelHttpReq(
        m_pHandle, async,
        [this, self = shared_from_this(), call,
         knowsEngine = m_bAccepted.load()](auto handle, void* user, int deleteResult)
        {
            OnDeleted(handle.get(), user, deleteResult, knowsEngine);
            call->Complete(deleteResult);
        },
        this);
    if (atOnce && (call->Completions() != 1 || call->Result() != result))
    {
        Differ("a delete at once was not completed with its result");
    }
    call->Return(atOnce || result == 0);
}

/// @param knowsEngine  It was added before; the delete of one that was not fails.
void Request::OnDeleted(const void* handle, const void* user, int result, bool knowsEngine)
{
    Remember("deleted:" + std::to_string(result));
    if (handle != m_pHandle.get() || user != this)
    {
        Differ("the completion of its delete names another");
    }
    const bool inside = Owner().IsInsideLibcurl();
    const bool mayFail = m_bDeleted || inside || !knowsEngine;
    const bool mustFail =
        (m_bDeleted && !m_bDeletedInside) ||
        (!m_bDeleted && inside && m_bEndIsTold && m_bInEngine && !m_bCutOff && !m_bMayBeOut);
    if (result == 0 ? mustFail : !mayFail || result != -1)
    {
        Differ("its delete was completed with " + std::to_string(result));
    }
    if (!m_bDeleted)
    {
        m_bDeleted = true;
        m_bDeletedInside = inside;
        LeaveEngine();
        Deleted();
    }
}

void Request::Disconnect(Caller caller)
{
    const bool accepts = caller == Caller::Host || Owner().Accepts();
    HostLog::TakeRefusal();
    const int result = m_pHandle->Disconnect();
    const bool accepted = result == 0 && !HostLog::TakeRefusal();
    Owner().Books().Called(Operation::Disconnect, accepted);
    Remember(accepted ? "disconnect" : "disconnect refused");
    if (!accepted)
    {
        return;
    }
    if (caller == Caller::Loop)
    {
        if (m_bDeleted || !accepts || (m_bEndIsTold && m_bInEngine && Owner().IsInsideLibcurl()))
        {
            Differ("it could be disconnected");
        }
        LeaveEngine();
        return;
    }
    // Nobody is told when it is done: something that is queued behind it is.
    Owner().QueueMark(
        [this, self = shared_from_this()]
        {
            Remember("disconnected");
            OnDisconnected();
        });
}

/// What is still queued when the engine is stopped inside libcurl is performed
/// there, where libcurl refuses to disconnect.
void Request::OnDisconnected()
{
    if (Owner().IsInsideLibcurl())
    {
        m_bMayBeOut = true;
        return;
    }
    LeaveEngine();
}

/// The transfer has left the engine, or its handle is at its end.
void Request::LeaveEngine()
{
    if (m_bInEngine.exchange(false) && m_bEndIsTold && !m_bCutOff)
    {
        Owner().Owed().Change(-1);
    }
    else
    {
        Owner().Owed().Notify();
    }
}

/// libcurl's timer is closed: whether it ever begins depends on others.
void Request::CutOff()
{
    Owner().Books().Noted(Notice::CutOff);
    m_bCutOff = true;
    if (m_bEndIsTold)
    {
        Owner().Owed().Change(-1);
    }
}

void Request::LeaveCutOff()
{
    CutOff();
    m_bLeft = true;
}

void Request::Sweep()
{
    const bool isLeftOver = m_bLeft || (!m_bInEngine && Id() % 2 == 0);
    if (!m_bDeleted && !isLeftOver)
    {
        Delete(Caller::Loop, false);
    }
}

bool Request::Settle()
{
    if (m_bInEngine && !m_bLeft)
    {
        Differ("still in the engine although its loop has ended");
    }
    if (m_QueuedAdds != 0)
    {
        Differ("an add is still queued although the loop has ended");
    }
    m_bInEngine = false;
    return m_bDeleted;
}

void Request::Release()
{
    m_pHandle.reset();
}

std::string Request::Describe() const
{
    return "request " + Name() + (m_bInEngine ? " in the engine" : "") +
           (m_bDeleted ? " deleted" : "");
}

void Request::Perform(Action action)
{
    const bool addsAgain = action == Action::AddAgain || action == Action::AddAgainQueued;
    if (action == Action::Disconnect)
    {
        Disconnect(Caller::Loop);
    }
    else if (!addsAgain || MayBeAddedAgain())
    {
        Entry::Perform(action);
    }
}

} // namespace stress
