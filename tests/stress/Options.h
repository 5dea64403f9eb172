#pragma once

#include <cstdint>

namespace stress
{

/// What the command line asks for.
struct Options
{
    std::uint64_t seconds = 0;    ///< 0: no limit of time
    std::uint64_t operations = 0; ///< decisions of all threads together; 0: no limit
    unsigned threads = 4;
    std::uint64_t seed = 0;
    std::uint64_t stopEvery = 4000; ///< one orderly and about one sudden stop in so many decisions
};

/// Prints what is wrong, or the usage, and returns false.
bool Parse(int argc, char** argv, Options& options);

} // namespace stress
