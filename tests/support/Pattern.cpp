#include "support/Pattern.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>

namespace test
{
namespace
{

// A period of a prime number of bytes: it lines up with no buffer.
constexpr std::size_t kPeriod = 65521;

const std::array<char, 2 * kPeriod>& TwoPeriods()
{
    static const std::array<char, 2 * kPeriod> bytes = []
    {
        std::array<char, 2 * kPeriod> made{};
        std::uint32_t state = 1;
        for (std::size_t i = 0; i < kPeriod; ++i)
        {
            state = state * 1664525 + 1013904223;
            made[i] = made[i + kPeriod] = static_cast<char>(state >> 24);
        }
        return made;
    }();
    return bytes;
}

} // namespace

void FillPattern(char* buffer, std::size_t offset, std::size_t count)
{
    while (count > 0)
    {
        const std::size_t part = std::min(count, kPeriod);
        std::memcpy(buffer, TwoPeriods().data() + offset % kPeriod, part);
        buffer += part;
        offset += part;
        count -= part;
    }
}

bool IsPatternFile(const std::string& path, std::size_t size)
{
    std::ifstream file(path, std::ios::binary);
    std::array<char, kPeriod> read;
    std::array<char, kPeriod> expected;
    std::size_t seen = 0;
    while (file.read(read.data(), read.size()), file.gcount() > 0)
    {
        const auto count = static_cast<std::size_t>(file.gcount());
        FillPattern(expected.data(), seen, count);
        if (std::memcmp(read.data(), expected.data(), count) != 0)
        {
            return false;
        }
        seen += count;
    }
    return file.eof() && seen == size;
}

} // namespace test
