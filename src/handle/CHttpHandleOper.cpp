/// What the loop thread does with a request: adds it to the engine's multi
/// handle, takes it out again, ends it, and reports its end.

#include "frame/AsynOperReq.h"
#include "frame/CHttpFrame.h"
#include "handle/CHttpHandle.h"
#include "http_interface/IHttpHandleNotic.h"
#include "module/CallCheck.h"

namespace http_interface
{
namespace
{

/// The multi handle of an engine; null for none, which libcurl refuses.
CURLM* MultiOf(const std::shared_ptr<CHttpFrame>& frame)
{
    return frame ? frame->Multi() : nullptr;
}

DeferredDeletes* DeletesOf(const std::shared_ptr<CHttpFrame>& frame)
{
    return frame ? frame->Deletes() : nullptr;
}

} // namespace

int CHttpHandle::DoAsynOper(std::shared_ptr<AsynOperReq> req, std::shared_ptr<CHttpFrame> /*frame*/)
{
    switch (req->type)
    {
    case ASYN_OPER_ADD_HTTP:
    {
        const int result = AddToMulti();
        Complete(static_cast<const AsynHttpReq&>(*req), result);
        return result;
    }
    case ASYN_OPER_DEL_HTTP:
    {
        const int result = RemoveFromMulti();
        Complete(static_cast<const AsynHttpReq&>(*req), result);
        CleanUp();
        return result;
    }
    case ASYN_OPER_CANCEL_HTTP:
        return RemoveFromMulti();
    case ASYN_OPER_SEND_WS:
    {
        const auto& message = static_cast<const AsynWSSendReq&>(*req);
        SendQueuedWsFrame(message.data, message.flags);
        return 0;
    }
    default:
        return 0;
    }
}

bool CHttpHandle::CancelAsynOper(std::shared_ptr<AsynOperReq> req)
{
    if (req->type != ASYN_OPER_ADD_HTTP)
    {
        return false;
    }
    Complete(static_cast<const AsynHttpReq&>(*req), -1);
    return true;
}

int CHttpHandle::Disconnect()
{
    if (m_State != STATE_READY)
    {
        return -1;
    }
    const std::shared_ptr<CHttpFrame> frame = Frame();
    if (!frame || !frame->IsRunning())
    {
        // The wording of a timer's refusal serves here too.
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Can not again timer req now");
        return -1;
    }
    HttpLog(LOG_LEVEL_INFO, "[HTTP_INTERFACE]disconnect web socket"); // whatever the method
    if (frame->IsLoopThread())
    {
        return RemoveFromMulti();
    }
    frame->PostAsynOper(std::make_shared<AsynHttpReq>(ASYN_OPER_CANCEL_HTTP, shared_from_this(),
                                                      nullptr, HttpReqCallback()));
    return 0;
}

// Deleted inside libcurl, the handle tells no notice any more, and the rest
// waits: libcurl still uses the transfer.
void CHttpHandle::CleanUp()
{
    if (!BecomeDeleted())
    {
        return;
    }
    const std::shared_ptr<CHttpFrame> frame = Frame();
    if (frame && frame->Deletes()->IsInCurl())
    {
        frame->Deletes()->Add(shared_from_this());
        return;
    }
    ReleaseInLoop(frame);
}

void CHttpHandle::EndDelete()
{
    const std::shared_ptr<CHttpFrame> frame = Frame();
    {
        const DeferredDeletes::CurlCall call(DeletesOf(frame));
        curl_multi_remove_handle(MultiOf(frame), m_pEasy);
    }
    ReleaseInLoop(frame);
}

void CHttpHandle::ReleaseInLoop(const std::shared_ptr<CHttpFrame>& frame)
{
    const DeferredDeletes::CurlCall call(DeletesOf(frame)); // what closes is traced
    ReleaseAll();
}

int CHttpHandle::AddToMulti()
{
    SetBodySource();
    const std::shared_ptr<CHttpFrame> frame = Frame();
    const DeferredDeletes::CurlCall call(DeletesOf(frame));
    const bool done =
        CheckMulti(curl_multi_add_handle(MultiOf(frame), m_pEasy),
                   "[HTTP_INTERFACE]err[%d:%s]curl_multi_add_handle failed while AddHttpReq");
    return done ? 0 : -1;
}

// One line for a delete, a cancel and a disconnect. A handle that was never
// added has no engine: libcurl answers to the null multi handle.
int CHttpHandle::RemoveFromMulti()
{
    const std::shared_ptr<CHttpFrame> frame = Frame();
    const DeferredDeletes::CurlCall call(DeletesOf(frame));
    const bool done =
        CheckMulti(curl_multi_remove_handle(MultiOf(frame), m_pEasy),
                   "[HTTP_INTERFACE]err[%d:%s]curl_multi_remove_handle failed while DelHttpReq");
    return done ? 0 : -1;
}

void CHttpHandle::Complete(const AsynHttpReq& req, int result)
{
    if (req.done)
    {
        req.done(shared_from_this(), req.userData, result);
    }
}

void CHttpHandle::NotifyFinish(int result)
{
    const std::shared_ptr<IHttpHandleNotic> notic = m_pNotic;
    if (notic && !IsDeleted())
    {
        notic->OnFinish(shared_from_this(), result, m_pUserData);
    }
}

} // namespace http_interface
