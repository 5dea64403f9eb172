#pragma once

#include "http_interface/http_interface.h"
#include "support/Event.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace fuzz
{

using namespace http_interface;

/// One request of the program's engine, and what holds for every request: its
/// add and its delete are completed once each, it finishes once, and it says
/// nothing after its delete. Deleted at the latest by Delete(); by then nothing
/// may hold it any more.
class Request : public IHttpHandleNotic, public std::enable_shared_from_this<Request>
{
public:
    static std::shared_ptr<Request> Make() { return std::make_shared<Request>(); }

    const std::shared_ptr<IHttpHandleInterface>& Handle() const { return m_pHandle; }

    /// InitRequest with this as the notice and as the user data.
    bool Init(const std::string& url, const char* tag, int method, int timeoutMs);

    /// Adds the request and waits for the add's completion.
    /// @return the completion's result.
    int Add();
    /// False when it did not finish within the time.
    bool WaitForFinish(std::chrono::milliseconds limit);
    void AwaitFinish();
    /// 0 or -2; after a finish.
    int Result() const { return m_Result; }

    /// Deletes the request unless that has happened, waits for the completion
    /// and checks that nothing is left of it.
    static void Delete(std::shared_ptr<Request> request);
    /// From a notice.
    void DeleteInside(bool async);
    void AwaitDelete();

    // Called inside the notices; may be empty.
    std::function<void()> m_OnFinish;
    std::function<void()> m_OnProgress;
    std::function<void(const char* data, std::size_t len, int type)> m_OnWsData;
    std::function<std::size_t(char* buffer, std::size_t room)> m_OnReadData;

    // IHttpHandleNotic:
    void OnWsData(const char* data, std::size_t len, int type, void* user) override;
    void OnProgress(const char* tag, const char* url, double dltotal, double dlnow, double ultotal,
                    double ulnow, void* user) override;
    std::size_t OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                           std::size_t size, std::size_t nitems, void* user) override;
    void OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user) override;

private:
    void CheckNotice(void* user) const;
    HttpReqCallback OnDeleted();

    std::shared_ptr<IHttpHandleInterface> m_pHandle = IHttpHandleInterface::Create();
    std::shared_ptr<test::Event> m_pDeletes = std::make_shared<test::Event>();
    test::Event m_Finishes;
    std::atomic<int> m_Adds{0};
    std::atomic<bool> m_bDeleting{false};
    std::atomic<bool> m_bDeleted{false};
    std::atomic<int> m_Result{1};
};

} // namespace fuzz
