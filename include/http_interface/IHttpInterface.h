#pragma once

#include "http_interface/Callbacks.h"
#include "http_interface/Export.h"

#include <memory>

namespace http_interface
{

class IHttpInterfaceNotic;

/// The engine: one event loop on one private thread, which runs every request
/// and timer that it is given and calls every notice and completion function.
///
/// The cycle is Init(), Start(), work, Stop(); it may be repeated on the same
/// engine. All results are 0 for success (or queued) and -1 for refusal or
/// failure unless said otherwise. Failures of libcurl and libuv are logged,
/// never thrown; failures of the standard library (memory, threads, an engine
/// that no std::shared_ptr owns) throw as the standard library does.
///
/// Release the last reference only after a Stop() has joined or detached the
/// loop thread: an engine destroyed with its thread still attached ends the
/// process, as std::thread does.
class HTTP_INTERFACE_API IHttpInterface
{
public:
    /// Makes an engine. Any thread. Throws std::bad_alloc without memory.
    static std::shared_ptr<IHttpInterface> Create();

    IHttpInterface();
    IHttpInterface(const IHttpInterface&);
    /// Copies nothing and returns this object.
    IHttpInterface& operator=(const IHttpInterface&);

    /// Prepares the loop. Any thread, before Start().
    /// @param notic     Told when the loop has ended; may be empty. Shared
    ///                  until then.
    /// @param userData  Handed back in that notice; never dereferenced.
    /// @return -1 without a line when the engine is not idle (already
    ///         initialised, or its last cycle has not ended); -1 with a line
    ///         when libuv or libcurl failed: what was prepared is kept and a
    ///         later Init() goes on from there.
    virtual int Init(std::shared_ptr<IHttpInterfaceNotic> notic, void* userData) = 0;

    /// Starts the loop thread. Any thread, after Init().
    /// @param wait  true: returns only after the loop's first iteration, from
    ///              which on the engine accepts work; looks every 10 ms and has
    ///              no time limit. false: returns at once; work handed over
    ///              before the first iteration is refused.
    /// @return 0 also when the thread exists already; -1 when not initialised,
    ///         or after a Stop() on the loop thread until that thread has ended
    ///         and Init() was called again. Throws std::system_error when no
    ///         thread can be made.
    virtual int Start(bool wait) = 0;

    /// Stops the engine. Any thread, the loop thread included.
    ///
    /// Adds still queued are completed with -1, other queued operations are
    /// performed, and the loop ends once nothing is open in it: transfers,
    /// WebSockets and running timers that are not deleted keep it alive,
    /// without a timeout of their own. Delete them first. A request that was
    /// added and that libcurl has not begun yet ends without OnFinish.
    ///
    /// From a host thread: returns after the loop thread has ended, so
    /// OnHttpFrameStop has been called. While one thread waits so, a second
    /// one's Stop() returns at once, with 0 or -1.
    /// On the loop thread: returns 0 at once; the thread is detached and ends
    /// by itself after the current callback, unless a host thread waits for it
    /// already. A second Stop(true) before the first has taken effect throws
    /// std::system_error (invalid argument).
    /// @param viaAsync  Matters on the loop thread only. false: stop inside
    ///                  this call. true: stop on a later turn of the loop.
    /// @return -1 when the engine does not accept work (not started, first
    ///         iteration still to come, already stopped), or when the wake-up
    ///         failed: the engine then runs on.
    virtual int Stop(bool viaAsync) = 0;

    /// Hands a request to the engine. Any thread.
    /// @param handle  From IHttpHandleInterface::Create(), initialised. Kept
    ///                alive by the engine until it is deleted.
    /// @param async   false: on the loop thread the request is added inside
    ///                this call. true, or another thread: it is queued, in
    ///                order of arrival.
    /// @param done    Told of the result on the loop thread; may be empty. Not
    ///                called when this call is refused.
    /// @param user    Handed back to done.
    /// @return 0 when queued; -1 when handle is empty (no line) or the engine
    ///         does not accept work; the add's own result when performed at
    ///         once.
    virtual int AddHttpReq(std::shared_ptr<IHttpHandleInterface> handle, bool async,
                           HttpReqCallback done, void* user) = 0;

    /// Takes a request out of the engine and ends the handle: its easy handle,
    /// header list and download file are released, its notice is let go, no
    /// notice follows the completion. Every initialised handle needs this once,
    /// while the engine runs, or it stays in memory. Arguments as for
    /// AddHttpReq().
    ///
    /// The completion comes before the release. Its result is -1 when libcurl
    /// refused the removal, for instance for a handle that was never added; the
    /// handle is released all the same.
    /// @return 0 when queued; -1, without a line, when handle is empty or, for
    ///         a queued delete, the engine does not accept work. On the loop
    ///         thread with async false it is performed at once, also while the
    ///         engine stops, and the result is that of its completion.
    virtual int DelHttpReq(std::shared_ptr<IHttpHandleInterface> handle, bool async,
                           HttpReqCallback done, void* user) = 0;

    /// Hands a timer to the engine and starts it. Any thread. A timer is added
    /// once, also after it was deleted. A second add is not refused, but it
    /// initialises the same libuv handle anew: the reference that the first one
    /// took is lost, and the loop's list of handles is no longer sound.
    /// Arguments and results as for AddHttpReq().
    virtual int AddTimerReq(std::shared_ptr<ITimerHandleInterface> timer, bool async,
                            TimerReqCallback done, void* user) = 0;

    /// Stops a timer and closes it; ITimerHandleNotic::OnClose follows on a
    /// later turn of the loop, or right after the completion where the loop
    /// that the timer was added on has ended. Arguments and results as for
    /// DelHttpReq(), but that the return value of a delete performed at once is
    /// always 0: its failure reaches only the completion.
    virtual int DelTimerReq(std::shared_ptr<ITimerHandleInterface> timer, bool async,
                            TimerReqCallback done, void* user) = 0;

    virtual ~IHttpInterface();
};

} // namespace http_interface
