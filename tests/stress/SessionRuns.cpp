/// The runs of an engine: the conductor has it alone here.

#include "stress/Session.h"

#include "stress/Timer.h"

#include <thread>

namespace stress
{
namespace
{

constexpr std::uint64_t kSweepEveryMs = 10;
constexpr auto kStep = std::chrono::milliseconds(1); ///< between two questions

/// Asks until the answer is yes, of which no event tells; false when that takes
/// too long.
template <typename Question>
bool AskUntilYes(Question question)
{
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (!question())
    {
        if (std::chrono::steady_clock::now() > limit)
        {
            return false;
        }
        std::this_thread::sleep_for(kStep);
    }
    return true;
}

} // namespace

void Session::Start()
{
    const Gate::Closed closed(m_Gate);
    Init();
    Run();
}

void Session::Restart()
{
    const Gate::Closed closed(m_Gate);
    Init();
    Settle();
    Run();
}

void Session::StopOrderlyAndRestart()
{
    const Gate::Closed closed(m_Gate);
    StopOrderly();
    Init();
    Settle();
    Run();
}

void Session::End()
{
    constexpr int kCycles = 5; // what is left over is deleted in one more
    const Gate::Closed closed(m_Gate);
    for (int i = 0; i < kCycles; ++i)
    {
        // Only the thread that joined the loop's knows that it has ended.
        const bool joined = !m_bEnded && StopOrderly();
        if (joined)
        {
            Settle();
            if (Entries().empty())
            {
                m_pProbe.reset();
                m_pBroom.reset();
                return;
            }
        }
        Init();
        if (!joined)
        {
            Settle();
        }
        Run();
    }
    m_Ledger.Differ(m_Name + ": comes to no end");
}

/// A loop thread that was detached tells nobody when it has closed its loop:
/// Init is refused until then.
void Session::Init()
{
    if (!AskUntilYes([this] { return m_pEngine->Init(shared_from_this(), this) == 0; }))
    {
        m_Ledger.Differ(m_Name + ": does not become idle");
    }
}

void Session::Run()
{
    const std::vector<std::shared_ptr<Entry>> leftOver = Entries();
    m_bEnded = false;
    m_bStoppedInLoop = false;
    m_pProbe = Timer::Make(*this, 0, {}, 0, 0);
    m_pBroom = Timer::Make(*this, 0, {}, kSweepEveryMs, kSweepEveryMs, [this] { Sweep(); });
    const bool wait = m_Random.Chance(50);
    const bool started = m_pEngine->Start(wait) == 0;
    m_Ledger.Called(Operation::Start, started);
    if (!started)
    {
        m_Ledger.Differ(m_Name + ": does not start");
    }
    for (const auto& timer : {m_pProbe, m_pBroom})
    {
        // Refused until the loop has turned for the first time.
        if (!AskUntilYes([&timer] { return timer->Add(Caller::Host, true); }))
        {
            m_Ledger.Differ(m_Name + ": accepts nothing");
        }
    }
    if (!m_Owed.Wait(kPatience, [](int count) { return count == 0; }))
    {
        m_Ledger.Differ(m_Name + ": its first timers are not added");
    }
    for (const std::shared_ptr<Entry>& entry : leftOver)
    {
        entry->Delete(Caller::Host, true);
    }
    ++m_Runs;
    m_Owed.Notify();
}

/// Whether this thread has joined the loop's.
bool Session::StopOrderly()
{
    if (!m_Owed.Wait(kPatience, [this](int count) { return count == 0 || m_bEnded; }))
    {
        m_Ledger.Differ(m_Name + ": " + std::to_string(m_Owed.Count()) +
                        " things still owed before an orderly stop");
    }
    const bool stopped = m_pEngine->Stop(m_Random.Chance(50)) == 0;
    m_Ledger.Called(Operation::Stop, stopped);
    if (!m_Owed.Wait(kPatience, [this](int) { return m_bEnded.load(); }))
    {
        m_Ledger.Differ(m_Name + ": the loop does not end");
        Print();
    }
    return stopped && !m_bStoppedInLoop;
}

void Session::Settle()
{
    std::vector<std::shared_ptr<Call>> calls;
    std::vector<std::shared_ptr<Entry>> entries;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        calls.swap(m_Calls);
        entries.swap(m_Entries);
    }
    for (const std::shared_ptr<Call>& call : calls)
    {
        if (!call->Balanced())
        {
            m_Ledger.Differ(m_Name + ": " + call->Describe());
        }
    }
    for (const std::shared_ptr<Entry>& entry : entries)
    {
        if (entry->Settle())
        {
            entry->Release();
        }
        else
        {
            m_Ledger.Noted(Notice::LeftOver);
            Enter(entry);
        }
    }
    if (const int owed = m_Owed.Count(); owed != 0)
    {
        m_Ledger.Differ(m_Name + ": " + std::to_string(owed) + " things still owed after a stop");
        m_Owed.Change(-owed);
    }
}

} // namespace stress
