#include "common/Session.h"

#include <base/base.h>

#include <algorithm>
#include <future>
#include <stdexcept>
#include <thread>

using namespace http_interface;

namespace
{

constexpr int kWarn = 40;

/// Once, also when it is handed over again.
template <typename T>
void Remember(std::vector<std::shared_ptr<T>>& list, const std::shared_ptr<T>& object)
{
    if (std::find(list.begin(), list.end(), object) == list.end())
    {
        list.push_back(object);
    }
}

template <typename T>
void Forget(std::vector<std::shared_ptr<T>>& list, const std::shared_ptr<T>& object)
{
    list.erase(std::remove(list.begin(), list.end(), object), list.end());
}

} // namespace

Session::Session() : m_pEngine(IHttpInterface::Create())
{
    // Warnings and errors of the library go to standard error; its traces don't.
    base::IBaseLogInterface::SetDefaultLogLevel(kWarn);
    if (m_pEngine->Init(nullptr, nullptr) != 0)
    {
        throw std::runtime_error("the engine can't be initialised");
    }
}

Session::~Session()
{
    Close();
}

bool Session::Start()
{
    m_bStarted = m_pEngine->Start(true) == 0;
    return m_bStarted;
}

bool Session::Add(const std::shared_ptr<IHttpHandleInterface>& request)
{
    Remember(m_Requests, request);
    return m_pEngine->AddHttpReq(request, false, nullptr, nullptr) == 0;
}

bool Session::Add(const std::shared_ptr<ITimerHandleInterface>& timer)
{
    Remember(m_Timers, timer);
    return m_pEngine->AddTimerReq(timer, false, nullptr, nullptr) == 0;
}

void Session::Delete(const std::shared_ptr<IHttpHandleInterface>& request)
{
    Forget(m_Requests, request);
    m_pEngine->DelHttpReq(request, false, nullptr, nullptr);
}

void Session::Delete(const std::shared_ptr<ITimerHandleInterface>& timer)
{
    Forget(m_Timers, timer);
    m_pEngine->DelTimerReq(timer, false, nullptr, nullptr);
}

bool Session::Close(std::chrono::milliseconds limit)
{
    if (!m_bStarted)
    {
        return true;
    }
    m_bStarted = false;
    for (const auto& request : m_Requests)
    {
        m_pEngine->DelHttpReq(request, false, nullptr, nullptr);
    }
    for (const auto& timer : m_Timers)
    {
        m_pEngine->DelTimerReq(timer, false, nullptr, nullptr);
    }
    m_Requests.clear();
    m_Timers.clear();

    // Stop waits for the loop thread, so it gets a thread of its own to be
    // waited for with a limit.
    std::promise<void> promise;
    std::future<void> stopped = promise.get_future();
    std::thread stopping(
        [engine = m_pEngine, ended = std::move(promise)]() mutable
        {
            engine->Stop(false);
            ended.set_value();
        });
    if (stopped.wait_for(limit) != std::future_status::ready)
    {
        stopping.detach();
        return false;
    }
    stopping.join();
    return true;
}
