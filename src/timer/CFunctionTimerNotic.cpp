#include "timer/CFunctionTimerNotic.h"

namespace http_interface
{

CFunctionTimerNotic::CFunctionTimerNotic(const TimerNoticFunc& timerFunc,
                                         const TimerNoticFunc& closeFunc)
    : m_timerFunc(timerFunc), m_closeFunc(closeFunc)
{
}

CFunctionTimerNotic::~CFunctionTimerNotic() = default;

void CFunctionTimerNotic::OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* userData)
{
    if (m_timerFunc)
    {
        m_timerFunc(timer, userData);
    }
}

void CFunctionTimerNotic::OnClose(std::shared_ptr<ITimerHandleInterface> timer, void* userData)
{
    if (m_closeFunc)
    {
        m_closeFunc(timer, userData);
    }
}

} // namespace http_interface
