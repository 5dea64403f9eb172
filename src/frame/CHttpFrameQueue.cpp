/// The operation queue: host threads append records under m_Mutex and wake the
/// loop; the loop thread takes them all at once and performs them, in order of
/// arrival, outside the lock. At a stop, each record is offered to its target
/// for cancelling first.

#include "frame/CHttpFrame.h"
#include "frame/IAsynOperInterface.h"
#include "handle/CHttpHandle.h"
#include "module/HttpLog.h"
#include "module/ScopeGuard.h"
#include "timer/CTimerHandle.h"

#include <stdexcept>
#include <utility>

namespace http_interface
{

int CHttpFrame::AddHttpReq(std::shared_ptr<IHttpHandleInterface> handle, bool async,
                           HttpReqCallback done, void* user)
{
    if (!handle)
    {
        return -1;
    }
    if (!m_bRunning)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Can not add http req now");
        return -1;
    }
    HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE]add http handle[%p] [%d]",
            static_cast<const void*>(handle.get()), async ? 1 : 0);
    auto target = std::static_pointer_cast<CHttpHandle>(handle);
    target->SetFrame(shared_from_this());
    return PerformOrQueue(
        std::make_shared<AsynHttpReq>(ASYN_OPER_ADD_HTTP, std::move(target), user, std::move(done)),
        async);
}

int CHttpFrame::DelHttpReq(std::shared_ptr<IHttpHandleInterface> handle, bool async,
                           HttpReqCallback done, void* user)
{
    if (!handle)
    {
        return -1;
    }
    auto target = std::static_pointer_cast<CHttpHandle>(handle);
    return PerformOrQueue(
        std::make_shared<AsynHttpReq>(ASYN_OPER_DEL_HTTP, std::move(target), user, std::move(done)),
        async);
}

int CHttpFrame::AddTimerReq(std::shared_ptr<ITimerHandleInterface> timer, bool async,
                            TimerReqCallback done, void* user)
{
    if (!timer)
    {
        return -1;
    }
    if (!m_bRunning)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Can not add timer req now");
        return -1;
    }
    auto target = std::static_pointer_cast<CTimerHandle>(timer);
    return PerformOrQueue(std::make_shared<AsynTimerReq>(ASYN_OPER_ADD_TIMER, std::move(target),
                                                         user, std::move(done)),
                          async);
}

int CHttpFrame::DelTimerReq(std::shared_ptr<ITimerHandleInterface> timer, bool async,
                            TimerReqCallback done, void* user)
{
    if (!timer)
    {
        return -1;
    }
    auto target = std::static_pointer_cast<CTimerHandle>(timer);
    return PerformOrQueue(std::make_shared<AsynTimerReq>(ASYN_OPER_DEL_TIMER, std::move(target),
                                                         user, std::move(done)),
                          async);
}

/// Performed at once, a record runs ahead of those already queued, and also
/// after the engine stopped accepting.
int CHttpFrame::PerformOrQueue(std::shared_ptr<AsynOperReq> req, bool async)
{
    if (IsLoopThread())
    {
        if (!async)
        {
            return req->target->DoAsynOper(req, shared_from_this());
        }
        if (m_bCancelling)
        {
            return -1; // m_Mutex is held further up this stack, and nothing is accepted any more
        }
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_bRunning)
    {
        return -1;
    }
    AppendLocked(std::move(req));
    return 0;
}

// The refusal speaks of timers whatever the record is: one text serves all.
void CHttpFrame::PostAsynOper(std::shared_ptr<AsynOperReq> req)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_bRunning)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Can not add timer req now");
        return;
    }
    AppendLocked(std::move(req));
}

// The wake-up's result is not looked at: a record that it failed for is
// performed with the next one, or at the stop.
void CHttpFrame::AppendLocked(std::shared_ptr<AsynOperReq> req)
{
    if (m_AsynOperReqList.size() >= m_AsynOperReqList.max_size())
    {
        throw std::length_error("list too long");
    }
    m_AsynOperReqList.push_back(std::move(req));
    uv_async_send(&m_ReqAsync);
}

void CHttpFrame::OnReqAsync(uv_async_t* handle)
{
    static_cast<CHttpFrame*>(handle->data)->DrainAsynOpers();
}

// Records that are queued meanwhile, from inside an operation or a completion,
// wait for the next wake-up.
void CHttpFrame::DrainAsynOpers()
{
    std::list<std::shared_ptr<AsynOperReq>> taken;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        taken.swap(m_AsynOperReqList);
    }
    for (const std::shared_ptr<AsynOperReq>& req : taken)
    {
        req->target->DoAsynOper(req, shared_from_this());
    }
}

// Completions of cancelled adds run in here, under the lock: whatever they
// queue is refused by m_bCancelling before it would lock again.
void CHttpFrame::CancelAsynOpers()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_bRunning = false;
    m_bCancelling = true;
    const ScopeGuard cancelled([this] { m_bCancelling = false; }); // a completion may throw
    for (auto it = m_AsynOperReqList.begin(); it != m_AsynOperReqList.end();)
    {
        it = (*it)->target->CancelAsynOper(*it) ? m_AsynOperReqList.erase(it) : std::next(it);
    }
}

} // namespace http_interface
