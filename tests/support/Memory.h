#pragma once

#include <cstddef>

namespace test
{

/// The most memory that this process has held so far, in bytes.
std::size_t PeakMemory();
/// The memory that it holds now, in bytes.
std::size_t ResidentMemory();

} // namespace test
