#pragma once

#include <memory>

namespace http_interface
{

class IHttpInterface;

/// Implemented by the host to hear that an engine's loop has ended. Given to
/// IHttpInterface::Init(); the engine shares ownership until the call below
/// has returned.
class IHttpInterfaceNotic
{
public:
    /// The loop has ended; the last notice of this Init/Start/Stop cycle.
    /// Comes once a cycle, on the loop thread. A Stop() from a host thread
    /// returns only after this call. It does not come when the loop itself
    /// failed to run (the line "uv_run failed" was logged then). The OnClose of
    /// a timer that is deleted here comes at once.
    /// @param engine    The engine; it is not idle yet: Init() is refused with
    ///                  -1 until the loop thread has closed the loop.
    /// @param userData  The value given to Init().
    virtual void OnHttpFrameStop(std::shared_ptr<IHttpInterface> engine, void* userData) = 0;

    virtual ~IHttpInterfaceNotic() = default;
};

} // namespace http_interface
