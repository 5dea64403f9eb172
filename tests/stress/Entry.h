#pragma once

#include "stress/Call.h"
#include "stress/Script.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace stress
{

class Session;

/// One handle or timer in the ledger: makes every call of the engine for it,
/// is the notice that hears of it, and knows what may and what must still come.
///
/// What the loop thread does with it is followed on the loop thread; host
/// threads call under the session's gate, and read only what is atomic.
class Entry : public std::enable_shared_from_this<Entry>
{
public:
    Entry(Session& session, std::uint64_t id, Script script);
    virtual ~Entry();
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    std::uint64_t Id() const { return m_Id; }

    /// Hands it to the engine; false when that is refused.
    virtual bool Add(Caller caller, bool async) = 0;
    virtual void Delete(Caller caller, bool async) = 0;

    /// Loop thread, once the engine accepts nothing any more: deletes what
    /// would hold the loop.
    virtual void Sweep() = 0;

    /// Between two runs of the engine. False when it has to be deleted in the
    /// next one.
    virtual bool Settle() = 0;

    /// Lets the handle go; under the closed gate.
    virtual void Release() = 0;
    virtual bool IsReleased() const = 0;

    /// Whether nothing more is to be expected unless something is asked; any
    /// thread.
    virtual bool IsQuiet() const = 0;

    virtual std::string Describe() const = 0;

    /// Waits until it is quiet; reports a difference when that lasts too long.
    void AwaitQuiet();

protected:
    Session& Owner() const { return m_Session; }
    void Differ(const std::string& what) const;

    /// Adds to its history, which Name() tells; any thread.
    void Remember(const std::string& event);
    /// Its number, script and history, for differences.
    std::string Name() const;

    /// Acts the script out if this is its moment; loop thread.
    void Act(Moment moment);
    virtual void Perform(Action action);

private:
    Session& m_Session;
    const std::uint64_t m_Id;
    const Script m_Script;
    bool m_bActed = false; ///< loop thread only
    mutable std::mutex m_Mutex;
    std::string m_History; ///< under m_Mutex
};

} // namespace stress
