#pragma once

#include <condition_variable>
#include <mutex>

namespace stress
{

/// Lets host threads call an engine, several at a time, until it is closed:
/// whoever closed it then has the engine alone.
class Gate
{
public:
    /// One thread's call of the engine.
    class Pass
    {
    public:
        explicit Pass(Gate& gate) : m_Gate(gate)
        {
            std::unique_lock<std::mutex> lock(m_Gate.m_Mutex);
            m_Gate.m_Changed.wait(lock, [this] { return !m_Gate.m_bClosed; });
            ++m_Gate.m_Inside;
        }
        ~Pass()
        {
            const std::lock_guard<std::mutex> lock(m_Gate.m_Mutex);
            --m_Gate.m_Inside;
            m_Gate.m_Changed.notify_all();
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

    private:
        Gate& m_Gate;
    };

    /// Closed as long as this exists.
    class Closed
    {
    public:
        explicit Closed(Gate& gate) : m_Gate(gate)
        {
            std::unique_lock<std::mutex> lock(m_Gate.m_Mutex);
            m_Gate.m_bClosed = true;
            m_Gate.m_Changed.wait(lock, [this] { return m_Gate.m_Inside == 0; });
        }
        ~Closed()
        {
            const std::lock_guard<std::mutex> lock(m_Gate.m_Mutex);
            m_Gate.m_bClosed = false;
            m_Gate.m_Changed.notify_all();
        }
        Closed(const Closed&) = delete;
        Closed& operator=(const Closed&) = delete;

    private:
        Gate& m_Gate;
    };

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    bool m_bClosed = false;
    int m_Inside = 0;
};

} // namespace stress
