#pragma once

#include "http_interface/http_interface.h"
#include "stress/Call.h"
#include "stress/Entry.h"
#include "stress/Gate.h"
#include "stress/Plans.h"
#include "stress/Random.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace stress
{

class Timer;

/// No wait lasts longer.
constexpr auto kPatience = std::chrono::seconds(60);

/// One engine through all its runs, and the entries of the ledger that it has.
///
/// A repeating timer, the broom, looks whether the engine still accepts work. When
/// it does not, nothing new can come, and the broom deletes what would hold the
/// loop: so Stop may be called at any time, by any thread. When the loop has
/// ended everything is settled, and the engine starts again.
class Session : public http_interface::IHttpInterfaceNotic,
                public std::enable_shared_from_this<Session>
{
public:
    Session(Ledger& ledger, const Plans& plans, Outstanding& ended, std::string name,
            std::uint64_t seed);
    ~Session() override;

    const std::string& Name() const { return m_Name; }
    Ledger& Books() { return m_Ledger; }
    const Plans& Catalogue() const { return m_Plans; }
    http_interface::IHttpInterface& Engine() { return *m_pEngine; }

    // The conductor's, who has the engine alone here:
    void Start();
    bool HasEnded() const { return m_bEnded; }
    /// Takes up what a stop has left and starts again.
    void Restart();
    /// Lets everything finish first, so that nothing may be missing.
    void StopOrderlyAndRestart();
    /// The same for the last time; nothing is left over.
    void End();

    // Host threads, under a pass of the gate:
    Gate& Entrance() { return m_Gate; }
    void Stop(bool viaAsync);
    void StartAgain();
    std::uint64_t RunNumber() const { return m_Runs; }
    /// Waits for a later run than this; not under a pass.
    void AwaitRunAfter(std::uint64_t number);
    /// Behind what this thread has queued; `done` is told on the loop thread.
    void QueueMark(std::function<void()> done);

    // Any thread:
    void Enter(const std::shared_ptr<Entry>& entry);
    std::shared_ptr<Call> Open(Operation operation);
    /// Completions and ends of transfers still to come.
    Outstanding& Owed() { return m_Owed; }

    // Loop thread:
    bool Accepts();
    void StopInLoop(bool viaAsync);
    /// Loop thread.
    bool IsStoppedInLoop() const { return m_bStoppedInLoop; }
    void StopBehindAnAdd(std::uint64_t id);
    void DeleteAnother(const Entry& self);
    bool IsInsideLibcurl() const { return m_InsideLibcurl > 0; }

    /// Spans a notice that comes from inside libcurl.
    class InsideLibcurl
    {
    public:
        explicit InsideLibcurl(Session& session) : m_Session(session)
        {
            ++m_Session.m_InsideLibcurl;
        }
        ~InsideLibcurl() { --m_Session.m_InsideLibcurl; }
        InsideLibcurl(const InsideLibcurl&) = delete;
        InsideLibcurl& operator=(const InsideLibcurl&) = delete;

    private:
        Session& m_Session;
    };

    // IHttpInterfaceNotic:
    void OnHttpFrameStop(std::shared_ptr<http_interface::IHttpInterface> engine,
                         void* userData) override;

    /// For the watchdog.
    void Print() const;

private:
    void Init();
    void Run();
    bool StopOrderly();
    void Settle();
    void Sweep();
    std::vector<std::shared_ptr<Entry>> Entries() const;

    Ledger& m_Ledger;
    const Plans& m_Plans;
    Outstanding& m_Ended; ///< wakes the conductor
    const std::string m_Name;
    Random m_Random; ///< the conductor's
    const std::shared_ptr<http_interface::IHttpInterface> m_pEngine;
    Gate m_Gate;
    Outstanding m_Owed;
    std::atomic<bool> m_bEnded{false};
    std::atomic<std::uint64_t> m_Runs{0};

    // Set between two runs:
    std::shared_ptr<Timer> m_pProbe; ///< tells on the loop thread whether work is accepted
    std::shared_ptr<Timer> m_pBroom;

    // Loop thread, and the conductor between two runs:
    int m_InsideLibcurl = 0;
    bool m_bStoppedInLoop = false;

    mutable std::mutex m_Mutex;
    std::vector<std::shared_ptr<Entry>> m_Entries; ///< under m_Mutex
    std::vector<std::shared_ptr<Call>> m_Calls;    ///< under m_Mutex
};

} // namespace stress
