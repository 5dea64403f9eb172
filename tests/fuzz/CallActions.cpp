#include "fuzz/CallRun.h"
#include "fuzz/Check.h"
#include "fuzz/Network.h"

#include <string>

namespace fuzz
{
namespace
{

std::string UrlOf(std::uint8_t choice)
{
    const std::string server = "://127.0.0.1:" + std::to_string(CallServer().Port()) + "/";
    const std::string closed = "://127.0.0.1:" + std::to_string(ClosedPort()) + "/";
    const std::string urls[] = {"http" + server,        "ws" + server,    "http" + closed,
                                "ws" + closed,          "https" + server, "http://",
                                "http://host.invalid/", "other" + server};
    return urls[choice % std::size(urls)];
}

/// The choice among `objects` of those that the caller may use.
template <typename Object>
Object& Choose(const std::vector<std::shared_ptr<Object>>& objects, std::uint8_t target, int loop)
{
    if (loop == kMain)
    {
        return *objects[target % objects.size()];
    }
    const std::size_t own = target % (objects.size() / kEngines);
    return *objects[own * kEngines + static_cast<std::size_t>(loop)];
}

} // namespace

/// @param loop  the engine on whose loop thread this is, or kMain.
void CallRun::Act(const CallAction& action, int loop)
{
    switch (action.what % 3)
    {
    case 0:
        ActOnEngine(action, loop);
        break;
    case 1:
        ActOnHandle(action, loop);
        break;
    default:
        ActOnTimer(action, loop);
        break;
    }
}

void CallRun::ActOnEngine(const CallAction& action, int loop)
{
    const int number = loop == kMain ? action.target % static_cast<int>(kEngines) : loop;
    CalledEngine& engine = *m_Engines[static_cast<std::size_t>(number)];
    if (loop != kMain)
    {
        engine.StopInside((action.value & 1) != 0, [&] { DeleteAll(number, true); });
        return;
    }
    switch (action.value % 8)
    {
    case 0:
        engine.Init();
        break;
    case 1:
        engine.Start(false);
        break;
    case 2:
        engine.Start(true);
        break;
    case 3:
    case 4:
        engine.Stop([&] { DeleteAll(number, false); });
        break;
    case 5:
        FUZZ_CHECK(engine.Get().AddHttpReq(nullptr, true, nullptr, nullptr) == -1);
        FUZZ_CHECK(engine.Get().DelHttpReq(nullptr, false, nullptr, nullptr) == -1);
        FUZZ_CHECK(engine.Get().AddTimerReq(nullptr, false, nullptr, nullptr) == -1);
        FUZZ_CHECK(engine.Get().DelTimerReq(nullptr, true, nullptr, nullptr) == -1);
        break;
    default:
        engine.Run();
        break;
    }
}

void CallRun::ActOnHandle(const CallAction& action, int loop)
{
    CalledHandle& handle = Choose(m_Handles, action.target, loop);
    const bool onLoop = loop != kMain;
    const bool async = (action.value & 1) != 0;
    const bool told = (action.value & 2) != 0;
    switch (action.what / 3 % 8)
    {
    case 0:
        handle.Init(UrlOf(action.value & 7), action.value >> 3 & 3,
                    (action.value & 0x80) != 0 ? 0 : (action.value & 0x60) - 1);
        break;
    case 1:
        handle.Set(action.value & 7, action.value >> 3);
        break;
    case 2:
    case 3:
        handle.Add(onLoop, async, told);
        break;
    case 4:
        handle.Delete(onLoop, async, told);
        break;
    case 5:
        handle.Disconnect();
        break;
    case 6:
        handle.Send(action.value & 3, std::size_t{action.value} << 4, (action.value & 4) != 0,
                    (action.value & 0x18) != 0);
        break;
    default:
        handle.Read();
        break;
    }
}

void CallRun::ActOnTimer(const CallAction& action, int loop)
{
    CalledTimer& timer = Choose(m_Timers, action.target, loop);
    const bool onLoop = loop != kMain;
    const bool async = (action.value & 1) != 0;
    const bool told = (action.value & 2) != 0;
    switch (action.what / 3 % 4)
    {
    case 0:
        timer.Add(onLoop, async, told);
        break;
    case 1:
        timer.Delete(onLoop, async, told);
        break;
    case 2:
        timer.Stop(told);
        break;
    default:
        timer.Again(told);
        break;
    }
}

} // namespace fuzz
