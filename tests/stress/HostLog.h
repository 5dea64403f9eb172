#pragma once

#include "base/base.h"
#include "stress/Ledger.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace stress
{

/// The host's logger: keeps an eye on the error lines, any of which must be one
/// that these operations are known to cause, and tells the calling thread of a
/// refusal that nothing else tells it of.
class HostLog : public base::IBaseLogInterface
{
public:
    explicit HostLog(Ledger& ledger) : m_Ledger(ledger) {}

    void WriteLog(const int* level, const long* threadId, const char* format, ...) override;

    /// The lines that were expected, and how often each came.
    void Print() const;

    /// Whether this thread's last operation was dropped because its engine no
    /// longer accepts any; asking takes the answer away.
    static bool TakeRefusal();

private:
    Ledger& m_Ledger;
    mutable std::mutex m_Mutex;
    std::map<std::string, std::uint64_t> m_Lines; ///< under m_Mutex
};

} // namespace stress
