#pragma once

#include "http_interface/http_interface.h"
#include "stress/Entry.h"

#include <atomic>
#include <memory>
#include <string>

namespace stress
{

/// A request handle: what transfers and WebSockets have in common.
class Request : public Entry, public http_interface::IHttpHandleNotic
{
public:
    // Entry:
    bool Add(Caller caller, bool async) override;
    void Delete(Caller caller, bool async) override;
    void Sweep() override;
    bool Settle() override;
    void Release() override;
    bool IsReleased() const override { return m_pHandle == nullptr; }
    std::string Describe() const override;

    void Disconnect(Caller caller);

    /// Whether what comes could still be told from what came before.
    virtual bool MayBeAddedAgain() const { return false; }

    /// It was added in a callback that then stopped the engine, and is left as
    /// it is. Loop thread.
    void LeaveCutOff();

    // IHttpHandleNotic:
    void OnProgress(const char* tag, const char* url, double dltotal, double dlnow, double ultotal,
                    double ulnow, void* user) override;
    std::size_t OnReadData(std::shared_ptr<http_interface::IHttpHandleInterface> handle,
                           char* buffer, std::size_t size, std::size_t nitems, void* user) override;
    void OnWsData(const char* data, std::size_t len, int type, void* user) override;
    void OnFinish(std::shared_ptr<http_interface::IHttpHandleInterface> handle, int result,
                  void* user) override;

protected:
    /// Whether the end of a transfer is told, which a WebSocket's is not.
    enum class End
    {
        Told,
        Silent,
    };

    Request(Session& session, std::uint64_t id, Script script, End end);

    http_interface::IHttpHandleInterface& Handle() const { return *m_pHandle; }
    bool Init(const std::string& url, int method, int connectTimeoutMs, int timeoutMs);
    bool IsDeleted() const { return m_bDeleted; }
    bool IsInEngine() const { return m_bInEngine; }
    bool HasNothingQueued() const { return m_QueuedAdds == 0; }
    void Perform(Action action) override;

    // The ones below come after the checks that every notice needs:
    virtual void Began() {} ///< libcurl has taken the transfer
    virtual void Ended(int /*result*/) {}
    virtual void Deleted() {}
    virtual std::size_t Read(char* /*buffer*/, std::size_t /*room*/) { return 0; }
    virtual void Received(const char* /*data*/, std::size_t /*len*/, int /*type*/) {}

private:
    void OnAdded(const void* handle, const void* user, int result);
    void OnDeleted(const void* handle, const void* user, int result, bool knowsEngine);
    void CheckNotice(const char* name, const void* user) const;
    void OnDisconnected();
    void CutOff();
    void LeaveEngine();

    std::shared_ptr<http_interface::IHttpHandleInterface> m_pHandle;
    const bool m_bEndIsTold;
    std::atomic<int> m_QueuedAdds{0};
    std::atomic<bool> m_bInEngine{false}; ///< of a WebSocket: it may be
    std::atomic<bool> m_bAccepted{false}; ///< an add was: the handle knows its engine
    std::atomic<bool> m_bDeleted{false};

    // Loop thread:
    bool m_bCutOff = false; ///< by a stop, unless another connection's event makes libcurl begin it
    bool m_bLeft = false;   ///< although it is cut off
    bool m_bDeletedInside = false;
    bool m_bMayBeOut = false; ///< whether it was disconnected can't be told
};

} // namespace stress
