#pragma once

#include "http_interface/Callbacks.h"
#include "http_interface/Export.h"

#include <cstdint>
#include <memory>

namespace http_interface
{

class ITimerHandleNotic;

/// One timer. It runs from IHttpInterface::AddTimerReq() until
/// IHttpInterface::DelTimerReq(), also when the host lets its own reference
/// go: a running timer owns itself until it is closed. A timer without a
/// repeat interval stays open after its expiry until it is deleted.
///
/// The first expiry comes no earlier than asked for, counted in the loop's whole
/// milliseconds from when the loop thread performs the add. Later ones, and one after AgainTimer(),
/// are counted by the loop's clock, which stands still while a notice runs. A busy loop thread
/// delays them.
class HTTP_INTERFACE_API ITimerHandleInterface
{
public:
    /// Makes a timer that tells a notice object. Any thread. Nothing is
    /// checked: every argument is accepted. Throws std::bad_alloc without
    /// memory.
    /// @param notic     Shared until the timer is closed; may be empty.
    /// @param timeout   Milliseconds from its start to the first expiry.
    /// @param repeat    Milliseconds between later expiries; 0 for one expiry.
    /// @param userData  Handed back in every notice; never dereferenced.
    static std::shared_ptr<ITimerHandleInterface> Create(std::shared_ptr<ITimerHandleNotic> notic,
                                                         std::uint64_t timeout,
                                                         std::uint64_t repeat, void* userData);

    /// The same with two functions; either may be empty.
    /// @param onTimer  Called at every expiry.
    /// @param onClose  Called once, when the timer is closed.
    static std::shared_ptr<ITimerHandleInterface> Create(TimerNoticFunc onTimer,
                                                         TimerNoticFunc onClose,
                                                         std::uint64_t timeout,
                                                         std::uint64_t repeat, void* userData);

    ITimerHandleInterface();
    ITimerHandleInterface(const ITimerHandleInterface&);
    /// Copies nothing and returns this object.
    ITimerHandleInterface& operator=(const ITimerHandleInterface&);

    /// Stops the expiries; the timer stays open. Any thread: at once on the
    /// loop thread, queued from any other.
    /// @param done  Told of the result on the loop thread; may be empty.
    /// @param user  Handed back to done.
    /// @return 0 when stopped or queued; -1, and done is never called, when the
    ///         timer was not added yet (no line), when the engine does not
    ///         accept work (a line), or when libuv failed at once (a line). A
    ///         queued stop that fails tells done; one that an engine drops
    ///         because it stops meanwhile does not. On a timer that is closed,
    ///         or left over from an earlier run of the engine, 0, and nothing
    ///         happens.
    virtual int StopTimer(TimerReqCallback done, void* user) = 0;

    /// Starts a repeating timer again with its repeat interval. For a timer
    /// without one libuv does nothing and the result is 0. Arguments, threads
    /// and results as for StopTimer().
    virtual int AgainTimer(TimerReqCallback done, void* user) = 0;

    virtual ~ITimerHandleInterface();
};

} // namespace http_interface
