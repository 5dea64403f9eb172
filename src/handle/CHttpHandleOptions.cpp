/// The optional settings of a request, made on the configuring thread, and the
/// libcurl callbacks that they install, called on the loop thread inside
/// libcurl.

// libcurl marks the progress callback with double arguments as deprecated; the
// notice reports doubles.
#define CURL_DISABLE_DEPRECATION

#include "handle/CHttpHandle.h"
#include "handle/EasyOption.h"
#include "http_interface/IHttpHandleNotic.h"
#include "module/Platform.h"

#include <utility>

namespace http_interface
{

int CHttpHandle::SetPostFields(const char* fields)
{
    if (fields == nullptr || !IsReady() || m_Method != kMethodPost)
    {
        return -1;
    }
    m_PostFields = fields;
    const bool set =
        SetEasyOption(m_pEasy, CURLOPT_POSTFIELDS, m_PostFields.c_str(),
                      "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_POSTFIELDS[%s] failed", fields);
    return set ? 0 : -1;
}

int CHttpHandle::EnableVerbose()
{
    if (!IsReady())
    {
        return -1;
    }
    const bool set =
        SetEasyOption(m_pEasy, CURLOPT_VERBOSE, 1L,
                      "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_VERBOSE[%d] failed", 1) &&
        SetEasyOption(m_pEasy, CURLOPT_DEBUGFUNCTION, OnDebug,
                      "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_DEBUGFUNCTION failed") &&
        SetEasyOption(m_pEasy, CURLOPT_DEBUGDATA, m_pSelf,
                      "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_DEBUGDATA failed");
    return set ? 0 : -1;
}

int CHttpHandle::SetDownloadFile(const char* path)
{
    if (m_State != STATE_READY || path == nullptr)
    {
        return -1;
    }
    std::string pathText = path; // throws, if at all, before anything is changed
    if (m_pDownloadFile != nullptr)
    {
        std::fclose(m_pDownloadFile);
        m_pDownloadFile = nullptr;
    }
    const int error = platform::OpenFile(&m_pDownloadFile, path, "wb");
    if (error != 0)
    {
        m_pDownloadFile = nullptr;
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]Open file[%s] failed[%d]", path, error);
        return -1;
    }
    // Unbuffered, so that the file is complete on disk when OnFinish comes; it
    // is closed only when the handle is deleted.
    std::setvbuf(m_pDownloadFile, nullptr, _IONBF, 0);
    m_DownloadPath = std::move(pathText);
    return 0;
}

int CHttpHandle::SetProgress(bool enable)
{
    if (!IsReady())
    {
        return -1;
    }
    const int off = enable ? 0 : 1;
    bool set =
        SetEasyOption(m_pEasy, CURLOPT_NOPROGRESS, static_cast<long>(off),
                      "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_NOPROGRESS[%d] failed", off);
    if (set && enable)
    {
        set = SetEasyOption(
                  m_pEasy, CURLOPT_PROGRESSFUNCTION, OnProgress,
                  "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_PROGRESSFUNCTION[%d] failed", off) &&
              SetEasyOption(m_pEasy, CURLOPT_PROGRESSDATA, m_pSelf,
                            "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_PROGRESSDATA[%d] failed",
                            off);
    }
    return set ? 0 : -1;
}

int CHttpHandle::SetCaCert(const char* caPath)
{
    if (!IsReady())
    {
        return -1;
    }
    const int verifyPeer = caPath != nullptr ? 1 : 0;
    const int verifyHost = caPath != nullptr ? 2 : 0;
    bool set = SetEasyOption(m_pEasy, CURLOPT_SSL_VERIFYPEER, static_cast<long>(verifyPeer),
                             "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_SSL_VERIFYPEER[%d] failed",
                             verifyPeer) &&
               SetEasyOption(m_pEasy, CURLOPT_SSL_VERIFYHOST, static_cast<long>(verifyHost),
                             "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_SSL_VERIFYHOST[%d] failed",
                             verifyHost);
    if (set && caPath != nullptr)
    {
        // The one text is given as a file and as a folder. It has to be a file:
        // libcurl fails to connect when it can't read that.
        set =
            SetEasyOption(m_pEasy, CURLOPT_CAINFO, caPath,
                          "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_CAINFO[%s] failed", caPath) &&
            SetEasyOption(m_pEasy, CURLOPT_CAPATH, caPath,
                          "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_CAPATH[%s] failed", caPath);
    }
    return set ? 0 : -1;
}

int CHttpHandle::SetHeaders(const std::list<std::string>* headers)
{
    if (headers == nullptr || !IsReady())
    {
        return -1;
    }
    for (const std::string& line : *headers)
    {
        curl_slist* const list = curl_slist_append(m_pHeaders, line.c_str());
        if (list == nullptr)
        {
            return -1; // without memory; what is in the list stays
        }
        m_pHeaders = list;
    }
    if (m_pHeaders == nullptr)
    {
        return -1;
    }
    const bool set = SetEasyOption(m_pEasy, CURLOPT_HTTPHEADER, m_pHeaders,
                                   "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_HTTPHEADER failed");
    return set ? 0 : -1;
}

int CHttpHandle::SetUploadSize(std::int64_t size)
{
    if (m_State != STATE_READY || m_Method != kMethodUpload)
    {
        return -1;
    }
    const bool set =
        SetEasyOption(m_pEasy, CURLOPT_READFUNCTION, OnRead,
                      "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_READFUNCTION failed") &&
        SetEasyOption(m_pEasy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size),
                      "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_INFILESIZE_LARGE failed");
    return set ? 0 : -1;
}

// Of a host that has set no body, libcurl would take the user pointer for a file
// and read from it. A POST then has an empty body, an upload one of unknown
// size; where the host has set it, this sets the same once more.
void CHttpHandle::SetBodySource()
{
    if (m_Method == kMethodPost)
    {
        curl_easy_setopt(m_pEasy, CURLOPT_POSTFIELDS, m_PostFields.c_str());
    }
    else if (m_Method == kMethodUpload)
    {
        curl_easy_setopt(m_pEasy, CURLOPT_READFUNCTION, OnRead);
    }
}

int CHttpHandle::OnDebug(CURL* /*easy*/, curl_infotype type, char* data, std::size_t size,
                         void* userp)
{
    if (userp == nullptr)
    {
        return 0;
    }
    const std::shared_ptr<CHttpHandle> handle = *static_cast<std::shared_ptr<CHttpHandle>*>(userp);
    switch (type)
    {
    case CURLINFO_TEXT:
        HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE][TEXT][%zu]%.*s", size, size, data);
        break;
    case CURLINFO_HEADER_IN:
        HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE][HEADER_IN][%zu]%.*s", size, size, data);
        break;
    case CURLINFO_HEADER_OUT:
        // The user pointer fills the %zu and the size the %p: readers of these
        // lines expect them so.
        HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE][HEADER_OUT][%zu] [%p] %.*s", userp, size, size,
                data);
        break;
    case CURLINFO_DATA_IN:
        HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE][DATA_IN][%zu]%.*s", size, size, data);
        break;
    case CURLINFO_DATA_OUT:
        HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE][DATA_OUT][%zu]%.*s", size, size, data);
        break;
    case CURLINFO_SSL_DATA_IN:
        HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE][SSL_DATA_IN][%zu]%.*s", size, size, data);
        break;
    case CURLINFO_SSL_DATA_OUT:
        HttpLog(LOG_LEVEL_DEBUG, "[HTTP_INTERFACE][SSL_DATA_OUT][%zu]%.*s", size, size, data);
        break;
    default:
        break;
    }
    return 0;
}

int CHttpHandle::OnProgress(void* clientp, double dltotal, double dlnow, double ultotal,
                            double ulnow)
{
    if (clientp == nullptr)
    {
        return 0;
    }
    CHttpHandle& handle = **static_cast<std::shared_ptr<CHttpHandle>*>(clientp);
    const std::shared_ptr<IHttpHandleNotic> notic = handle.m_pNotic;
    if (notic && !handle.IsDeleted())
    {
        notic->OnProgress(handle.m_Tag.c_str(), handle.m_Url.c_str(), dltotal, dlnow, ultotal,
                          ulnow, handle.m_pUserData);
    }
    return 0; // progress never aborts a transfer
}

std::size_t CHttpHandle::OnRead(char* buffer, std::size_t size, std::size_t nitems, void* userp)
{
    if (userp == nullptr)
    {
        return nitems;
    }
    const std::shared_ptr<CHttpHandle> handle = *static_cast<std::shared_ptr<CHttpHandle>*>(userp);
    const std::shared_ptr<IHttpHandleNotic> notic = handle->m_pNotic;
    if (!notic || handle->IsDeleted())
    {
        return 0;
    }
    return notic->OnReadData(handle, buffer, size, nitems, handle->m_pUserData);
}

} // namespace http_interface
