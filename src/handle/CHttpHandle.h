#pragma once

#include "frame/IAsynOperInterface.h"
#include "http_interface/Callbacks.h"
#include "http_interface/IHttpHandleInterface.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <curl/curl.h>
#include <memory>
#include <string>
#include <vector>

namespace http_interface
{

class IHttpHandleNotic;
struct AsynHttpReq;

/// One request: a libcurl easy handle and what belongs to it.
///
/// Core in CHttpHandle.cpp, options and their callbacks in
/// CHttpHandleOptions.cpp, what the loop thread does with it in
/// CHttpHandleOper.cpp, WebSocket messages in CHttpHandleWebSocket.cpp.
///
/// The host's thread configures, then the loop thread has the handle until it
/// finishes. m_State and the engine reference are the only members that
/// several threads may use at a time; the rest has no lock.
///
/// Once initialised, the handle owns itself through m_pSelf, whose address is
/// libcurl's user pointer: taken in InitRequest, dropped in ReleaseAll, which the
/// delete operation leads to.
class CHttpHandle : public std::enable_shared_from_this<CHttpHandle>,
                    public IHttpHandleInterface,
                    public IAsynOperInterface
{
public:
    CHttpHandle();
    ~CHttpHandle() override;

    // IHttpHandleInterface:
    int InitRequest(const char* url, const char* tag, int method,
                    std::shared_ptr<IHttpHandleNotic> notic, int connectTimeoutMs, int timeoutMs,
                    void* userData) override;
    int Disconnect() override;
    int SetPostFields(const char* fields) override;
    int SendWsData(std::shared_ptr<std::vector<char>> data, int type, std::size_t* sent) override;
    int EnableVerbose() override;
    int SetDownloadFile(const char* path) override;
    int SetProgress(bool enable) override;
    int SetCaCert(const char* caPath) override;
    int SetHeaders(const std::list<std::string>* headers) override;
    int SetUploadSize(std::int64_t size) override;
    void* GetUserData() override;
    const std::string& GetUrl() override;
    const std::string& GetTag() override;
    const std::string& GetResponse() override;
    long GetResponseCode() override;

    // IAsynOperInterface:
    int DoAsynOper(std::shared_ptr<AsynOperReq> req, std::shared_ptr<CHttpFrame> frame) override;
    bool CancelAsynOper(std::shared_ptr<AsynOperReq> req) override;

    /// The engine that the handle was last added to; any thread. A host may
    /// add a handle while the loop still works on an earlier operation of it.
    void SetFrame(std::shared_ptr<CHttpFrame> frame);

    /// Tells the notice that the transfer has ended; loop thread, outside of
    /// libcurl. The handle may be deleted inside.
    void NotifyFinish(int result);

    /// Does away with a request that was deleted while libcurl was on the
    /// stack; loop thread, outside of libcurl.
    void EndDelete();
    /// The one that is done away with after it; belongs to DeferredDeletes.
    std::shared_ptr<CHttpHandle>& NextDeleted() { return m_pNextDeleted; }

private:
    enum State : std::int32_t
    {
        STATE_NEW = 0,
        STATE_INITING = 1,
        STATE_READY = 2,
        STATE_CLEANED = 3,
    };

    static constexpr int kMethodGet = 0;
    static constexpr int kMethodPost = 1;
    static constexpr int kMethodUpload = 2;
    static constexpr int kMethodWebSocket = 3;

    /// There is an easy handle then; not asked for itself, since the loop thread
    /// may be letting it go while another thread asks.
    bool IsReady() const { return m_State == STATE_READY; }
    std::shared_ptr<CHttpFrame> Frame() const;
    bool SetInitialOptions(const char* url, int method, int connectTimeoutMs, int timeoutMs);
    bool SetMethodOption(int method);
    bool IsDeleted() const { return m_State == STATE_CLEANED; }
    bool BecomeDeleted();
    void CleanUp();
    void ReleaseAll();
    void ReleaseInLoop(const std::shared_ptr<CHttpFrame>& frame);

    void SetBodySource();

    static std::size_t OnWrite(char* buf, std::size_t size, std::size_t nmemb, void* userp);
    static std::size_t OnRead(char* buffer, std::size_t size, std::size_t nitems, void* userp);
    static int OnDebug(CURL* easy, curl_infotype type, char* data, std::size_t size, void* userp);
    static int OnProgress(void* clientp, double dltotal, double dlnow, double ultotal,
                          double ulnow);

    int AddToMulti();
    int RemoveFromMulti();
    void Complete(const AsynHttpReq& req, int result);

    bool Receive(const char* data, std::size_t len);
    bool ReceiveWsChunk(const char* data, std::size_t len);
    bool InsertInResponse(std::size_t offset, const char* data, std::size_t len);
    void SendWsFrame(const std::shared_ptr<std::vector<char>>& data, std::uint32_t flags,
                     std::size_t* sent);
    void SendQueuedWsFrame(const std::shared_ptr<std::vector<char>>& data, std::uint32_t flags);

    CURL* m_pEasy = nullptr;
    std::string m_Url;
    std::int32_t m_Method = kMethodGet;
    std::string m_Tag;
    void* m_pUserData = nullptr;
    curl_slist* m_pHeaders = nullptr;
    std::string m_DownloadPath;
    std::FILE* m_pDownloadFile = nullptr;
    std::string m_Response;   ///< the body, or the WebSocket message being put together
    std::string m_PostFields; ///< libcurl reads it in place
    std::shared_ptr<IHttpHandleNotic> m_pNotic;
    std::shared_ptr<CHttpHandle>* m_pSelf = nullptr;
    std::shared_ptr<CHttpFrame> m_pFrame; ///< by std::atomic_load and std::atomic_store only
    std::atomic<std::int32_t> m_State{STATE_NEW};
    std::shared_ptr<CHttpHandle> m_pNextDeleted; ///< loop thread only
};

} // namespace http_interface
