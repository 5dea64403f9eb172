#include "fuzz/CallRun.h"

#include "fuzz/Check.h"
#include "fuzz/Upgrade.h"

#include <limits>
#include <string>
#include <utility>

namespace fuzz
{
namespace
{

constexpr std::size_t kHandles = 6;
constexpr std::size_t kTimers = 4;
constexpr std::size_t kMostActions = 60;
constexpr std::size_t kBytesPerAction = 3;
constexpr int kDeepest = 4;

} // namespace

ByteServer& CallServer()
{
    static ByteServer server;
    return server;
}

CallRun::CallRun(const std::uint8_t* data, std::size_t size)
{
    const std::uint8_t choice = size != 0 ? data[0] : 0;
    for (std::size_t at = 1; at + kBytesPerAction <= size && m_Main.size() != kMostActions;
         at += kBytesPerAction)
    {
        const CallAction action{static_cast<std::uint8_t>(data[at] & 0x7f), data[at + 1],
                                data[at + 2]};
        ((data[at] & 0x80) != 0 ? m_Inside : m_Main).push_back(action);
    }
    PlayServer(choice);
    for (std::size_t i = 0; i != kEngines; ++i)
    {
        m_Engines.push_back(
            std::make_shared<CalledEngine>([this, i] { Inside(static_cast<int>(i)); }));
    }
    for (std::size_t i = 0; i != kHandles; ++i)
    {
        m_Handles.push_back(std::make_shared<CalledHandle>(m_Engines[i % kEngines], m_Tickets));
    }
    constexpr auto kNever = std::numeric_limits<std::uint64_t>::max();
    constexpr std::pair<std::uint64_t, std::uint64_t> kTimes[] = {
        {0, 1}, {1, 0}, {2, 3}, {kNever, 0}};
    for (std::size_t i = 0; i != kTimers; ++i)
    {
        const auto& [timeoutMs, repeatMs] = kTimes[(i + choice) % std::size(kTimes)];
        m_Timers.push_back(CalledTimer::Make(m_Engines[i % kEngines], m_Tickets,
                                             static_cast<CalledTimer::Kind>((i + choice / 4U) % 3),
                                             timeoutMs, repeatMs));
    }
}

void CallRun::PlayServer(std::uint8_t choice)
{
    using Ending = ByteServer::Ending;
    constexpr Ending kEndings[] = {Ending::Close, Ending::HalfClose, Ending::Reset, Ending::Hold};
    constexpr std::size_t kMostAnswers = 1000;
    CallServer().Play(
        {[](const std::string& request, std::size_t)
         {
             return AsksForUpgrade(request)
                        ? Upgrade(request) + "\x81\x05hello" + "\x82\x02hi\x88"
                        : std::string("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello");
         },
         kMostAnswers, (choice & 0x40) != 0, (choice & 0x80) != 0, kEndings[(choice >> 4) & 3]});
}

void CallRun::Perform()
{
    for (const CallAction& action : m_Main)
    {
        Act(action, kMain);
    }
    End();
}

void CallRun::Inside(int engine)
{
    static thread_local int depth = 0;
    if (depth == kDeepest)
    {
        return;
    }
    const std::size_t next = m_NextInside++;
    if (next < m_Inside.size())
    {
        ++depth;
        Act(m_Inside[next], engine);
        --depth;
    }
}

void CallRun::DeleteAll(int engine, bool onLoop)
{
    for (auto i = static_cast<std::size_t>(engine); i < m_Handles.size(); i += kEngines)
    {
        if (m_Handles[i]->NeedsDelete())
        {
            m_Handles[i]->Delete(onLoop, !onLoop, true);
        }
    }
    for (auto i = static_cast<std::size_t>(engine); i < m_Timers.size(); i += kEngines)
    {
        if (m_Timers[i]->NeedsDelete())
        {
            m_Timers[i]->Delete(onLoop, !onLoop, true);
        }
    }
}

bool CallRun::NeedsDelete(int engine) const
{
    const auto needs = [&](const auto& objects)
    {
        bool any = false;
        for (auto i = static_cast<std::size_t>(engine); i < objects.size(); i += kEngines)
        {
            any = any || objects[i]->NeedsDelete();
        }
        return any;
    };
    return needs(m_Handles) || needs(m_Timers);
}

void CallRun::End()
{
    for (int i = 0; i != static_cast<int>(kEngines); ++i)
    {
        CalledEngine& engine = *m_Engines[static_cast<std::size_t>(i)];
        // An engine that stops itself meanwhile refuses the deletes.
        Await(
            [&]
            {
                engine.Run();
                return engine.Stop([&] { DeleteAll(i, false); }) && !NeedsDelete(i);
            });
    }
    for (const auto& handle : m_Handles)
    {
        handle->CheckAtEnd();
    }
    for (const auto& timer : m_Timers)
    {
        timer->CheckAtEnd();
    }
    for (const auto& engine : m_Engines)
    {
        engine->CheckAtEnd();
    }
    m_Tickets.CheckAtEnd();
}

} // namespace fuzz
