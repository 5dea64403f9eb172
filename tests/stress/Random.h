#pragma once

#include <cstdint>
#include <random>

namespace stress
{

/// The decisions of one thread: the same seed gives the same ones on every
/// platform, which the distributions of the standard library would not.
class Random
{
public:
    explicit Random(std::uint64_t seed) : m_Engine(seed) {}

    /// A number from 0 to `end` - 1.
    std::uint64_t Below(std::uint64_t end)
    {
        const std::uint64_t drawn = m_Engine() % end;
        m_Digest = (m_Digest ^ drawn) * 1099511628211;
        return drawn;
    }

    bool Chance(unsigned percent) { return Below(100) < percent; }

    /// Stands for all numbers drawn so far.
    std::uint64_t Digest() const { return m_Digest; }

private:
    std::mt19937_64 m_Engine;
    std::uint64_t m_Digest = 14695981039346656037u;
};

} // namespace stress
