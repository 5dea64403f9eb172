#pragma once

#include <atomic>

namespace test
{

/// Counts the calls of something and picks the nth of them. Any thread.
class Nth
{
public:
    explicit Nth(int n) : m_N(n) {}
    Nth(const Nth&) = delete;
    Nth& operator=(const Nth&) = delete;

    /// One more call: true when it is the one.
    bool IsNow() { return ++m_Calls == m_N; }
    bool Came() const { return m_Calls >= m_N; }

private:
    const int m_N;
    std::atomic<int> m_Calls{0};
};

} // namespace test
