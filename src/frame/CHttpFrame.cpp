/// The host's side of an engine's life cycle: Init, Start, Stop. The loop
/// thread's is in CHttpFrameLoop.cpp.

#include "frame/CHttpFrame.h"

#include "base/base.h"
#include "frame/SocketBridge.h"
#include "http_interface/IHttpInterfaceNotic.h"
#include "module/CallCheck.h"
#include "module/LibraryEntry.h"
#include "module/Platform.h"
#include "module/ScopeGuard.h"

#include <chrono>
#include <system_error>
#include <utility>

namespace http_interface
{
namespace
{

constexpr auto kStartPollStep = std::chrono::milliseconds(10);

template <typename Handle>
bool IsInitialised(const Handle& handle)
{
    return handle.loop != nullptr;
}

} // namespace

CHttpFrame::CHttpFrame() = default;

// The loop and the multi handle of an engine that was initialised and never
// ran are left as they are: closing them is the loop thread's business.
CHttpFrame::~CHttpFrame() = default;

int CHttpFrame::Init(std::shared_ptr<IHttpInterfaceNotic> notic, void* userData)
{
    std::int32_t idle = FRAME_STATE_IDLE;
    if (!m_State.compare_exchange_strong(idle, FRAME_STATE_INITING))
    {
        return -1;
    }
    ScopeGuard failed(
        [this]
        {
            // Closes nothing in this state: what was initialised stays, and
            // the next Init goes on from there.
            CloseLoop();
            m_State = FRAME_STATE_IDLE;
        });
    if (!InitLoop() || !InitMulti())
    {
        return -1;
    }
    failed.Dismiss();
    m_pNotic = std::move(notic);
    m_pUserData = userData;
    m_State = FRAME_STATE_INITED;
    return 0;
}

// After a failed Init the loop and handles that did get initialised are still
// registered; initialising one of them again would corrupt the loop.
bool CHttpFrame::InitLoop()
{
    if (!m_pLoop)
    {
        m_pLoop = std::shared_ptr<uv_loop_s>(new uv_loop_s());
        m_bLoopEnded = false;
        m_CurlTimer = {};
        m_StopAsync = {};
        m_ReqAsync = {};
    }
    uv_loop_s* const loop = m_pLoop.get();
    if (!m_bLoopInited)
    {
        if (!CheckUv(uv_loop_init(loop), "[HTTP_INTERFACE]err[%d:%s]uv_loop_init failed"))
        {
            return false;
        }
        m_bLoopInited = true;
    }
    m_CurlTimer.data = this;
    if (!IsInitialised(m_CurlTimer) && !CheckUv(uv_timer_init(loop, &m_CurlTimer),
                                                "[HTTP_INTERFACE]err[%d:%s]uv_timer_init failed"))
    {
        return false;
    }
    m_StopAsync.data = this;
    if (!IsInitialised(m_StopAsync) && !CheckUv(uv_async_init(loop, &m_StopAsync, OnStop),
                                                "[HTTP_INTERFACE]err[%d:%s]Stop async init failed"))
    {
        return false;
    }
    m_ReqAsync.data = this;
    return IsInitialised(m_ReqAsync) || CheckUv(uv_async_init(loop, &m_ReqAsync, OnReqAsync),
                                                "[HTTP_INTERFACE]err[%d:%s]Req async init failed");
}

// A null multi handle is not tested for: the first option fails with it. One
// that an earlier, failed Init made is overwritten, not freed.
bool CHttpFrame::InitMulti()
{
    m_pCurlMulti = curl_multi_init();
    return CheckMulti(
               curl_multi_setopt(m_pCurlMulti, CURLMOPT_SOCKETFUNCTION, HandleSocket),
               "[HTTP_INTERFACE]err[%d:%s]curl_multi_setopt CURLMOPT_SOCKETFUNCTION failed") &&
           CheckMulti(curl_multi_setopt(m_pCurlMulti, CURLMOPT_SOCKETDATA, this),
                      "[HTTP_INTERFACE]err[%d:%s]curl_multi_setopt CURLMOPT_SOCKETDATA failed") &&
           CheckMulti(
               curl_multi_setopt(m_pCurlMulti, CURLMOPT_TIMERFUNCTION, StartTimeout),
               "[HTTP_INTERFACE]err[%d:%s]curl_multi_setopt CURLMOPT_TIMERFUNCTION failed") &&
           CheckMulti(curl_multi_setopt(m_pCurlMulti, CURLMOPT_TIMERDATA, this),
                      "[HTTP_INTERFACE]err[%d:%s]curl_multi_setopt CURLMOPT_TIMERDATA failed");
}

int CHttpFrame::Start(bool wait)
{
    if (m_State != FRAME_STATE_INITED)
    {
        return -1;
    }
    if (IsLoopThread() && m_bCancelling)
    {
        return 0; // the thread exists, and m_Mutex is held further up this stack
    }
    std::unique_lock<std::mutex> lock(m_Mutex);
    // A detached thread is still ending this loop, or has just closed it.
    if (m_State != FRAME_STATE_INITED || m_LoopThread == LoopThread::Detached)
    {
        return -1;
    }
    if (m_Thread.joinable() || m_LoopThread == LoopThread::Attached)
    {
        return 0;
    }
    const std::uint64_t before = m_FirstIterations;
    m_Thread = std::thread(
        [this, mark = LoopThreadMark()]
        {
            FrameThread(); // *this may be gone here
            platform::OnLoopThreadEnd();
        });
    m_LoopThread = LoopThread::Attached;

    // The loop may begin to turn and be stopped again between two looks.
    while (wait && !m_bRunning && m_FirstIterations == before)
    {
        lock.unlock();
        std::this_thread::sleep_for(kStartPollStep);
        lock.lock();
    }
    return 0;
}

int CHttpFrame::Stop(bool viaAsync)
{
    if (m_State != FRAME_STATE_INITED || !m_bRunning)
    {
        return -1;
    }
    return IsLoopThread() ? StopFromLoop(viaAsync) : StopFromHost();
}

int CHttpFrame::StopFromLoop(bool viaAsync)
{
    if (!viaAsync)
    {
        OnStop(&m_StopAsync);
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (viaAsync && !SendStopLocked())
    {
        return -1;
    }
    const bool joinedByHost = m_LoopThread == LoopThread::Attached && !m_Thread.joinable();
    if (!joinedByHost)
    {
        m_Thread.detach(); // throws when an earlier Stop on this thread detached it
        m_LoopThread = LoopThread::Detached;
    }
    return 0;
}

// Of two threads that stop the engine at once only one gets the thread, under
// the lock under which it wakes the loop: later the engine may be in its next
// cycle already.
int CHttpFrame::StopFromHost()
{
    std::thread thread;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (!SendStopLocked())
        {
            return -1;
        }
        if (m_Thread.get_id() == std::this_thread::get_id())
        {
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        }
        thread = std::move(m_Thread);
    }
    if (!thread.joinable())
    {
        return 0;
    }
    try
    {
        thread.join();
    }
    catch (const std::system_error&)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Thread = std::move(thread);
        throw;
    }
    return 0;
}

/// Wakes the loop to run OnStop; the lock keeps OnStop from closing the wake-up
/// meanwhile.
bool CHttpFrame::SendStopLocked()
{
    return !m_bRunning ||
           CheckUv(uv_async_send(&m_StopAsync),
                   "[HTTP_INTERFACE]err[%d:%s]uv_async_send failed while stop HttpFrame");
}

bool CHttpFrame::IsLoopThread() const
{
    // Ids are compared in the 32 bits that every platform's ids fit.
    return m_LoopThreadId == static_cast<std::uint32_t>(base::GetTid());
}

} // namespace http_interface
