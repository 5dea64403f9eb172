#pragma once

#include <cstddef>

namespace test
{

/// Open descriptors of this process; handles on Windows.
std::size_t OpenHandles();

/// Bytes that this process has allocated from the heap and not freed.
std::size_t AllocatedMemory();

} // namespace test
