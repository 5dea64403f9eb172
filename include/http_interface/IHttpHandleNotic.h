#pragma once

#include <cstddef>
#include <memory>

namespace http_interface
{

class IHttpHandleInterface;

/// Implemented by the host to hear from one request. Given to
/// IHttpHandleInterface::InitRequest(); the handle shares ownership until it
/// is deleted. Every call comes on the engine's loop thread; a slow notice
/// delays everything else on that engine. `user` is always the value given to
/// InitRequest().
///
/// OnWsData, OnProgress and OnReadData are called from inside libcurl, which
/// refuses to add or remove transfers there: AddHttpReq() performed at once and
/// Disconnect() answer -1. Queue an add (`async` true); end a connection with
/// DelHttpReq(), or with Disconnect() from another thread. OnFinish is called
/// outside libcurl.
class IHttpHandleNotic
{
public:
    /// A WebSocket message (method 3 only), once a message of one frame. Of a
    /// message in several frames the parts arrive together, later ones first;
    /// a control frame between them ends the message too early.
    /// @param data  len bytes, not terminated; valid during the call.
    /// @param type  1 text, 2 binary, 3 close, 0 any other frame (ping, pong).
    ///              After a close frame the host ends the connection itself;
    ///              nothing is answered. A connection that is lost or never
    ///              opened is not reported at all.
    virtual void OnWsData(const char* data, std::size_t len, int type, void* user) = 0;

    /// Progress of a transfer, when SetProgress(true) was called; as often as
    /// libcurl reports it. Sizes in bytes; a total is 0 while unknown.
    /// @param tag, url  The texts given to InitRequest(); valid during the call.
    virtual void OnProgress(const char* tag, const char* url, double dltotal, double dlnow,
                            double ultotal, double ulnow, void* user) = 0;

    /// The upload (method 2) needs its next bytes.
    /// @param buffer  Room for size * nitems bytes, to be filled from its start.
    /// @return Bytes put there; 0 ends the upload (a failure when a larger size
    ///         was announced); CURL_READFUNC_ABORT (0x10000000) aborts the
    ///         transfer. Pausing (CURL_READFUNC_PAUSE) is not supported.
    virtual std::size_t OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                                   std::size_t size, std::size_t nitems, void* user) = 0;

    /// The transfer has ended and left the engine; comes once a transfer that
    /// was added and neither deleted, disconnected nor cut off by a stop before.
    /// Not called for a ws or wss URL, unless the URL itself is unusable. The
    /// handle stays initialised: it may be read, added
    /// again, or deleted inside this call.
    /// @param result  0 when the transfer succeeded, whatever the response
    ///                code; -2 when it failed.
    virtual void OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user) = 0;

    virtual ~IHttpHandleNotic() = default;
};

} // namespace http_interface
