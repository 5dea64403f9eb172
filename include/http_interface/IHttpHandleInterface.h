#pragma once

#include "http_interface/Export.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace http_interface
{

class IHttpHandleNotic;

/// One HTTP request or WebSocket connection.
///
/// The host configures a handle on one thread: InitRequest(), then any of the
/// Set... and Enable... operations, then IHttpInterface::AddHttpReq(). Nothing
/// may be configured, and no result read, while the transfer runs. A finished
/// handle may be added again; its response then grows at the end of what it
/// holds. IHttpInterface::DelHttpReq() ends it for good.
///
/// An initialised handle owns itself until it is deleted, so that libcurl can
/// call it back at any time: one that is never deleted stays in memory.
///
/// All int results are 0 for success and -1 for refusal or failure. A call at
/// the wrong time is refused without a log line; a failing libcurl call is
/// logged with libcurl's code and text.
class HTTP_INTERFACE_API IHttpHandleInterface
{
public:
    /// Makes a handle. Any thread. Throws std::bad_alloc without memory.
    static std::shared_ptr<IHttpHandleInterface> Create();

    IHttpHandleInterface();
    IHttpHandleInterface(const IHttpHandleInterface&);
    /// Copies nothing and returns this object.
    IHttpHandleInterface& operator=(const IHttpHandleInterface&);

    /// Makes the handle ready for use, once in its life. Configuring thread.
    /// @param url   Copied; http, https, ws or wss.
    /// @param tag   Copied; handed back by GetTag() and OnProgress; null counts
    ///              as empty.
    /// @param method  0 GET, 1 POST, 2 upload (PUT), 3 WebSocket.
    /// @param notic   Hears from the request; may be empty. Shared until the
    ///                handle is deleted.
    /// @param connectTimeoutMs  Limit for connecting, in milliseconds; 0 is
    ///                libcurl's default of 300 s.
    /// @param timeoutMs  Limit for the whole transfer, in milliseconds; 0 is
    ///                none.
    /// @param userData  Handed back in every notice; never dereferenced.
    /// @return -1 without a line for a null url or a handle initialised before;
    ///         -1 with a line when an option was refused (a negative time, for
    ///         instance): the handle is as new then. When libcurl can't make an
    ///         easy handle the result is -1 and the handle is unusable for good.
    virtual int InitRequest(const char* url, const char* tag, int method,
                            std::shared_ptr<IHttpHandleNotic> notic, int connectTimeoutMs,
                            int timeoutMs, void* userData) = 0;

    /// Takes the transfer out of the engine without ending the handle: no
    /// OnFinish follows once it is performed, the connection is closed, and the
    /// handle may be added again. Any thread: at once on the loop thread, queued
    /// from any other; an engine that stops meanwhile drops it with a line.
    /// @return 0 when removed or queued; -1 without a line when the handle is
    ///         not initialised; -1 with a line when the engine does not accept
    ///         work ("Can not again timer req now": the timers' wording serves
    ///         here too) or when libcurl refused the removal, as it does from
    ///         inside OnWsData, OnProgress and OnReadData.
    virtual int Disconnect() = 0;

    /// The body of a POST (method 1). Configuring thread.
    /// @param fields  A terminated text, copied; null is refused. To be set
    ///                once: libcurl reads the copy in place. Without this call
    ///                the body is empty.
    virtual int SetPostFields(const char* fields) = 0;

    /// Sends one WebSocket message (method 3), as one frame. Any thread.
    ///
    /// On the loop thread it is sent inside this call, as far as libcurl takes
    /// it, and *sent tells how many bytes it took; a failure is only logged.
    /// From any other thread it is queued and *sent is not written. Of a message
    /// that the socket does not take whole, libcurl sends the rest only when
    /// something is received; until then it refuses other messages (error 43).
    /// The line "Send len diff" tells of it for a queued message, *sent for one
    /// sent at once. Don't send it again.
    ///
    /// Keep a message to 16 KiB and what a peer has not answered yet to 48 KiB.
    /// Measured (scripts/bench): with Ethernet's packets a new connection took 64
    /// KiB in one message and 70 KiB in small ones, whether the peer read or not;
    /// under Wine 64 KiB; on Linux's own loopback 2 MiB.
    /// @param data  The message; shared until it was sent, so don't change it
    ///              meanwhile. Null sends an empty message.
    /// @param type  1 text, 2 binary, 3 close.
    /// @param sent  Must not be null.
    /// @return 0 when sent (whatever the outcome) or queued; -1 without a line
    ///         when the handle is not initialised, not of method 3, was never
    ///         added, or sent is null; -1 with a line for an unknown type or an
    ///         engine that does not accept work.
    virtual int SendWsData(std::shared_ptr<std::vector<char>> data, int type,
                           std::size_t* sent) = 0;

    /// Logs libcurl's trace of the transfer at debug level, headers (and so
    /// credentials) and bodies included. Configuring thread.
    virtual int EnableVerbose() = 0;

    /// The body goes into this file instead of the response. Configuring
    /// thread. The file is created or emptied at once, written as bytes arrive,
    /// complete on disk when OnFinish comes, and closed when the handle is
    /// deleted or another file is set. A write that fails (disk full) is not
    /// noticed: compare sizes where that matters.
    /// @param path  Copied. On Windows in the process's ANSI code page, which
    ///              is UTF-8 where the host's manifest says so; the file is not
    ///              shared, so that others can open it only once it is closed.
    /// @return -1 with the line "Open file[...] failed[error number]" when the
    ///         file can't be opened; no file is set then.
    virtual int SetDownloadFile(const char* path) = 0;

    /// Turns IHttpHandleNotic::OnProgress on or off. Configuring thread.
    virtual int SetProgress(bool enable) = 0;

    /// Decides how an https or wss server is verified. Configuring thread.
    /// Without this call: against the platform's trust store.
    /// @param caPath  A PEM file of trusted CA certificates, copied; read when
    ///                a connection is made, which fails without it. A folder of
    ///                certificates will not do. Null turns verification of the
    ///                certificate and of the host name off.
    virtual int SetCaCert(const char* caPath) = 0;

    /// Adds request header lines. Configuring thread. Calls add up.
    /// @param headers  Complete lines, "Name: value", copied. "Name;" sends a
    ///                 header with an empty value, "Name:" removes one of
    ///                 libcurl's own.
    /// @return -1 also when the handle has no header line afterwards, or when
    ///         memory ran out: the lines from there on are not added then.
    virtual int SetHeaders(const std::list<std::string>* headers) = 0;

    /// Announces an upload's size (method 2). Configuring thread.
    /// @param size  Bytes; -1 when unknown: the body is then sent chunked.
    virtual int SetUploadSize(std::int64_t size) = 0;

    /// What InitRequest() was given. Any thread. The texts live as long as the
    /// handle.
    virtual void* GetUserData() = 0;
    virtual const std::string& GetUrl() = 0;
    virtual const std::string& GetTag() = 0;

    /// The response body, unless it went into a download file. To be read from
    /// OnFinish on, not while the transfer runs; lives as long as the handle.
    virtual const std::string& GetResponse() = 0;

    /// The last response code that libcurl saw (200, 404, ...); 0 before any
    /// response; -1 for a handle that is not initialised or was deleted. To be
    /// called from OnFinish on, not while the transfer runs nor while a delete
    /// is queued.
    virtual long GetResponseCode() = 0;

    virtual ~IHttpHandleInterface();
};

} // namespace http_interface
