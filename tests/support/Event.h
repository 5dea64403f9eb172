#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace test
{

/// No wait of a test lasts longer: what has not happened by then won't.
constexpr auto kLimit = std::chrono::seconds(30);

/// Counts occurrences; a thread waits for a number of them.
class Event
{
public:
    void Set()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        ++m_Count;
        m_Changed.notify_all();
    }

    /// False when fewer than `count` came within the limit.
    bool Wait(int count = 1, std::chrono::milliseconds limit = kLimit)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Changed.wait_for(lock, limit, [&] { return m_Count >= count; });
    }

    int Count()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Count;
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    int m_Count = 0;
};

} // namespace test
