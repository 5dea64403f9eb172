#pragma once

#include "faults/Host.h"
#include "support/Event.h"
#include "support/TempFile.h"

#include <memory>
#include <string>

namespace test
{

/// What a scenario uses of the library.
enum Part : unsigned
{
    kGetPart = 1,        ///< a page, with headers, trace and progress
    kPostPart = 2,       ///< a body of its own, which comes back
    kUploadPart = 4,     ///< a body from the notice
    kDownloadPart = 8,   ///< a page into a file
    kTlsPart = 16,       ///< a page by https
    kWebSocketPart = 32, ///< two messages, sent on the loop thread and on the host's
    kDeletedPart = 64,   ///< a WebSocket that is deleted inside its first notice
    kTimerPart = 128,    ///< a timer, stopped and started again
    kRequestParts = 127,
    kAllParts = 255,
};

/// One request of a host: prepared, added, waited for and deleted on the host's
/// thread.
class Request : public IHttpHandleNotic, public std::enable_shared_from_this<Request>
{
public:
    Request(Host& host, const std::shared_ptr<IHttpInterface>& engine, Part part);

    /// Each fails the test when the host can't go on.
    void Prepare();
    void Add();
    void Talk();
    void Delete();

    /// libcurl let go of this handle; loop thread.
    void OnTakenOut(const std::shared_ptr<IHttpHandleInterface>& handle);
    /// After Stop: everything that was accepted has been answered once, and
    /// what arrived is right.
    void ExpectAnswered();
    int FailedFinishes() const { return m_FailedFinishes; }
    bool HasDeadHandle() const { return m_bDeadHandle; }
    bool IsOver() const { return m_bOver; }

    // IHttpHandleNotic:
    void OnWsData(const char* data, std::size_t len, int type, void* user) override;
    void OnProgress(const char*, const char*, double, double, double, double, void*) override {}
    std::size_t OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                           std::size_t size, std::size_t nitems, void* user) override;
    void OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user) override;

private:
    bool Is(unsigned parts) const { return (m_Part & parts) != 0; }
    bool IsWebSocket() const { return Is(kWebSocketPart | kDeletedPart); }
    std::string Url() const;
    int Method() const;
    void Init();
    void SetOptions();
    int AddOnce();
    bool DeleteWith(bool async);
    bool SendHello();
    std::string Received() const;

    Host& m_Host;
    const std::shared_ptr<IHttpInterface> m_pEngine;
    const Part m_Part;
    std::shared_ptr<IHttpHandleInterface> m_pHandle;
    const std::list<std::string> m_Headers{"X-Test: one", "X-Other: two"};
    const std::shared_ptr<std::vector<char>> m_pHello;
    const TempFile m_File;
    const std::string m_Name;
    std::size_t m_Sent = 0;
    std::size_t m_Supplied = 0;
    bool m_bDeadHandle = false;
    bool m_bOver = false; ///< whatever was to come has come in time

    Event m_Added;
    Event m_Deleted;
    Event m_Step; ///< something that Talk waits for
    std::atomic<int> m_AddResult{1};
    std::atomic<int> m_Adds{0};
    std::atomic<int> m_Deletes{0};
    std::atomic<int> m_Replies{0};
    std::atomic<int> m_Finishes{0};
    std::atomic<int> m_FailedFinishes{0};
    std::atomic<bool> m_bTakenOut{false};
    std::atomic<bool> m_bDeleting{false};
};

} // namespace test
