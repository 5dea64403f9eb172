#pragma once

#include <memory>

namespace http_interface
{

class ITimerHandleInterface;

/// Implemented by the host to hear from one timer. Given to
/// ITimerHandleInterface::Create(); the timer shares ownership until it is
/// closed. Every call comes on the engine's loop thread, one at a time.
class ITimerHandleNotic
{
public:
    /// The timer expired: once for a timer without a repeat interval, again
    /// and again for one with. The timer may be stopped, restarted or deleted
    /// inside this call.
    /// @param userData  The value given to Create(), bit for bit.
    virtual void OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* userData) = 0;

    /// The timer is closed, because it was deleted or could not be started.
    /// The last notice; comes once. The timer lets its notice go afterwards.
    virtual void OnClose(std::shared_ptr<ITimerHandleInterface> timer, void* userData) = 0;

    virtual ~ITimerHandleNotic() = default;
};

} // namespace http_interface
