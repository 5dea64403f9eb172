#pragma once

#include "stress/Ledger.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace stress
{

/// How much of something an engine still has to do; threads wait for it.
class Outstanding
{
public:
    void Change(int by)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Count += by;
        m_Changed.notify_all();
    }

    /// Wakes those who wait for something else beside the count.
    void Notify() { Change(0); }

    int Count() const
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Count;
    }

    /// Until `done`, which is given the count, is true; false when it isn't
    /// within the limit.
    template <typename Done, typename Duration>
    bool Wait(Duration limit, Done done)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Changed.wait_for(lock, limit, [&] { return done(m_Count); });
    }

private:
    mutable std::mutex m_Mutex;
    std::condition_variable m_Changed;
    int m_Count = 0; ///< under m_Mutex
};

/// One call with a completion function: proves that this is called exactly once
/// when the call owes it, and never when it does not.
class Call
{
public:
    Call(Ledger& ledger, Outstanding& outstanding, Operation operation)
        : m_Ledger(ledger), m_Outstanding(outstanding), m_Operation(operation)
    {
        m_Outstanding.Change(+1);
    }

    /// The completion function was called; it may be before Return().
    void Complete(int result)
    {
        m_Result = result;
        ++m_Completions;
        m_Ledger.Completed(m_Operation, result);
        SettleOnce();
    }

    /// The call returned; `owed` tells whether its completion has to come.
    void Return(bool owed)
    {
        m_Owed = owed ? 1 : 0;
        m_Ledger.Called(m_Operation, owed);
        if (!owed)
        {
            SettleOnce();
        }
    }

    int Completions() const { return m_Completions; }
    int Result() const { return m_Result; }
    std::string Describe() const
    {
        return "operation " + std::to_string(static_cast<int>(m_Operation)) + ": " +
               std::to_string(m_Completions) + " completions, " + std::to_string(m_Owed) + " owed";
    }
    /// To be asked in between two runs of the engine.
    bool Balanced() const { return m_Completions == m_Owed; }

private:
    void SettleOnce()
    {
        if (!m_bSettled.exchange(true))
        {
            m_Outstanding.Change(-1);
        }
    }

    Ledger& m_Ledger;
    Outstanding& m_Outstanding;
    const Operation m_Operation;
    std::atomic<int> m_Completions{0};
    std::atomic<int> m_Owed{-1};
    std::atomic<int> m_Result{1};
    std::atomic<bool> m_bSettled{false};
};

} // namespace stress
