// A timer of each kind: a repeating one that tells a notice object, and one
// expiry that calls a function.

#include "common/Session.h"
#include "TickNotic.h"

#include <cstdio>

using http_interface::ITimerHandleInterface;

int main()
{
    constexpr int kTicks = 4;
    constexpr int kTickMs = 50;
    constexpr int kOnceMs = 80;
    const auto notic = std::make_shared<TickNotic>(kTicks);
    std::promise<void> once;
    Session session; // ends before what the timers use
    const auto repeating = ITimerHandleInterface::Create(notic, kTickMs, kTickMs, nullptr);
    const auto single = ITimerHandleInterface::Create(
        [&](std::shared_ptr<ITimerHandleInterface>, void*)
        {
            std::printf(" (once)");
            once.set_value();
        },
        nullptr, kOnceMs, 0, nullptr);
    std::printf("timers   one every %d ms, one after %d ms; expiries:", kTickMs, kOnceMs);
    if (!session.Start() || !session.Add(repeating) || !session.Add(single))
    {
        return 1;
    }
    notic->Wait();
    once.get_future().wait();
    return session.Close() ? 0 : 1;
}
