#include "frame/TransferCompletion.h"

#include "frame/CHttpFrame.h"
#include "handle/CHttpHandle.h"
#include "module/CallCheck.h"

#include <cstring>
#include <curl/curl.h>
#include <memory>

namespace http_interface
{
namespace
{

constexpr int kFinished = 0;
constexpr int kFailed = -2;

bool IsWebSocket(CURL* easy)
{
    const char* scheme = nullptr;
    curl_easy_getinfo(easy, CURLINFO_SCHEME, &scheme);
    return scheme != nullptr && (std::strcmp(scheme, "ws") == 0 || std::strcmp(scheme, "wss") == 0);
}

void LogResult(CURL* easy, CURLcode result)
{
    const char* url = nullptr;
    if (CheckEasy(curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &url),
                  "[HTTP_INTERFACE]err[%d:%s]curl_easy_getinfo CURLINFO_EFFECTIVE_URL failed while "
                  "FinishHttpReq"))
    {
        HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE]%s DONE result[%d:%s]", url,
                static_cast<int>(result), curl_easy_strerror(result));
    }
}

/// The request handle behind an easy handle; empty when it has none.
std::shared_ptr<CHttpHandle> HandleOf(CURL* easy)
{
    char* self = nullptr;
    if (!CheckEasy(curl_easy_getinfo(easy, CURLINFO_PRIVATE, &self),
                   "[HTTP_INTERFACE]err[%d:%s]curl_easy_getinfo CURLINFO_PRIVATE failed while "
                   "FinishHttpReq") ||
        self == nullptr)
    {
        return nullptr;
    }
    return *reinterpret_cast<std::shared_ptr<CHttpHandle>*>(self);
}

/// Takes a finished transfer out of the multi handle and logs its result. A
/// request that is deleted by whoever reads the lines stays until the
/// completion is over.
/// @return the handle to be told; empty for none.
std::shared_ptr<CHttpHandle> TakeOut(CHttpFrame* frame, CURL* easy, CURLcode result)
{
    const DeferredDeletes::CurlCall call(frame->Deletes());
    CheckMulti(curl_multi_remove_handle(frame->Multi(), easy),
               "[HTTP_INTERFACE]err[%d:%s]curl_multi_remove_handle failed while CheckMultiInfo");
    // A WebSocket ends silently: the host hears of it only by a close message
    // from the peer.
    if (IsWebSocket(easy))
    {
        return nullptr;
    }
    LogResult(easy, result);
    return HandleOf(easy);
}

void FinishHttpReq(CHttpFrame* frame, CURL* easy, CURLcode result)
{
    const DeferredDeletes::Completion completion(frame->Deletes());
    if (const std::shared_ptr<CHttpHandle> handle = TakeOut(frame, easy, result))
    {
        handle->NotifyFinish(result == CURLE_OK ? kFinished : kFailed);
    }
}

} // namespace

void CheckMultiInfo(CHttpFrame* frame)
{
    int left = 0;
    while (const CURLMsg* const msg = curl_multi_info_read(frame->Multi(), &left))
    {
        if (msg->msg == CURLMSG_DONE)
        {
            FinishHttpReq(frame, msg->easy_handle, msg->data.result);
        }
        else
        {
            HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]CheckMultiInfo get default message[%d]",
                    static_cast<int>(msg->msg));
        }
    }
}

} // namespace http_interface
