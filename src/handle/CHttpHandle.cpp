#include "handle/CHttpHandle.h"

#include "frame/CHttpFrame.h"
#include "handle/EasyOption.h"
#include "http_interface/IHttpHandleNotic.h"
#include "module/CallCheck.h"
#include "module/ScopeGuard.h"

#include <new>
#include <utility>

namespace http_interface
{

CHttpHandle::CHttpHandle() = default;

CHttpHandle::~CHttpHandle()
{
    if (BecomeDeleted())
    {
        ReleaseAll();
    }
}

int CHttpHandle::InitRequest(const char* url, const char* tag, int method,
                             std::shared_ptr<IHttpHandleNotic> notic, int connectTimeoutMs,
                             int timeoutMs, void* userData)
{
    std::int32_t fresh = STATE_NEW;
    if (url == nullptr || !m_State.compare_exchange_strong(fresh, STATE_INITING) ||
        m_pEasy != nullptr)
    {
        return -1;
    }
    m_pEasy = curl_easy_init();
    if (m_pEasy == nullptr)
    {
        return -1; // the state stays: a handle that libcurl failed is refused for good
    }
    ScopeGuard failed(
        [this]
        {
            curl_easy_cleanup(m_pEasy);
            m_pEasy = nullptr;
            delete m_pSelf;
            m_pSelf = nullptr;
            m_State = STATE_NEW;
        });
    m_pSelf = new std::shared_ptr<CHttpHandle>(shared_from_this());
    if (!SetInitialOptions(url, method, connectTimeoutMs, timeoutMs))
    {
        return -1;
    }
    std::string tagText = tag != nullptr ? tag : "";
    m_Url = url;
    failed.Dismiss(); // no memory is needed any more
    m_Tag = std::move(tagText);
    m_Method = method;
    m_pNotic = std::move(notic);
    m_pUserData = userData;
    m_State = STATE_READY;
    return 0;
}

// The two %p are given no argument of their own.
bool CHttpHandle::SetInitialOptions(const char* url, int method, int connectTimeoutMs,
                                    int timeoutMs)
{
    return SetEasyOption(m_pEasy, CURLOPT_URL, url,
                         "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_URL[%s] failed", url) &&
           SetEasyOption(m_pEasy, CURLOPT_NOSIGNAL, 1L,
                         "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_NOSIGNAL[%d] failed", 1) &&
           SetEasyOption(m_pEasy, CURLOPT_TIMEOUT_MS, static_cast<long>(timeoutMs),
                         "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_TIMEOUT_MS[%d] failed",
                         timeoutMs) &&
           SetEasyOption(m_pEasy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connectTimeoutMs),
                         "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_CONNECTTIMEOUT_MS[%d] failed",
                         connectTimeoutMs) &&
           SetEasyOption(m_pEasy, CURLOPT_PRIVATE, m_pSelf,
                         "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_PRIVATE failed") &&
           SetEasyOption(m_pEasy, CURLOPT_WRITEFUNCTION, OnWrite,
                         "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_WRITEFUNCTION failed") &&
           SetEasyOption(m_pEasy, CURLOPT_WRITEDATA, m_pSelf,
                         "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_WRITEDATA[%p] failed") &&
           SetEasyOption(m_pEasy, CURLOPT_READDATA, m_pSelf,
                         "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_READDATA[%p] failed") &&
           SetMethodOption(method);
}

bool CHttpHandle::SetMethodOption(int method)
{
    switch (method)
    {
    case kMethodPost:
        return SetEasyOption(m_pEasy, CURLOPT_POST, 1L,
                             "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_POST[%d] failed", 1);
    case kMethodGet:
        return SetEasyOption(m_pEasy, CURLOPT_HTTPGET, 1L,
                             "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_HTTPGET[%d] failed", 1);
    case kMethodUpload:
        return SetEasyOption(m_pEasy, CURLOPT_UPLOAD, 1L,
                             "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_UPLOAD[%d] failed", 1);
    default:
        return true; // WebSocket: libcurl takes it from the URL
    }
}

/// True for the one caller that ends an initialised handle.
bool CHttpHandle::BecomeDeleted()
{
    std::int32_t ready = STATE_READY;
    return m_State.compare_exchange_strong(ready, STATE_CLEANED);
}

// In a fixed order: libcurl's user pointers are cleared on the easy handle
// member, which is null by then, so that these four calls do nothing; the
// callbacks ended with the easy handle.
void CHttpHandle::ReleaseAll()
{
    curl_slist_free_all(m_pHeaders);
    m_pHeaders = nullptr;
    curl_easy_cleanup(m_pEasy);
    m_pEasy = nullptr;
    if (m_pDownloadFile != nullptr)
    {
        std::fclose(m_pDownloadFile);
        m_pDownloadFile = nullptr;
    }
    if (m_pSelf != nullptr)
    {
        curl_easy_setopt(m_pEasy, CURLOPT_PRIVATE, nullptr);
        curl_easy_setopt(m_pEasy, CURLOPT_WRITEDATA, nullptr);
        curl_easy_setopt(m_pEasy, CURLOPT_DEBUGDATA, nullptr);
        curl_easy_setopt(m_pEasy, CURLOPT_PROGRESSDATA, nullptr);
        delete m_pSelf;
        m_pSelf = nullptr;
    }
    m_pNotic.reset();
}

std::size_t CHttpHandle::OnWrite(char* buf, std::size_t size, std::size_t nmemb, void* userp)
{
    if (userp == nullptr)
    {
        return 0;
    }
    CHttpHandle& handle = **static_cast<std::shared_ptr<CHttpHandle>*>(userp);
    if (handle.IsDeleted())
    {
        return nmemb; // from inside a notice: what else arrived is dropped
    }
    if (handle.m_pDownloadFile != nullptr)
    {
        std::fwrite(buf, size, nmemb, handle.m_pDownloadFile); // a full disk goes unnoticed
    }
    else if (!handle.Receive(buf, size * nmemb))
    {
        return 0; // libcurl then fails the transfer
    }
    return nmemb; // items, not bytes: libcurl calls with items of one byte
}

/// False without memory.
bool CHttpHandle::Receive(const char* data, std::size_t len)
{
    return m_Method == kMethodWebSocket ? ReceiveWsChunk(data, len)
                                        : InsertInResponse(m_Response.size(), data, len);
}

// The exception must not reach libcurl, whose frames it would leave as they are.
bool CHttpHandle::InsertInResponse(std::size_t offset, const char* data, std::size_t len)
{
    try
    {
        m_Response.insert(offset, data, len);
        return true;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
}

void CHttpHandle::SetFrame(std::shared_ptr<CHttpFrame> frame)
{
    std::atomic_store(&m_pFrame, std::move(frame));
}

std::shared_ptr<CHttpFrame> CHttpHandle::Frame() const
{
    return std::atomic_load(&m_pFrame);
}

void* CHttpHandle::GetUserData()
{
    return m_pUserData;
}

const std::string& CHttpHandle::GetUrl()
{
    return m_Url;
}

const std::string& CHttpHandle::GetTag()
{
    return m_Tag;
}

const std::string& CHttpHandle::GetResponse()
{
    return m_Response;
}

long CHttpHandle::GetResponseCode()
{
    if (m_pEasy == nullptr)
    {
        return -1;
    }
    long responseCode = -1;
    const bool known =
        CheckEasy(curl_easy_getinfo(m_pEasy, CURLINFO_RESPONSE_CODE, &responseCode),
                  "[HTTP_INTERFACE]err[%d:%s]curl_easy_getinfo CURLINFO_RESPONSE_CODE failed");
    return known ? responseCode : -1;
}

} // namespace http_interface
