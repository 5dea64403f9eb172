#include "stress/Options.h"

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace stress
{
namespace
{

constexpr const char* kUsage =
    "usage: http_interface_stress [--seconds N] [--operations N] [--threads N] [--seed S]\n"
    "                             [--stop-every N]\n"
    "HTTP_INTERFACE_TEST_SERVERS names the file of the servers; without a limit: 10 s\n";

bool ParseNumber(const char* text, std::uint64_t& number)
{
    char* end = nullptr;
    number = std::strtoull(text, &end, 10);
    return *text >= '0' && *text <= '9' && *end == '\0';
}

} // namespace

bool Parse(int argc, char** argv, Options& options)
{
    std::uint64_t threads = options.threads;
    options.seed = std::random_device()();
    for (int i = 1; i < argc; i += 2)
    {
        const std::string name = argv[i];
        std::uint64_t* const number = name == "--seconds"      ? &options.seconds
                                      : name == "--operations" ? &options.operations
                                      : name == "--threads"    ? &threads
                                      : name == "--seed"       ? &options.seed
                                      : name == "--stop-every" ? &options.stopEvery
                                                               : nullptr;
        if (number == nullptr || i + 1 == argc || !ParseNumber(argv[i + 1], *number))
        {
            std::fputs(kUsage, stderr);
            return false;
        }
    }
    constexpr std::uint64_t kMostThreads = 256;
    if (threads == 0 || threads > kMostThreads || options.stopEvery == 0)
    {
        std::fputs(kUsage, stderr);
        return false;
    }
    options.threads = static_cast<unsigned>(threads);
    if (options.seconds == 0 && options.operations == 0)
    {
        constexpr std::uint64_t kDefaultSeconds = 10;
        options.seconds = kDefaultSeconds;
    }
    return true;
}

} // namespace stress
