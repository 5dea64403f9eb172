#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace stress
{

/// What is asked of an engine.
enum class Operation
{
    AddRequest,
    DeleteRequest,
    Disconnect,
    SendMessage,
    AddTimer,
    DeleteTimer,
    StopTimer,
    AgainTimer,
    Start,
    Stop,
    Count
};

/// What an engine tells.
enum class Notice
{
    Finished,        ///< OnFinish with 0
    Failed,          ///< OnFinish with -2
    Message,         ///< OnWsData
    Progress,        ///< OnProgress
    ReadData,        ///< OnReadData
    Expiry,          ///< OnTimer
    Close,           ///< OnClose
    LoopEnd,         ///< OnHttpFrameStop
    VerifiedBody,    ///< a response that was what it had to be
    VerifiedBytes,   ///< the bytes of these and of the messages
    CutOff,          ///< a transfer that a stop cut off before it began
    BegunAllTheSame, ///< one that began after the stop
    LeftOver,        ///< entries taken over into the engine's next run
    Count
};

/// Counts everything that is asked and told, and keeps what does not agree.
/// Any thread.
class Ledger
{
public:
    void Called(Operation operation, bool accepted);
    void Completed(Operation operation, int result);
    void Noted(Notice notice, std::uint64_t count = 1);
    /// An entry was made (1) or is gone (-1).
    void Lives(int change) { m_Lives += change; }

    /// Two things that had to agree did not.
    void Differ(const std::string& what);

    std::uint64_t Operations() const { return m_Operations; }
    /// Changes as long as anything happens.
    std::uint64_t Progress() const { return m_Progress; }
    std::uint64_t Count(Notice notice) const { return m_Notices[static_cast<std::size_t>(notice)]; }
    std::int64_t Alive() const { return m_Lives; }

    void PrintTable() const;
    /// The last line; tells whether everything agreed.
    bool PrintBalance() const;

private:
    struct Row
    {
        std::atomic<std::uint64_t> called{0};
        std::atomic<std::uint64_t> accepted{0};
        std::atomic<std::uint64_t> completed{0};
        std::atomic<std::uint64_t> failed{0};
    };

    std::array<Row, static_cast<std::size_t>(Operation::Count)> m_Rows;
    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Notice::Count)> m_Notices{};
    std::atomic<std::uint64_t> m_Operations{0};
    std::atomic<std::uint64_t> m_Progress{0};
    std::atomic<std::int64_t> m_Lives{0};

    mutable std::mutex m_Mutex;
    std::vector<std::string> m_Differences; ///< the first of them; under m_Mutex
    std::uint64_t m_DifferenceCount = 0;    ///< under m_Mutex
};

} // namespace stress
