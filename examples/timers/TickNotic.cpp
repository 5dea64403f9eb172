#include "TickNotic.h"

#include <cstdio>

void TickNotic::OnTimer(std::shared_ptr<http_interface::ITimerHandleInterface> timer, void*)
{
    const auto passed = std::chrono::steady_clock::now() - m_Begin;
    std::printf(" %ld", static_cast<long>(
                            std::chrono::duration_cast<std::chrono::milliseconds>(passed).count()));
    if (--m_Left == 0)
    {
        timer->StopTimer(nullptr, nullptr); // at once: this is the loop thread
        m_Done.set_value();
    }
}

void TickNotic::OnClose(std::shared_ptr<http_interface::ITimerHandleInterface>, void*)
{
    std::printf("; closed\n");
}
