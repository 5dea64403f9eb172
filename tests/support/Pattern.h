#pragma once

#include <cstddef>
#include <string>

namespace test
{

/// Bytes that differ from place to place, for bodies too large to keep: `count`
/// bytes of the pattern from an offset on.
void FillPattern(char* buffer, std::size_t offset, std::size_t count);

/// Whether a file holds exactly the first `size` bytes of the pattern.
bool IsPatternFile(const std::string& path, std::size_t size);

} // namespace test
