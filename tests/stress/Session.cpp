#include "stress/Session.h"

#include "stress/Timer.h"
#include "stress/Transfer.h"

#include <cstdio>
#include <utility>

namespace stress
{
namespace
{

constexpr std::uint64_t kBehindAStop = std::uint64_t{1} << 62; ///< marks the ids of such transfers

} // namespace

Session::Session(Ledger& ledger, const Plans& plans, Outstanding& ended, std::string name,
                 std::uint64_t seed)
    : m_Ledger(ledger),
      m_Plans(plans),
      m_Ended(ended),
      m_Name(std::move(name)),
      m_Random(seed),
      m_pEngine(http_interface::IHttpInterface::Create())
{
}

Session::~Session() = default;

void Session::Stop(bool viaAsync)
{
    m_Ledger.Called(Operation::Stop, m_pEngine->Stop(viaAsync) == 0);
}

void Session::StartAgain()
{
    m_Ledger.Called(Operation::Start, m_pEngine->Start(true) == 0);
}

void Session::AwaitRunAfter(std::uint64_t number)
{
    if (!m_Owed.Wait(kPatience, [this, number](int) { return m_Runs != number; }))
    {
        m_Ledger.Differ(m_Name + ": was not started again");
    }
}

void Session::QueueMark(std::function<void()> done)
{
    m_pProbe->Stop(Caller::Host, std::move(done));
}

void Session::Enter(const std::shared_ptr<Entry>& entry)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Entries.push_back(entry);
}

std::vector<std::shared_ptr<Entry>> Session::Entries() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Entries;
}

std::shared_ptr<Call> Session::Open(Operation operation)
{
    auto call = std::make_shared<Call>(m_Ledger, m_Owed, operation);
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Calls.push_back(call);
    return call;
}

bool Session::Accepts()
{
    return m_pProbe->AsksEngine();
}

/// Once a run: a second Stop on the loop thread has no thread to detach any
/// more and throws.
void Session::StopInLoop(bool viaAsync)
{
    if (m_bStoppedInLoop)
    {
        return;
    }
    m_bStoppedInLoop = true;
    const bool stopped = m_pEngine->Stop(viaAsync) == 0;
    m_bStoppedInLoop = stopped;
    m_Ledger.Called(Operation::Stop, stopped);
}

/// libcurl begins a transfer on a later turn of the loop, by its timer, which
/// the stop closes.
void Session::StopBehindAnAdd(std::uint64_t id)
{
    const auto transfer = Transfer::Make(*this, id | kBehindAStop, {}, m_Plans.First());
    if (transfer->Add(Caller::Loop, false) && !m_bStoppedInLoop)
    {
        StopInLoop(false);
        if (m_bStoppedInLoop)
        {
            transfer->LeaveCutOff();
        }
    }
}

void Session::DeleteAnother(const Entry& self)
{
    std::shared_ptr<Entry> other;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        other = m_Entries[self.Id() % m_Entries.size()];
    }
    if (other.get() != &self && other != m_pProbe && other != m_pBroom)
    {
        other->Delete(Caller::Loop, false);
    }
}

void Session::Sweep()
{
    if (!Accepts())
    {
        for (const std::shared_ptr<Entry>& entry : Entries())
        {
            entry->Sweep();
        }
    }
}

void Session::OnHttpFrameStop(std::shared_ptr<http_interface::IHttpInterface> engine,
                              void* userData)
{
    m_Ledger.Noted(Notice::LoopEnd);
    if (engine != m_pEngine || userData != this || m_bEnded)
    {
        m_Ledger.Differ(m_Name + ": a wrong OnHttpFrameStop");
    }
    m_bEnded = true;
    m_Owed.Notify();
    m_Ended.Notify();
}

void Session::Print() const
{
    constexpr std::size_t kShown = 50;
    const std::vector<std::shared_ptr<Entry>> entries = Entries();
    std::printf("%s: %s, %d things owed, %zu entries\n", m_Name.c_str(),
                m_bEnded ? "ended" : "running", m_Owed.Count(), entries.size());
    std::size_t shown = 0;
    for (const std::shared_ptr<Entry>& entry : entries)
    {
        const std::string text = entry->Describe();
        if (text.find(" deleted") == std::string::npos && ++shown <= kShown)
        {
            std::printf("  %s\n", text.c_str());
        }
    }
    std::fflush(stdout);
}

} // namespace stress
