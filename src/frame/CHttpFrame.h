#pragma once

#include "frame/AsynOperReq.h"
#include "frame/DeferredDeletes.h"
#include "http_interface/IHttpInterface.h"

#include <atomic>
#include <cstdint>
#include <curl/curl.h>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <uv.h>

namespace http_interface
{

enum HttpFrameState : std::int32_t
{
    FRAME_STATE_IDLE = 0,
    FRAME_STATE_INITING = 1,
    FRAME_STATE_INITED = 2,
    FRAME_STATE_CLOSING = 3,
};

/// The engine: a libuv loop and a libcurl multi handle on one private thread.
///
/// Life cycle in CHttpFrame.cpp and CHttpFrameLoop.cpp, operation queue in CHttpFrameQueue.cpp; the
/// libcurl callbacks are SocketBridge, finished transfers TransferCompletion.
///
/// m_Mutex is the only lock. Host threads build operation records and append
/// them under it; all other work is done on the loop thread, outside the lock.
class CHttpFrame : public std::enable_shared_from_this<CHttpFrame>, public IHttpInterface
{
public:
    CHttpFrame();
    ~CHttpFrame() override;

    // IHttpInterface:
    int Init(std::shared_ptr<IHttpInterfaceNotic> notic, void* userData) override;
    int Start(bool wait) override;
    int Stop(bool viaAsync) override;
    int AddHttpReq(std::shared_ptr<IHttpHandleInterface> handle, bool async, HttpReqCallback done,
                   void* user) override;
    int DelHttpReq(std::shared_ptr<IHttpHandleInterface> handle, bool async, HttpReqCallback done,
                   void* user) override;
    int AddTimerReq(std::shared_ptr<ITimerHandleInterface> timer, bool async, TimerReqCallback done,
                    void* user) override;
    int DelTimerReq(std::shared_ptr<ITimerHandleInterface> timer, bool async, TimerReqCallback done,
                    void* user) override;

    /// Queues a record that a handle or timer built; any thread. Never
    /// performs it at once. A refusal is only logged.
    void PostAsynOper(std::shared_ptr<AsynOperReq> req);

    /// Any thread.
    bool IsLoopThread() const;
    bool IsRunning() const { return m_bRunning; }

    // Loop thread only:
    CURLM* Multi() const { return m_pCurlMulti; }
    /// Empty once it has turned for the last time: what begins then never ends.
    std::shared_ptr<uv_loop_s> Loop() const { return m_bLoopEnded ? nullptr : m_pLoop; }
    uv_timer_t* CurlTimer() { return &m_CurlTimer; }
    DeferredDeletes* Deletes() { return &m_Deletes; }

private:
    /// Whether a thread runs FrameThread, and who ends it.
    enum class LoopThread
    {
        None,
        Attached, ///< Stop on a host thread joins it
        Detached, ///< Stop was called on it; it ends by itself
    };

    bool InitLoop();
    bool InitMulti();
    void FrameThread();
    void CloseLoop();
    void CloseHandles();
    int StopFromLoop(bool viaAsync);
    int StopFromHost();
    bool SendStopLocked();
    static void OnLoopPrepare(uv_prepare_t* prepare);
    static void OnStop(uv_async_t* handle);

    int PerformOrQueue(std::shared_ptr<AsynOperReq> req, bool async);
    void AppendLocked(std::shared_ptr<AsynOperReq> req);
    void CancelAsynOpers();
    void DrainAsynOpers();
    static void OnReqAsync(uv_async_t* handle);

    std::atomic<std::int32_t> m_State{FRAME_STATE_IDLE};
    std::thread m_Thread;                         ///< under m_Mutex
    std::atomic<std::uint32_t> m_LoopThreadId{0}; ///< never cleared; 0 until the first start

    std::shared_ptr<IHttpInterfaceNotic> m_pNotic; ///< set by Init, emptied by the loop thread
    void* m_pUserData = nullptr;                   ///< as m_pNotic

    // Made by Init, loop thread only from then on (but for the two wake-ups,
    // which any thread sends under m_Mutex):
    std::shared_ptr<uv_loop_s> m_pLoop; ///< plainly deleted; the deleter does not close it
    uv_async_t m_StopAsync{};
    uv_timer_t m_CurlTimer{};
    uv_async_t m_ReqAsync{};

    std::atomic<bool> m_bRunning{false}; ///< accepts work; written under m_Mutex
    std::mutex m_Mutex;
    std::list<std::shared_ptr<AsynOperReq>> m_AsynOperReqList; ///< under m_Mutex

    CURLM* m_pCurlMulti = nullptr; ///< as m_pLoop

    bool m_bLoopInited = false;                 ///< m_pLoop went through uv_loop_init; as m_pLoop
    bool m_bLoopEnded = false;                  ///< m_pLoop turns no more; as m_pLoop
    LoopThread m_LoopThread = LoopThread::None; ///< under m_Mutex
    std::uint64_t m_FirstIterations = 0;        ///< loops that began to turn; under m_Mutex
    bool m_bCancelling = false;                 ///< m_Mutex is held by OnStop; loop thread only
    DeferredDeletes m_Deletes;                  ///< loop thread only
};

} // namespace http_interface
