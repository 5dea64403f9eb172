#pragma once

#include "stress/Ledger.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace stress
{

/// Looks on from a thread of its own: prints the memory in use every minute,
/// and ends the process when nothing happens any more.
class Monitor
{
public:
    /// @param print  Says what the engines are doing.
    Monitor(const Ledger& ledger, std::function<void()> print);
    ~Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    void PrintMemory(const char* when) const;

private:
    void Watch();

    const Ledger& m_Ledger;
    const std::function<void()> m_Print;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    bool m_bEnds = false; ///< under m_Mutex
    std::thread m_Thread;
};

} // namespace stress
