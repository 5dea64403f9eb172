#pragma once

#include <http_interface/http_interface.h>

#include <chrono>
#include <future>

/// Prints each expiry of a repeating timer and stops the timer itself after
/// some.
class TickNotic : public http_interface::ITimerHandleNotic
{
public:
    explicit TickNotic(int ticks) : m_Left(ticks) {}

    /// Returns when all ticks have come.
    void Wait() { m_Done.get_future().wait(); }

    // ITimerHandleNotic, on the loop thread:
    void OnTimer(std::shared_ptr<http_interface::ITimerHandleInterface> timer,
                 void* userData) override;
    void OnClose(std::shared_ptr<http_interface::ITimerHandleInterface> timer,
                 void* userData) override;

private:
    const std::chrono::steady_clock::time_point m_Begin = std::chrono::steady_clock::now();
    int m_Left;
    std::promise<void> m_Done;
};
