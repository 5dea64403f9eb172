#include "frame/SocketBridge.h"

#include "frame/CHttpFrame.h"
#include "frame/TransferCompletion.h"
#include "module/CallCheck.h"

#include <cstdint>
#include <cstdlib>
#include <new>
#include <uv.h>

namespace http_interface
{
namespace
{

/// One socket that libcurl asked to watch. Attached to the socket in libcurl;
/// freed by the close callback of its poll handle.
struct CurlSocketCtx
{
    uv_poll_t poll_handle; ///< its data is this record
    curl_socket_t sockfd;
    CHttpFrame* frame;
};

void OnSocketClosed(uv_handle_t* handle)
{
    std::free(handle->data);
}

/// False when libuv refused the socket: the handle must not be used then.
bool HasPollHandle(const CurlSocketCtx* ctx)
{
    return ctx->poll_handle.loop != nullptr;
}

/// Has libcurl act on a socket or on its timeout. The count of running
/// transfers is not used.
CURLMcode Act(CHttpFrame* frame, curl_socket_t s, int flags)
{
    const DeferredDeletes::CurlCall call(frame->Deletes());
    int running = 0;
    return curl_multi_socket_action(frame->Multi(), s, flags, &running);
}

void OnTimeout(uv_timer_t* timer)
{
    auto* const frame = static_cast<CHttpFrame*>(timer->data);
    CheckMulti(Act(frame, CURL_SOCKET_TIMEOUT, 0),
               "[HTTP_INTERFACE]err[%d:%s]curl_multi_socket_action failed while OnTimeout");
    CheckMultiInfo(frame);
}

// A poll error is not passed on as CURL_CSELECT_ERR: libcurl learns of it from
// the socket, through whatever event bits came with it.
void CurlPerform(uv_poll_t* handle, int /*status*/, int events)
{
    const auto* const ctx = static_cast<const CurlSocketCtx*>(handle->data);
    CHttpFrame* const frame = ctx->frame;
    int flags = 0;
    if ((events & UV_READABLE) != 0)
    {
        flags |= CURL_CSELECT_IN;
    }
    if ((events & UV_WRITABLE) != 0)
    {
        flags |= CURL_CSELECT_OUT;
    }
    CheckMulti(Act(frame, ctx->sockfd, flags),
               "[HTTP_INTERFACE]err[%d:%s]curl_multi_socket_action failed while CurlPerform");
    // *ctx may be gone here.
    CheckMultiInfo(frame);
}

/// Null without a loop or without memory. When libuv refuses the socket, whose
/// result is not looked at, the record stays without a usable poll handle.
CurlSocketCtx* MakeSocketCtx(CHttpFrame* frame, curl_socket_t s)
{
    const std::shared_ptr<uv_loop_s> loop = frame->Loop();
    if (!loop)
    {
        return nullptr;
    }
    auto* const ctx = static_cast<CurlSocketCtx*>(std::malloc(sizeof(CurlSocketCtx)));
    if (ctx == nullptr)
    {
        return nullptr;
    }
    *ctx = {};
    ctx->sockfd = s;
    uv_poll_init_socket(loop.get(), &ctx->poll_handle, s);
    ctx->poll_handle.data = ctx;
    ctx->frame = frame;
    return ctx;
}

int Watch(CHttpFrame* frame, curl_socket_t s, int events, CurlSocketCtx* ctx)
{
    if (ctx == nullptr)
    {
        ctx = MakeSocketCtx(frame, s);
        if (ctx == nullptr)
        {
            return 0;
        }
    }
    // Also for a record that is attached already. One that can't be attached
    // stays unstarted.
    if (!CheckMulti(curl_multi_assign(frame->Multi(), s, ctx),
                    "[HTTP_INTERFACE]err[%d:%s]curl_multi_assign failed while OnHandleSocket"))
    {
        return -1;
    }
    if (HasPollHandle(ctx))
    {
        uv_poll_start(&ctx->poll_handle, events, CurlPerform);
    }
    return 0;
}

void Close(CurlSocketCtx* ctx)
{
    auto* const handle = reinterpret_cast<uv_handle_t*>(&ctx->poll_handle);
    if (!HasPollHandle(ctx))
    {
        OnSocketClosed(handle);
        return;
    }
    uv_poll_stop(&ctx->poll_handle);
    if (uv_is_closing(handle) == 0)
    {
        uv_close(handle, OnSocketClosed);
    }
}

void Unwatch(CHttpFrame* frame, curl_socket_t s, CurlSocketCtx* ctx)
{
    if (ctx == nullptr)
    {
        return;
    }
    Close(ctx);
    curl_multi_assign(frame->Multi(), s, nullptr);
}

} // namespace

int HandleSocket(CURL* /*easy*/, curl_socket_t s, int what, void* userp, void* socketp)
{
    if (userp == nullptr)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]HandleSocket get null userdata");
        return 0;
    }
    auto* const frame = static_cast<CHttpFrame*>(userp);
    auto* const ctx = static_cast<CurlSocketCtx*>(socketp);
    switch (what)
    {
    case CURL_POLL_IN:
        return Watch(frame, s, UV_READABLE, ctx);
    case CURL_POLL_OUT:
        return Watch(frame, s, UV_WRITABLE, ctx);
    case CURL_POLL_INOUT:
        return Watch(frame, s, UV_READABLE | UV_WRITABLE, ctx);
    case CURL_POLL_REMOVE:
        Unwatch(frame, s, ctx);
        return 0;
    default:
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]HandleSocket Get default Action[%d]", what);
        return 0;
    }
}

int StartTimeout(CURLM* /*multi*/, long timeoutMs, void* userp)
{
    if (userp == nullptr)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]StartTimeout get null userdata");
        return 0;
    }
    uv_timer_t* const timer = static_cast<CHttpFrame*>(userp)->CurlTimer();
    if (timeoutMs < 0)
    {
        uv_timer_stop(timer);
        return 0;
    }
    // Only arms the timer, even for 0 ms: libcurl is on the stack here and
    // must not be entered again, so the timeout runs on a later turn.
    const auto delayMs = static_cast<std::uint64_t>(timeoutMs == 0 ? 1 : timeoutMs);
    uv_timer_start(timer, OnTimeout, delayMs, 0);
    return 0;
}

} // namespace http_interface
