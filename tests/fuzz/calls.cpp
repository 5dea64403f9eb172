/// Calls of the public interface in any order, on two engines with requests and
/// timers, from the main thread and from inside the notices.

#include "fuzz/Bench.h"
#include "fuzz/CallRun.h"
#include "fuzz/Network.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    fuzz::DropLogLines();
    fuzz::SendConnectionsTo(fuzz::CallServer().Port());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::CallRun(data, size).Perform();
    return 0;
}
