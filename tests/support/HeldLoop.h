#pragma once

#include "support/Event.h"

#include "http_interface/http_interface.h"

#include <functional>
#include <memory>

namespace test
{

/// Keeps an engine's loop thread busy, outside libcurl, from construction until
/// it is released: whatever is queued meanwhile is taken by one wake-up.
class HeldLoop
{
public:
    explicit HeldLoop(const std::shared_ptr<http_interface::IHttpInterface>& engine);
    ~HeldLoop(); ///< releases, unless the test has done so
    HeldLoop(const HeldLoop&) = delete;
    HeldLoop& operator=(const HeldLoop&) = delete;

    /// Lets the loop go on, once the loop thread has run the function.
    void Release(const std::function<void()>& last = nullptr);

    /// Releases the loop with a Stop(false) on the loop thread, and returns
    /// when that thread has ended.
    void ReleaseWithStop();

private:
    struct State
    {
        Event held;
        Event released;
        Event ran;
        std::function<void()> last;
    };
    const std::shared_ptr<http_interface::IHttpInterface> m_pEngine;
    const std::shared_ptr<State> m_pState = std::make_shared<State>();
    bool m_bReleased = false;
};

/// Sets the event when the calling thread has ended.
void SetAtThreadEnd(Event& event);

} // namespace test
