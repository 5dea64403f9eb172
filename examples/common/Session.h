#pragma once

#include <http_interface/http_interface.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

/// An engine with the requests and timers that were handed to it. Remembers
/// them, so that Close() can delete each and stop the engine in the right
/// order, which a host has to do by itself. To be used from one thread.
class Session
{
public:
    /// Time that Close() has by default.
    static constexpr auto kCloseLimit = std::chrono::seconds(5);

    /// Makes an engine that does not run yet. Throws std::runtime_error when
    /// it can't be initialised.
    Session();

    /// Close() with its default limit, if it was not called.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Returns when the engine accepts work; false when it can't be started.
    bool Start();

    /// Hands a request or a timer to the engine; false when it is refused. It
    /// is remembered in any case, so that it is deleted.
    bool Add(const std::shared_ptr<http_interface::IHttpHandleInterface>& request);
    bool Add(const std::shared_ptr<http_interface::ITimerHandleInterface>& timer);

    /// Deletes a request or a timer that was handed over, and forgets it.
    void Delete(const std::shared_ptr<http_interface::IHttpHandleInterface>& request);
    void Delete(const std::shared_ptr<http_interface::ITimerHandleInterface>& timer);

    /// Deletes everything and stops the engine. False when it did not end
    /// within the limit (a name look-up may hold it up): it ends in the
    /// background then.
    bool Close(std::chrono::milliseconds limit = kCloseLimit);

private:
    std::shared_ptr<http_interface::IHttpInterface> m_pEngine;
    std::vector<std::shared_ptr<http_interface::IHttpHandleInterface>> m_Requests;
    std::vector<std::shared_ptr<http_interface::ITimerHandleInterface>> m_Timers;
    bool m_bStarted = false;
};
