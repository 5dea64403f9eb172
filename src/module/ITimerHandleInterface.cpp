#include "http_interface/ITimerHandleInterface.h"

#include "timer/CTimerHandle.h"

#include <utility>

namespace http_interface
{

std::shared_ptr<ITimerHandleInterface>
ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic> notic, std::uint64_t timeout,
                              std::uint64_t repeat, void* userData)
{
    return std::make_shared<CTimerHandle>(std::move(notic), timeout, repeat, userData);
}

std::shared_ptr<ITimerHandleInterface>
ITimerHandleInterface::Create(TimerNoticFunc onTimer, TimerNoticFunc onClose, std::uint64_t timeout,
                              std::uint64_t repeat, void* userData)
{
    return std::make_shared<CTimerHandle>(onTimer, onClose, timeout, repeat, userData);
}

ITimerHandleInterface::ITimerHandleInterface() = default;

ITimerHandleInterface::ITimerHandleInterface(const ITimerHandleInterface&) = default;

ITimerHandleInterface& ITimerHandleInterface::operator=(const ITimerHandleInterface&) = default;

ITimerHandleInterface::~ITimerHandleInterface() = default;

} // namespace http_interface
