/// WebSocket messages of a request: sent as one frame each on the loop thread,
/// received in chunks and put together in the response member.

#include "frame/AsynOperReq.h"
#include "frame/CHttpFrame.h"
#include "handle/CHttpHandle.h"
#include "http_interface/IHttpHandleNotic.h"
#include "module/CallCheck.h"

#include <utility>

namespace http_interface
{
namespace
{

enum WsType : int
{
    kWsOther = 0,
    kWsText = 1,
    kWsBinary = 2,
    kWsClose = 3,
};

/// The frame kind of a message type; 0 for a type that can't be sent.
std::uint32_t FlagsOf(int type)
{
    switch (type)
    {
    case kWsText:
        return CURLWS_TEXT;
    case kWsBinary:
        return CURLWS_BINARY;
    case kWsClose:
        return CURLWS_CLOSE;
    default:
        return 0;
    }
}

int TypeOf(int flags)
{
    if ((flags & CURLWS_CLOSE) != 0)
    {
        return kWsClose;
    }
    if ((flags & CURLWS_BINARY) != 0)
    {
        return kWsBinary;
    }
    return (flags & CURLWS_TEXT) != 0 ? kWsText : kWsOther;
}

} // namespace

int CHttpHandle::SendWsData(std::shared_ptr<std::vector<char>> data, int type, std::size_t* sent)
{
    const std::shared_ptr<CHttpFrame> frame = Frame();
    if (!IsReady() || m_Method != kMethodWebSocket || sent == nullptr || !frame)
    {
        return -1;
    }
    const std::uint32_t flags = FlagsOf(type);
    if (flags == 0)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]unknow websocket type[%d]", type);
        return -1;
    }
    if (!frame->IsRunning())
    {
        // The wording of a timer's refusal serves here too.
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Can not again timer req now");
        return -1;
    }
    if (frame->IsLoopThread())
    {
        SendWsFrame(data, flags, sent);
        return 0;
    }
    frame->PostAsynOper(
        std::make_shared<AsynWSSendReq>(shared_from_this(), std::move(data), flags));
    return 0;
}

// One call is one whole frame. A failure is only logged: nothing is retried.
void CHttpHandle::SendWsFrame(const std::shared_ptr<std::vector<char>>& data, std::uint32_t flags,
                              std::size_t* sent)
{
    const std::shared_ptr<CHttpFrame> frame = Frame();
    const DeferredDeletes::CurlCall call(frame->Deletes());
    CheckEasy(curl_ws_send(m_pEasy, data ? data->data() : nullptr, data ? data->size() : 0, sent, 0,
                           flags),
              "[HTTP_INTERFACE]err[%d:%s]curl_ws_send failed");
}

// What libcurl did not take of a message is not sent later.
void CHttpHandle::SendQueuedWsFrame(const std::shared_ptr<std::vector<char>>& data,
                                    std::uint32_t flags)
{
    std::size_t sent = 0;
    SendWsFrame(data, flags, &sent);
    if (data && sent != data->size())
    {
        HttpLog(LOG_LEVEL_WARN, "[HTTP_INTERFACE]Send len diff [%zu] != [%zu]", data->size(), sent);
    }
}

// Chunks go where their offset within their frame says, by insertion. A message
// in several frames thus arrives with its later frames first, since every
// frame counts its offsets from 0.
//
// The place never lies beyond what is held, where insert() would throw, and
// through libcurl. The chunks of a frame come in order, without gaps and with
// nothing between them, since control frames come between frames only; each is
// held, and what is held goes only with the last chunk of a frame. What another
// frame left there (the front of a ping whose last part libcurl keeps, a frame
// cut off before the handle was added again) only makes it longer.
bool CHttpHandle::ReceiveWsChunk(const char* data, std::size_t len)
{
    const curl_ws_frame* const meta = curl_ws_meta(m_pEasy);
    if (meta == nullptr)
    {
        // Not a WebSocket URL: a body as any other.
        return InsertInResponse(m_Response.size(), data, len);
    }
    const auto offset = static_cast<std::size_t>(meta->offset);
    if ((meta->flags & CURLWS_CONT) != 0 || meta->bytesleft != 0)
    {
        return InsertInResponse(offset, data, len);
    }
    const int type = TypeOf(meta->flags);
    const std::shared_ptr<IHttpHandleNotic> notic = m_pNotic;
    if (m_Response.empty())
    {
        if (notic)
        {
            notic->OnWsData(data, len, type, m_pUserData);
        }
        return true;
    }
    if (!InsertInResponse(offset, data, len))
    {
        return false;
    }
    if (notic)
    {
        notic->OnWsData(m_Response.data(), m_Response.size(), type, m_pUserData);
    }
    m_Response.clear();
    return true;
}

} // namespace http_interface
