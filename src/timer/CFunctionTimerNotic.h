#pragma once

#include "http_interface/Callbacks.h"
#include "http_interface/ITimerHandleNotic.h"

namespace http_interface
{

/// A timer notice that calls two functions of the host; an empty one is
/// skipped.
class CFunctionTimerNotic : public ITimerHandleNotic
{
public:
    CFunctionTimerNotic(const TimerNoticFunc& timerFunc, const TimerNoticFunc& closeFunc);
    ~CFunctionTimerNotic() override;

    // ITimerHandleNotic:
    void OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* userData) override;
    void OnClose(std::shared_ptr<ITimerHandleInterface> timer, void* userData) override;

private:
    TimerNoticFunc m_timerFunc;
    TimerNoticFunc m_closeFunc;
};

} // namespace http_interface
