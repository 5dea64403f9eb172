#include "frame/CHttpFrame.h"

#include "base/base.h"
#include "frame/SocketBridge.h"
#include "http_interface/IHttpInterfaceNotic.h"
#include "module/HttpLog.h"
#include "module/LibraryEntry.h"

#include <chrono>
#include <system_error>
#include <utility>

namespace http_interface
{
namespace
{

constexpr auto kStartPollStep = std::chrono::milliseconds(10);

/// Logs a failed libuv call; true when it succeeded.
bool CheckUv(int code, const char* failure)
{
    if (code == 0)
    {
        return true;
    }
    HttpLog(LOG_LEVEL_ERROR, failure, code, uv_strerror(code));
    return false;
}

/// Logs a failed libcurl call; true when it succeeded.
bool CheckMulti(CURLMcode code, const char* failure)
{
    if (code == CURLM_OK)
    {
        return true;
    }
    HttpLog(LOG_LEVEL_ERROR, failure, static_cast<int>(code), curl_multi_strerror(code));
    return false;
}

template <typename Handle>
bool IsInitialised(const Handle& handle)
{
    return handle.loop != nullptr;
}

template <typename Handle>
void CloseIfOpen(Handle& handle)
{
    auto* const base = reinterpret_cast<uv_handle_t*>(&handle);
    if (uv_is_closing(base) == 0)
    {
        uv_close(base, nullptr);
    }
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
    if (!InitLoop() || !InitMulti())
    {
        // Does nothing in this state: what was initialised stays, and the next
        // Init goes on from there.
        CloseLoop();
        m_State = FRAME_STATE_IDLE;
        return -1;
    }
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
        [this]
        {
            const LoopThreadScope scope;
            FrameThread(); // *this may be gone here
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

void CHttpFrame::FrameThread()
{
    const std::shared_ptr<CHttpFrame> self = shared_from_this();
    HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE]FrameThread Start");
    m_LoopThreadId = static_cast<std::uint32_t>(base::GetTid());

    // Stopped by its own callback and never closed: uv_loop_close finds it
    // still registered and answers that the loop is busy, which is ignored.
    uv_prepare_t prepare{};
    uv_prepare_init(m_pLoop.get(), &prepare);
    prepare.data = this;
    uv_prepare_start(&prepare, OnLoopPrepare);

    const int code = uv_run(m_pLoop.get(), UV_RUN_DEFAULT);
    if (!CheckUv(code, "[HTTP_INTERFACE]err[%d:%s]uv_run failed"))
    {
        // The loop is in an unknown state: it is neither closed nor is the
        // host told that it ended.
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_LoopThread = LoopThread::None;
        return;
    }
    HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE]FrameThread Stop");
    // Nothing is appended any more, so the list is read without the lock.
    // What is left in it is released by the destructor.
    HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE]m_AsynOperReqList size[%zu]",
            m_AsynOperReqList.size());
    if (m_pNotic)
    {
        m_pNotic->OnHttpFrameStop(self, m_pUserData);
        m_pNotic.reset();
        m_pUserData = nullptr;
    }
    CloseLoop();
}

void CHttpFrame::OnLoopPrepare(uv_prepare_t* prepare)
{
    auto* const frame = static_cast<CHttpFrame*>(prepare->data);
    {
        const std::lock_guard<std::mutex> lock(frame->m_Mutex);
        frame->m_bRunning = true;
        ++frame->m_FirstIterations;
    }
    uv_prepare_stop(prepare);
}

void CHttpFrame::OnStop(uv_async_t* handle)
{
    HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE]%s", "http_interface::CHttpFrame::OnStop");
    if (handle == nullptr || handle->data == nullptr)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]OnStop Get NULL rAsync or data");
        return;
    }
    auto* const frame = static_cast<CHttpFrame*>(handle->data);
    frame->CancelAsynOpers();
    OnReqAsync(&frame->m_ReqAsync);
    frame->CloseHandles();
}

void CHttpFrame::CloseHandles()
{
    CloseIfOpen(m_CurlTimer);
    CloseIfOpen(m_StopAsync);
    CloseIfOpen(m_ReqAsync);
}

void CHttpFrame::CloseLoop()
{
    std::int32_t inited = FRAME_STATE_INITED;
    if (!m_State.compare_exchange_strong(inited, FRAME_STATE_CLOSING))
    {
        return;
    }
    // The loop has turned for the last time. Where libcurl, to close a
    // connection, wants a socket watched now, it finds no loop: the callback
    // that frees the watched socket's record would never come.
    const std::shared_ptr<uv_loop_s> loop = std::move(m_pLoop); // leaves it empty
    if (m_pCurlMulti != nullptr)
    {
        const DeferredDeletes::CurlCall call(&m_Deletes);
        curl_multi_cleanup(m_pCurlMulti);
        m_pCurlMulti = nullptr;
    }
    if (loop)
    {
        CloseHandles();
        uv_loop_close(loop.get());
        m_bLoopInited = false;
    }
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_LoopThread = LoopThread::None;
    }
    m_State = FRAME_STATE_IDLE;
}

int CHttpFrame::Stop(bool viaAsync)
{
    if (m_State != FRAME_STATE_INITED || !m_bRunning)
    {
        return -1;
    }
    const bool onLoop = IsLoopThread();
    if (onLoop && !viaAsync)
    {
        OnStop(&m_StopAsync);
    }
    else if (!SendStop())
    {
        return -1;
    }
    if (onLoop)
    {
        DetachThread();
    }
    else
    {
        JoinThread();
    }
    return 0;
}

/// Wakes the loop to run OnStop; the lock keeps OnStop from closing the
/// wake-up meanwhile.
bool CHttpFrame::SendStop()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return !m_bRunning ||
           CheckUv(uv_async_send(&m_StopAsync),
                   "[HTTP_INTERFACE]err[%d:%s]uv_async_send failed while stop HttpFrame");
}

void CHttpFrame::DetachThread()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Thread.detach(); // throws when an earlier Stop on this thread detached it already
    m_LoopThread = LoopThread::Detached;
}

/// Of two threads that stop the engine at once only one gets the thread.
void CHttpFrame::JoinThread()
{
    std::thread thread;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Thread.get_id() == std::this_thread::get_id())
        {
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        }
        thread = std::move(m_Thread);
    }
    if (!thread.joinable())
    {
        return;
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
}

bool CHttpFrame::IsLoopThread() const
{
    // Ids are compared in the 32 bits that every platform's ids fit.
    return m_LoopThreadId == static_cast<std::uint32_t>(base::GetTid());
}

} // namespace http_interface
