#pragma once

#include <functional>
#include <memory>

namespace http_interface
{

class IHttpHandleInterface;
class ITimerHandleInterface;

/// Completion of AddHttpReq() or DelHttpReq(): called once, on the loop thread,
/// after the operation was performed. An empty function is skipped.
/// Arguments: the handle; the user data given with that call, untouched; the
/// result, 0 for success and -1 for failure or cancellation.
///
/// An add that is still queued when the engine stops is completed with -1
/// while the engine holds its lock; the engine refuses all work by then, so
/// every call that would queue something answers -1 there.
using HttpReqCallback = std::function<void(std::shared_ptr<IHttpHandleInterface>, void*, int)>;

/// Completion of AddTimerReq(), DelTimerReq(), ITimerHandleInterface::StopTimer()
/// or ITimerHandleInterface::AgainTimer(): as HttpReqCallback, with the timer.
using TimerReqCallback = std::function<void(std::shared_ptr<ITimerHandleInterface>, void*, int)>;

/// A timer's expiry or close as a plain function: called on the loop thread
/// with the timer and the user data given to ITimerHandleInterface::Create().
/// An empty function is skipped.
using TimerNoticFunc = std::function<void(std::shared_ptr<ITimerHandleInterface>, void*)>;

} // namespace http_interface
