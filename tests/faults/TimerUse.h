#pragma once

#include "faults/Host.h"
#include "support/Event.h"

#include <memory>

namespace test
{

/// A timer of a host: added, stopped and started again, each once it has
/// expired, and deleted.
class TimerUse : public ITimerHandleNotic, public std::enable_shared_from_this<TimerUse>
{
public:
    TimerUse(Host& host, const std::shared_ptr<IHttpInterface>& engine);

    /// False when the timer could not be added: another one has to be taken.
    bool Run();
    /// After Stop.
    void ExpectAnswered();

    // ITimerHandleNotic:
    void OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* user) override;
    void OnClose(std::shared_ptr<ITimerHandleInterface> timer, void* user) override;

private:
    using Call = std::function<int(TimerReqCallback)>;

    bool Complete(const Call& call);

    Host& m_Host;
    const std::shared_ptr<IHttpInterface> m_pEngine;
    std::shared_ptr<ITimerHandleInterface> m_pTimer;
    Event m_Expired;
    Event m_Closed;
    Event m_Completed;
    std::atomic<int> m_Result{1};
    std::atomic<int> m_Accepted{0};
};

} // namespace test
