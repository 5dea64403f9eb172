/// The loop thread of an engine: it marks when work is accepted, runs the loop,
/// and closes what Init made once nothing is open in it.

#include "frame/CHttpFrame.h"

#include "base/base.h"
#include "http_interface/IHttpInterfaceNotic.h"
#include "module/CallCheck.h"

#include <utility>

namespace http_interface
{
namespace
{

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
    m_bLoopEnded = true;
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

} // namespace http_interface
