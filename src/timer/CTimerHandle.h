#pragma once

#include "frame/AsynOperReq.h"
#include "frame/IAsynOperInterface.h"
#include "http_interface/ITimerHandleInterface.h"

#include <cstdint>
#include <memory>
#include <uv.h>

namespace http_interface
{

class ITimerHandleNotic;

/// One timer: a libuv timer on the engine's loop.
///
/// Whether it was added, runs or is closing is known to libuv, m_frame and
/// m_timer.data alone. Once initialised the timer owns itself through the
/// heap-held shared pointer in m_timer.data: taken in InitTimer, dropped in
/// CloseCallback.
class CTimerHandle : public std::enable_shared_from_this<CTimerHandle>,
                     public ITimerHandleInterface,
                     public IAsynOperInterface
{
public:
    CTimerHandle(std::shared_ptr<ITimerHandleNotic> notic, std::uint64_t timeoutMs,
                 std::uint64_t repeatMs, void* userData);
    CTimerHandle(const TimerNoticFunc& onTimer, const TimerNoticFunc& onClose,
                 std::uint64_t timeoutMs, std::uint64_t repeatMs, void* userData);
    ~CTimerHandle() override;

    // ITimerHandleInterface:
    int StopTimer(TimerReqCallback done, void* user) override;
    int AgainTimer(TimerReqCallback done, void* user) override;

    // IAsynOperInterface:
    int DoAsynOper(std::shared_ptr<AsynOperReq> req, std::shared_ptr<CHttpFrame> frame) override;
    bool CancelAsynOper(std::shared_ptr<AsynOperReq> req) override;

private:
    int PerformOrPost(AsynOperType type, int (*uvCall)(uv_timer_t*), const char* failure,
                      TimerReqCallback done, void* user);
    std::shared_ptr<CHttpFrame> Frame() const;

    // Loop thread only:
    int AddInLoop(const std::shared_ptr<CHttpFrame>& frame);
    int DelInLoop();
    void CloseLeftOver();
    int StopInLoop();
    int AgainInLoop();
    int InitTimer(const std::shared_ptr<uv_loop_s>& loop, const std::shared_ptr<CHttpFrame>& frame);
    bool IsOnLoop() const;
    int StopUvTimer();
    void Close();
    void Complete(const AsynTimerReq& req, int result);
    static void TimerCallback(uv_timer_t* timer);
    static void CloseCallback(uv_handle_t* handle);

    /// Set on the loop thread and read on any: by std::atomic_load and
    /// std::atomic_store only. Kept until the destructor.
    std::shared_ptr<CHttpFrame> m_frame;
    uv_timer_t m_timer{};
    std::uint64_t m_timeout; ///< milliseconds to the first expiry
    std::uint64_t m_repeat;  ///< milliseconds between later ones; 0 for one expiry
    std::shared_ptr<ITimerHandleNotic> m_notic; ///< may be empty; let go when closed
    void* m_userData;
    std::weak_ptr<uv_loop_s> m_loop; ///< that m_timer was initialised on; loop thread only
};

} // namespace http_interface
