#include "fuzz/Calls.h"

#include <chrono>
#include <thread>
#include <utility>

namespace fuzz
{
namespace
{

constexpr std::uint64_t kNeverMs = 1000 * 1000;

} // namespace

void Await(const std::function<bool()>& condition)
{
    const auto limit = std::chrono::steady_clock::now() + test::kLimit;
    while (!condition())
    {
        FUZZ_CHECK(std::chrono::steady_clock::now() < limit);
        std::this_thread::yield();
    }
}

std::shared_ptr<Ticket> Tickets::Draw()
{
    auto ticket = std::make_shared<Ticket>();
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Tickets.push_back(ticket);
    return ticket;
}

void Tickets::CheckAtEnd()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (const std::shared_ptr<Ticket>& ticket : m_Tickets)
    {
        ticket->CheckAtEnd();
    }
}

void CalledEngine::Init()
{
    // The notice is held until the loop has ended: a pointer that owns nothing,
    // since this object outlives the loop.
    const std::shared_ptr<IHttpInterfaceNotic> notic(std::shared_ptr<void>(), this);
    if (m_pEngine->Init(notic, this) == 0)
    {
        m_bStopping = false;
    }
}

void CalledEngine::Start(bool wait)
{
    const int result = m_pEngine->Start(wait);
    FUZZ_CHECK(result == 0 || result == -1);
}

bool CalledEngine::Stop(const std::function<void()>& deleteAll)
{
    bool stopsAlready = false;
    {
        const std::lock_guard<std::recursive_mutex> lock(m_Open);
        stopsAlready = m_bStopping.exchange(true);
    }
    deleteAll();
    const int result = m_pEngine->Stop(false);
    FUZZ_CHECK(result == 0 || result == -1);
    if (result == -1 && !stopsAlready)
    {
        m_bStopping = false; // did not run
    }
    return result == 0 && !stopsAlready;
}

void CalledEngine::StopInside(bool viaAsync, const std::function<void()>& deleteAll)
{
    if (m_bStopping)
    {
        return;
    }
    {
        const std::lock_guard<std::recursive_mutex> lock(m_Open);
        // An add that is queued already would be performed behind the deletes.
        if (m_bStopping || m_PendingAdds != 0)
        {
            return;
        }
        m_bStopping = true;
    }
    deleteAll();
    FUZZ_CHECK(m_pEngine->Stop(viaAsync) == 0);
}

// Looked at before the lock is taken: completions that are called while the
// engine stops come under the engine's own lock.
void CalledEngine::WhileOpen(const std::function<void()>& add)
{
    if (m_bStopping)
    {
        return;
    }
    const std::lock_guard<std::recursive_mutex> lock(m_Open);
    if (!m_bStopping)
    {
        add();
    }
}

/// Whether a timer's add went through the loop.
bool CalledEngine::Passes()
{
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    test::Event performed;
    bool passed = false;
    const int result = m_pEngine->AddTimerReq(
        timer, true,
        [&](std::shared_ptr<ITimerHandleInterface> added, void*, int code)
        {
            passed = code == 0;
            if (passed)
            {
                m_pEngine->DelTimerReq(std::move(added), false, nullptr, nullptr);
            }
            performed.Set();
        },
        nullptr);
    if (result != 0)
    {
        return false;
    }
    FUZZ_CHECK(performed.Wait());
    return passed;
}

void CalledEngine::Run()
{
    Await(
        [this]
        {
            Init();
            Start(false);
            return Passes();
        });
}

void CalledEngine::CheckAtEnd()
{
    const std::weak_ptr<IHttpInterface> left = m_pEngine;
    m_pEngine.reset();
    Await([&] { return left.expired(); }); // a detached loop thread may still hold it
}

void CalledEngine::OnHttpFrameStop(std::shared_ptr<IHttpInterface> engine, void* userData)
{
    FUZZ_CHECK(engine == m_pEngine && userData == this);
    FUZZ_CHECK(engine->Init(nullptr, nullptr) == -1);
    FUZZ_CHECK(engine->Stop(true) == -1);
}

} // namespace fuzz
