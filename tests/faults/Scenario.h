#pragma once

#include "faults/Request.h"
#include "faults/TimerUse.h"
#include "support/Notics.h"
#include "wrap/Hooks.h"

#include <memory>
#include <set>
#include <vector>

namespace test
{

/// One run of a host from Init to Stop. It holds whatever call fails in it: what
/// was refused works when it is asked for again, whatever was accepted is
/// answered once, the engine stops, and nothing of the library's own stays.
class Scenario
{
public:
    /// @param parts  what the host does, of Part.
    Scenario(unsigned parts, const HostOptions& options);
    ~Scenario();
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;

    void Run();

    const Host& GetHost() const { return m_Host; }
    /// The host's thread has heard what it waited for.
    bool IsComplete() const { return m_bComplete; }
    /// Requests that ended with -2.
    int FailedFinishes() const { return m_FailedFinishes; }
    /// Handles that refused to be initialised a second time.
    int DeadHandles() const { return m_DeadHandles; }
    int StopNotices() { return m_pEngineNotic->m_Stopped.Count(); }
    /// Multi handles that a failed Init left behind; freed by the destructor.
    std::size_t LeftMultis() const { return m_Multis.size(); }

private:
    void RunTimer();
    void StartEngine();
    void StopEngine();
    void ExpectNothingLeft();
    CURLMcode OnRemove(CURLM* multi, CURL* easy);

    Host m_Host;
    const unsigned m_Parts;
    std::shared_ptr<IHttpInterface> m_pEngine;
    std::shared_ptr<EngineNotic> m_pEngineNotic = std::make_shared<EngineNotic>();
    std::vector<std::shared_ptr<Request>> m_Requests;
    std::vector<std::shared_ptr<TimerUse>> m_Timers;
    std::set<CURLM*> m_Multis;
    bool m_bComplete = true;
    int m_FailedFinishes = 0;
    int m_DeadHandles = 0;

    const Replaced<CURLM*()> m_MakesMulti;
    const Replaced<CURLMcode(CURLM*)> m_FreesMulti;
    const Replaced<CURLMcode(CURLM*, CURL*)> m_Removes;
};

} // namespace test
