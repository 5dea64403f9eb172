#pragma once

#include "http_interface/http_interface.h"
#include "stress/Entry.h"

#include <atomic>
#include <functional>
#include <memory>

namespace stress
{

/// A timer.
class Timer : public Entry, public http_interface::ITimerHandleNotic
{
public:
    /// @param onTimer  Runs at every expiry, if there is one.
    static std::shared_ptr<Timer> Make(Session& session, std::uint64_t id, Script script,
                                       std::uint64_t timeoutMs, std::uint64_t repeatMs,
                                       std::function<void()> onTimer = {});

    Timer(Session& session, std::uint64_t id, Script script, std::uint64_t repeatMs,
          std::function<void()> onTimer);

    // Entry:
    bool Add(Caller caller, bool async) override;
    void Delete(Caller caller, bool async) override;
    void Sweep() override;
    bool Settle() override;
    void Release() override;
    bool IsReleased() const override { return m_pTimer == nullptr; }
    bool IsQuiet() const override { return true; } // nobody waits for a timer
    std::string Describe() const override;

    void Stop(Caller caller, std::function<void()> done = {});
    void Again(Caller caller);

    /// Whether the engine accepts work; loop thread, once it was added. Stops
    /// the timer.
    bool AsksEngine();

    // ITimerHandleNotic:
    void OnTimer(std::shared_ptr<http_interface::ITimerHandleInterface> timer,
                 void* userData) override;
    void OnClose(std::shared_ptr<http_interface::ITimerHandleInterface> timer,
                 void* userData) override;

protected:
    void Perform(Action action) override;

private:
    using Handle = http_interface::ITimerHandleInterface;
    using Pause = int (Handle::*)(http_interface::TimerReqCallback, void*);

    void CallPause(Operation operation, Pause pause, Caller caller, std::function<void()> done);
    void OnAdded(const void* timer, const void* user, int result);
    void OnDeleted(const void* timer, const void* user, int result);
    void CheckNotice(const char* name, const std::shared_ptr<Handle>& timer,
                     const void* user) const;
    bool HoldsLoop() const;

    std::shared_ptr<Handle> m_pTimer;
    const bool m_bRepeats;
    const std::function<void()> m_OnTimer;

    // Loop thread, and between two runs:
    bool m_bAdded = false;
    bool m_bDeleted = false;
    bool m_bClosed = false;
    bool m_bStopped = false;
    bool m_bExpired = false;
    bool m_bLeftOver = false; ///< its loop is gone
};

} // namespace stress
