#include "stress/Ledger.h"

#include <cinttypes>
#include <cstdio>

namespace stress
{
namespace
{

constexpr std::size_t kKeptDifferences = 100;

constexpr std::array<const char*, static_cast<std::size_t>(Operation::Count)> kOperationNames = {
    "add request",  "delete request", "disconnect",    "send message", "add timer",
    "delete timer", "stop timer",     "restart timer", "start engine", "stop engine"};

constexpr std::array<const char*, static_cast<std::size_t>(Notice::Count)> kNoticeNames = {
    "transfers finished",
    "transfers failed",
    "messages received",
    "progress notices",
    "reads of uploads",
    "timer expiries",
    "timers closed",
    "loops ended",
    "bodies verified",
    "bytes verified",
    "transfers cut off by a stop",
    "begun after a stop",
    "left over to the next run"};

} // namespace

void Ledger::Called(Operation operation, bool accepted)
{
    Row& row = m_Rows[static_cast<std::size_t>(operation)];
    ++row.called;
    row.accepted += accepted ? 1 : 0;
    ++m_Operations;
    ++m_Progress;
}

void Ledger::Completed(Operation operation, int result)
{
    Row& row = m_Rows[static_cast<std::size_t>(operation)];
    ++row.completed;
    row.failed += result != 0 ? 1 : 0;
    ++m_Progress;
}

void Ledger::Noted(Notice notice, std::uint64_t count)
{
    m_Notices[static_cast<std::size_t>(notice)] += count;
    ++m_Progress;
}

void Ledger::Differ(const std::string& what)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    ++m_DifferenceCount;
    if (m_Differences.size() < kKeptDifferences)
    {
        m_Differences.push_back(what);
        std::printf("difference: %s\n", what.c_str());
        std::fflush(stdout);
    }
}

void Ledger::PrintTable() const
{
    std::printf("\n%-30s %12s %12s %12s %12s %12s\n", "operation", "called", "accepted", "refused",
                "completed", "with -1");
    for (std::size_t i = 0; i < m_Rows.size(); ++i)
    {
        const Row& row = m_Rows[i];
        std::printf("%-30s %12" PRIu64 " %12" PRIu64 " %12" PRIu64 " %12" PRIu64 " %12" PRIu64 "\n",
                    kOperationNames[i], row.called.load(), row.accepted.load(),
                    row.called - row.accepted, row.completed.load(), row.failed.load());
    }
    std::printf("%-30s %12" PRIu64 "\n\n", "all", m_Operations.load());
    for (std::size_t i = 0; i < m_Notices.size(); ++i)
    {
        std::printf("%-30s %12" PRIu64 "\n", kNoticeNames[i], m_Notices[i].load());
    }
    std::fflush(stdout);
}

bool Ledger::PrintBalance() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_DifferenceCount == 0)
    {
        std::printf("ledger balanced\n");
        return true;
    }
    for (const std::string& difference : m_Differences)
    {
        std::printf("difference: %s\n", difference.c_str());
    }
    std::printf("%" PRIu64 " differences\n", m_DifferenceCount);
    return false;
}

} // namespace stress
