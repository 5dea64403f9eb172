#pragma once

/// The objects that sequences of calls are made on. Each knows what the
/// documentation asks of a host (configure before the add, add a timer once,
/// delete everything before a stop), leaves out what would break that, and
/// checks what it is told: every accepted operation is completed once, and no
/// notice comes when none may.

#include "fuzz/Check.h"
#include "http_interface/http_interface.h"
#include "support/Event.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace fuzz
{

using namespace http_interface;

/// Called inside every notice and completion, on the loop thread.
using Inside = std::function<void()>;

/// Waits until a condition that no event tells of holds.
void Await(const std::function<bool()>& condition);

/// One accepted or refused operation, and how often it was completed.
class Ticket
{
public:
    void Completed() { FUZZ_CHECK(++m_Completions == 1); }
    int Completions() const { return m_Completions; }
    /// What the call answered; a refused one may not be completed.
    void Answered(int result, bool atOnce)
    {
        FUZZ_CHECK(result == 0 || result == -1);
        m_bAccepted = result == 0;
        FUZZ_CHECK(m_bAccepted || atOnce || m_Completions == 0);
    }
    void CheckAtEnd() const { FUZZ_CHECK(!m_bAccepted || m_Completions == 1); }

private:
    std::atomic<int> m_Completions{0};
    std::atomic<bool> m_bAccepted{false};
};

/// Every ticket of a run.
class Tickets
{
public:
    std::shared_ptr<Ticket> Draw();
    void CheckAtEnd();

private:
    std::mutex m_Mutex;
    std::vector<std::shared_ptr<Ticket>> m_Tickets;
};

/// An engine, and whether work may be given to it.
class CalledEngine : public IHttpInterfaceNotic
{
public:
    explicit CalledEngine(Inside inside) : m_Inside(std::move(inside)) {}

    IHttpInterface& Get() { return *m_pEngine; }

    /// On the main thread:
    void Init();
    void Start(bool wait);
    /// `deleteAll` deletes what would keep the loop open.
    /// @return true when the loop has ended; false also when it is just being
    ///         stopped from inside.
    bool Stop(const std::function<void()>& deleteAll);
    /// Has the engine run, whatever state it was left in.
    void Run();
    /// Lets go of a stopped engine, of which nothing is left then.
    void CheckAtEnd();

    /// On the loop thread; `deleteAll` deletes at once.
    void StopInside(bool viaAsync, const std::function<void()>& deleteAll);

    /// Any thread: makes an add unless the engine is being stopped.
    void WhileOpen(const std::function<void()>& add);
    void AddBegins() { ++m_PendingAdds; }
    void AddEnds() { --m_PendingAdds; }

    void Notify() { m_Inside(); }

    // IHttpInterfaceNotic:
    void OnHttpFrameStop(std::shared_ptr<IHttpInterface> engine, void* userData) override;

private:
    bool Passes();

    std::shared_ptr<IHttpInterface> m_pEngine = IHttpInterface::Create();
    Inside m_Inside;
    std::recursive_mutex m_Open; ///< held while something is added
    std::atomic<bool> m_bStopping{false};
    std::atomic<int> m_PendingAdds{0};
};

/// A request of one engine.
class CalledHandle : public IHttpHandleNotic, public std::enable_shared_from_this<CalledHandle>
{
public:
    CalledHandle(std::shared_ptr<CalledEngine> engine, Tickets& tickets)
        : m_pEngine(std::move(engine)), m_Tickets(tickets)
    {
    }

    // Any thread, but for the notices of another engine. `onLoop` tells that
    // the caller is on the engine's own loop thread.
    void Init(const std::string& url, int method, int timeoutMs);
    void Set(int option, int value);
    void Read();
    void Add(bool onLoop, bool async, bool told);
    void Delete(bool onLoop, bool async, bool told);
    void Disconnect();
    void Send(int type, std::size_t size, bool withData, bool withSent);

    bool NeedsDelete() const { return m_Phase == Ready || m_Phase == Engaged; }
    /// Nothing is left of a handle that the host lets go.
    void CheckAtEnd();

    // IHttpHandleNotic:
    void OnWsData(const char* data, std::size_t len, int type, void* user) override;
    void OnProgress(const char* tag, const char* url, double dltotal, double dlnow, double ultotal,
                    double ulnow, void* user) override;
    std::size_t OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                           std::size_t size, std::size_t nitems, void* user) override;
    void OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user) override;

private:
    enum Phase
    {
        New,
        Config,  ///< somebody is configuring or reading it
        Ready,   ///< initialised and not in the engine
        Engaged, ///< in the engine, or on its way
        Gone,
    };

    bool Claim(Phase& before);
    void Disengage();
    void Told(void* user);
    HttpReqCallback OnAdded(bool told, bool engages, const std::shared_ptr<Ticket>& ticket);
    HttpReqCallback OnDeleted(bool told, const std::shared_ptr<Ticket>& ticket);

    std::shared_ptr<CalledEngine> m_pEngine;
    Tickets& m_Tickets;
    std::shared_ptr<IHttpHandleInterface> m_pHandle = IHttpHandleInterface::Create();
    std::atomic<Phase> m_Phase{New};
    std::atomic<bool> m_bInitialised{false};
    std::atomic<int> m_Adds{0};
    std::atomic<int> m_Finishes{0};
    std::atomic<bool> m_bSilent{false}; ///< its delete was completed
};

/// A timer of one engine.
class CalledTimer : public ITimerHandleNotic, public std::enable_shared_from_this<CalledTimer>
{
public:
    /// How the timer tells of itself.
    enum Kind
    {
        Notic,
        Functions,
        Silent,
    };

    static std::shared_ptr<CalledTimer> Make(std::shared_ptr<CalledEngine> engine, Tickets& tickets,
                                             Kind kind, std::uint64_t timeoutMs,
                                             std::uint64_t repeatMs);
    CalledTimer(std::shared_ptr<CalledEngine> engine, Tickets& tickets)
        : m_pEngine(std::move(engine)), m_Tickets(tickets)
    {
    }

    // As for a handle:
    void Add(bool onLoop, bool async, bool told);
    void Delete(bool onLoop, bool async, bool told);
    void Stop(bool told);
    void Again(bool told);

    bool NeedsDelete() const { return m_bAdded && !m_bDeleted; }
    void CheckAtEnd();

    // ITimerHandleNotic:
    void OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* userData) override;
    void OnClose(std::shared_ptr<ITimerHandleInterface> timer, void* userData) override;

private:
    enum class What
    {
        Add,
        Delete,
        Other,
    };

    TimerReqCallback OnDone(bool told, What what, const std::shared_ptr<Ticket>& ticket);

    std::shared_ptr<CalledEngine> m_pEngine;
    Tickets& m_Tickets;
    std::shared_ptr<ITimerHandleInterface> m_pTimer;
    bool m_bNotified = false;
    std::atomic<bool> m_bAdded{false};
    std::atomic<bool> m_bStarted{false}; ///< its add was completed with success
    std::atomic<bool> m_bDeleted{false}; ///< its delete was after that, or the add failed
    std::atomic<int> m_Closes{0};
};

} // namespace fuzz
