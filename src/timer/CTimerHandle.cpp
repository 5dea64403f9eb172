#include "timer/CTimerHandle.h"

#include "frame/CHttpFrame.h"
#include "http_interface/ITimerHandleNotic.h"
#include "module/HttpLog.h"
#include "timer/CFunctionTimerNotic.h"

#include <new>
#include <utility>

namespace http_interface
{

CTimerHandle::CTimerHandle(std::shared_ptr<ITimerHandleNotic> notic, std::uint64_t timeoutMs,
                           std::uint64_t repeatMs, void* userData)
    : m_timeout(timeoutMs), m_repeat(repeatMs), m_notic(std::move(notic)), m_userData(userData)
{
}

CTimerHandle::CTimerHandle(const TimerNoticFunc& onTimer, const TimerNoticFunc& onClose,
                           std::uint64_t timeoutMs, std::uint64_t repeatMs, void* userData)
    : CTimerHandle(std::make_shared<CFunctionTimerNotic>(onTimer, onClose), timeoutMs, repeatMs,
                   userData)
{
}

CTimerHandle::~CTimerHandle() = default;

int CTimerHandle::StopTimer(TimerReqCallback done, void* user)
{
    return PerformOrPost(ASYN_OPER_STOP_TIMER, uv_timer_stop, "[HTTP_INTERFACE]stop timer failed",
                         std::move(done), user);
}

int CTimerHandle::AgainTimer(TimerReqCallback done, void* user)
{
    return PerformOrPost(ASYN_OPER_AGAIN_TIMER, uv_timer_again,
                         "[HTTP_INTERFACE]again timer failed", std::move(done), user);
}

// At once on the loop thread, where a failure is the result and the completion
// is not called; queued from any other thread, where the result is always 0.
int CTimerHandle::PerformOrPost(AsynOperType type, int (*uvCall)(uv_timer_t*), const char* failure,
                                TimerReqCallback done, void* user)
{
    const std::shared_ptr<CHttpFrame> frame = Frame();
    if (!frame)
    {
        return -1;
    }
    if (!frame->IsRunning())
    {
        // Stopping and restarting share the text.
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Can not again timer req now");
        return -1;
    }
    if (!frame->IsLoopThread())
    {
        frame->PostAsynOper(
            std::make_shared<AsynTimerReq>(type, shared_from_this(), user, std::move(done)));
        return 0;
    }
    if (IsOnLoop() && uvCall(&m_timer) != 0)
    {
        HttpLog(LOG_LEVEL_ERROR, failure);
        return -1;
    }
    if (done)
    {
        done(shared_from_this(), user, 0);
    }
    return 0;
}

int CTimerHandle::DoAsynOper(std::shared_ptr<AsynOperReq> req, std::shared_ptr<CHttpFrame> frame)
{
    if (!req)
    {
        return -1;
    }
    const auto& timerReq = static_cast<const AsynTimerReq&>(*req);
    switch (req->type)
    {
    case ASYN_OPER_ADD_TIMER:
    {
        const int result = AddInLoop(frame);
        Complete(timerReq, result);
        return result;
    }
    // The failure of the other three reaches only their completion.
    case ASYN_OPER_DEL_TIMER:
        Complete(timerReq, DelInLoop());
        CloseLeftOver();
        return 0;
    case ASYN_OPER_STOP_TIMER:
        Complete(timerReq, StopInLoop());
        return 0;
    case ASYN_OPER_AGAIN_TIMER:
        Complete(timerReq, AgainInLoop());
        return 0;
    default:
        return 0;
    }
}

bool CTimerHandle::CancelAsynOper(std::shared_ptr<AsynOperReq> req)
{
    if (req->type != ASYN_OPER_ADD_TIMER)
    {
        return false;
    }
    Complete(static_cast<const AsynTimerReq&>(*req), -1);
    return true;
}

void CTimerHandle::Complete(const AsynTimerReq& req, int result)
{
    if (req.done)
    {
        req.done(shared_from_this(), req.userData, result);
    }
}

// In the lines below two 64-bit times meet a %d each: the low half is shown.

int CTimerHandle::AddInLoop(const std::shared_ptr<CHttpFrame>& frame)
{
    if (InitTimer(frame ? frame->Loop() : nullptr, frame) != 0)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Init timer failed");
        return -1;
    }
    // libuv counts from the loop's clock, which stands still while a turn lasts.
    uv_update_time(m_timer.loop);
    const int code = uv_timer_start(&m_timer, TimerCallback, m_timeout, m_repeat);
    if (code != 0)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]err[%d:%s]uv_timer_start[%d:%d] failed", code,
                uv_strerror(code), m_timeout, m_repeat);
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Start timer failed");
        Close(); // the host hears OnClose
        return -1;
    }
    return 0;
}

int CTimerHandle::DelInLoop()
{
    const int result = StopInLoop();
    if (result == 0)
    {
        Close();
    }
    return result;
}

// The loop of a left-over timer can't close it any more: the host is told now.
void CTimerHandle::CloseLeftOver()
{
    if (!IsOnLoop())
    {
        CloseCallback(reinterpret_cast<uv_handle_t*>(&m_timer)); // nothing if never initialised
    }
}

int CTimerHandle::StopInLoop()
{
    const int result = StopUvTimer();
    if (result != 0)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]stop timer failed");
    }
    return result;
}

int CTimerHandle::AgainInLoop()
{
    const int code = IsOnLoop() ? uv_timer_again(&m_timer) : 0;
    if (code != 0)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]err[%d:%s]uv_timer_again[%d:%d] failed", code,
                uv_strerror(code), m_timeout, m_repeat);
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]again timer failed");
        return -1;
    }
    return 0;
}

int CTimerHandle::InitTimer(const std::shared_ptr<uv_loop_s>& loop,
                            const std::shared_ptr<CHttpFrame>& frame)
{
    if (IsOnLoop())
    {
        // A second add: libuv must not initialise a timer that still waits in
        // its heap. The self-reference of the first add is lost.
        uv_timer_stop(&m_timer);
    }
    if (!loop || !frame)
    {
        return -1;
    }
    // First, since a timer that the loop knows has to have it.
    std::unique_ptr<std::shared_ptr<CTimerHandle>> self(
        new (std::nothrow) std::shared_ptr<CTimerHandle>(shared_from_this()));
    if (!self || uv_timer_init(loop.get(), &m_timer) != 0)
    {
        return -1;
    }
    m_timer.data = self.release();
    m_loop = loop;
    std::atomic_store(&m_frame, frame);
    return 0;
}

// Not so for a timer that was never initialised, which an add that is cancelled
// when the engine stops leaves to the delete behind it, nor for one that was
// left over from an earlier run of the engine, whose loop is gone. Neither
// runs; libuv would crash on both. Nor for one whose loop has just ended, where
// libuv would not call back any more.
bool CTimerHandle::IsOnLoop() const
{
    const std::shared_ptr<uv_loop_s> loop = m_loop.lock();
    return loop && loop == m_frame->Loop();
}

int CTimerHandle::StopUvTimer()
{
    if (!IsOnLoop())
    {
        return 0;
    }
    const int code = uv_timer_stop(&m_timer);
    if (code != 0)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]err[%d:%s]uv_timer_stop[%d:%d] failed", code,
                uv_strerror(code), m_timeout, m_repeat);
        return -1;
    }
    return 0;
}

void CTimerHandle::Close()
{
    auto* const handle = reinterpret_cast<uv_handle_t*>(&m_timer);
    if (IsOnLoop() && uv_is_closing(handle) == 0)
    {
        uv_close(handle, CloseCallback);
    }
}

// Never stops or closes the timer: one without a repeat stays open after its
// only expiry until the host deletes it.
void CTimerHandle::TimerCallback(uv_timer_t* timer)
{
    const auto& self = *static_cast<std::shared_ptr<CTimerHandle>*>(timer->data);
    const std::shared_ptr<ITimerHandleNotic> notic = self->m_notic;
    if (notic)
    {
        notic->OnTimer(self, self->m_userData);
    }
}

void CTimerHandle::CloseCallback(uv_handle_t* handle)
{
    auto* const holder = static_cast<std::shared_ptr<CTimerHandle>*>(handle->data);
    if (holder == nullptr)
    {
        return;
    }
    const std::shared_ptr<CTimerHandle> self = *holder;
    if (self->m_notic)
    {
        self->m_notic->OnClose(self, self->m_userData);
    }
    self->m_notic.reset();
    delete holder;
    handle->data = nullptr;
}

std::shared_ptr<CHttpFrame> CTimerHandle::Frame() const
{
    return std::atomic_load(&m_frame);
}

} // namespace http_interface
