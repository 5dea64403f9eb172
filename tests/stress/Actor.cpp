#include "stress/Actor.h"

#include "stress/Socket.h"
#include "stress/Timer.h"
#include "stress/Transfer.h"

#include <initializer_list>

namespace stress
{
namespace
{

constexpr int kRoomOfThread = 64; ///< things that an engine may owe, for each thread

template <typename Value>
Value Pick(Random& random, std::initializer_list<Value> values)
{
    return values.begin()[random.Below(values.size())];
}

} // namespace

Actor::Actor(unsigned index, const Options& options, const Sessions& sessions)
    : m_Index(index),
      m_Options(options),
      m_Sessions(sessions),
      m_End(std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds)),
      m_Random(options.seed * 1000003 + index)
{
}

void Actor::Run()
{
    while (!IsOver())
    {
        Step();
        ++m_Decisions;
    }
    m_Slots = {};
}

bool Actor::IsOver() const
{
    if (m_Options.operations != 0 && m_Decisions * m_Options.threads >= m_Options.operations)
    {
        return true;
    }
    return m_Options.seconds != 0 && std::chrono::steady_clock::now() >= m_End;
}

void Actor::Step()
{
    if (StopsOrStarts())
    {
        return;
    }
    Slot& slot = m_Slots[m_Random.Below(kSlots)];
    if (slot.transfer)
    {
        UseTransfer(slot);
    }
    else if (slot.socket)
    {
        UseSocket(slot);
    }
    else if (slot.timer)
    {
        UseTimer(slot);
    }
    else
    {
        Fill(slot);
    }
}

bool Actor::StopsOrStarts()
{
    constexpr std::uint64_t kStartEvery = 500;
    const bool stops = m_Random.Below(m_Options.stopEvery) == 0;
    const bool starts = m_Random.Below(kStartEvery) == 0;
    if (!stops && !starts)
    {
        return false;
    }
    Session& session = DrawSession();
    const bool viaAsync = m_Random.Chance(50);
    const Gate::Pass pass(session.Entrance());
    if (stops)
    {
        session.Stop(viaAsync);
    }
    else
    {
        session.StartAgain();
    }
    return true;
}

Session& Actor::DrawSession()
{
    return *m_Sessions[m_Random.Below(m_Sessions.size())];
}

std::uint64_t Actor::NextId()
{
    constexpr unsigned kBits = 32;
    return (static_cast<std::uint64_t>(m_Index + 1) << kBits) + ++m_Ids;
}

/// What an entry does on its own, if it does anything; rarely it stops its engine.
Script Actor::DrawScript(unsigned percent, std::initializer_list<Moment> moments,
                         std::initializer_list<Action> actions, std::initializer_list<Action> stops)
{
    const bool isStop = m_Random.Below(m_Options.stopEvery) == 0;
    const bool acts = m_Random.Chance(percent);
    Script script{Pick(m_Random, moments), Pick(m_Random, isStop ? stops : actions)};
    if (!isStop && !acts)
    {
        script.when = Moment::Never;
    }
    return script;
}

void Actor::Fill(Slot& slot)
{
    constexpr unsigned kTransfers = 75;
    constexpr unsigned kTimers = 15;
    slot.session = &DrawSession();
    const std::uint64_t kind = m_Random.Below(100);
    const int room = kRoomOfThread * static_cast<int>(m_Options.threads);
    if (!slot.session->Owed().Wait(kPatience, [room](int owed) { return owed < room; }))
    {
        slot.session->Books().Differ(slot.session->Name() + ": is stuck");
    }
    const std::uint64_t run = slot.session->RunNumber();
    const bool accepted = kind < kTransfers             ? FillTransfer(slot)
                          : kind < kTransfers + kTimers ? FillTimer(slot)
                                                        : FillSocket(slot);
    if (!accepted)
    {
        slot.session->AwaitRunAfter(run); // it is being stopped
    }
}

bool Actor::FillTransfer(Slot& slot)
{
    slot.script = DrawScript(
        30, {Moment::Added, Moment::Finished, Moment::Finished, Moment::Inside, Moment::Inside},
        {Action::Delete, Action::Delete, Action::DeleteQueued, Action::AddAgain,
         Action::AddAgainQueued, Action::Disconnect, Action::DeleteAnother},
        {Action::StopEngine, Action::StopEngineLater});
    const TransferPlan& plan = slot.session->Catalogue().DrawTransfer(m_Random);
    const std::uint64_t kind = m_Random.Below(40);
    const int adds = kind == 0 ? 0 : kind == 1 ? 2 : 1;
    const bool async = m_Random.Chance(50); // on a host thread it makes no difference
    const Gate::Pass pass(slot.session->Entrance());
    slot.transfer = Transfer::Make(*slot.session, NextId(), slot.script, plan);
    bool accepted = true;
    for (int i = 0; i < adds; ++i)
    {
        accepted = slot.transfer->Add(Caller::Host, async);
    }
    return accepted;
}

bool Actor::FillSocket(Slot& slot)
{
    slot.script = DrawScript(
        20, {Moment::Added, Moment::Inside, Moment::Inside, Moment::Inside},
        {Action::Delete, Action::DeleteQueued, Action::Disconnect, Action::DeleteAnother},
        {Action::StopEngine, Action::StopEngineLater});
    const SocketPlan& plan = slot.session->Catalogue().DrawSocket(m_Random);
    const Gate::Pass pass(slot.session->Entrance());
    slot.socket = Socket::Make(*slot.session, NextId(), slot.script, plan);
    return slot.socket->Add(Caller::Host, true);
}

bool Actor::FillTimer(Slot& slot)
{
    slot.script =
        DrawScript(30, {Moment::Added, Moment::Expired, Moment::Expired, Moment::Expired},
                   {Action::Delete, Action::DeleteQueued, Action::StopTimer, Action::AgainTimer,
                    Action::DeleteAnother},
                   {Action::StopEngine, Action::StopEngineLater, Action::StopBehindAnAdd});
    const std::uint64_t timeoutMs = m_Random.Below(20);
    const std::uint64_t repeatMs = m_Random.Chance(50) ? 1 + m_Random.Below(20) : 0;
    const Gate::Pass pass(slot.session->Entrance());
    slot.timer = Timer::Make(*slot.session, NextId(), slot.script, timeoutMs, repeatMs);
    return slot.timer->Add(Caller::Host, true);
}

void Actor::UseTransfer(Slot& slot)
{
    const std::shared_ptr<Transfer> transfer = slot.transfer;
    const std::uint64_t kind = m_Random.Below(100);
    if (kind < 40)
    {
        transfer->AwaitQuiet();
        return;
    }
    if (kind < 80)
    {
        Delete(slot, transfer, kind < 75 ? 1 : 2);
        return;
    }
    // When it is disconnected can't be told from its queueing itself again.
    const bool disconnects = kind < 90 && slot.script.what != Action::AddAgainQueued;
    const bool adds = kind >= 85;
    const Gate::Pass pass(slot.session->Entrance());
    if (disconnects && !transfer->IsReleased())
    {
        transfer->Disconnect(Caller::Host);
    }
    if (adds && !transfer->IsReleased() && transfer->MayBeAddedAgain())
    {
        transfer->Add(Caller::Host, true);
    }
}

void Actor::UseSocket(Slot& slot)
{
    constexpr int kMostAtOnce = 6;
    const std::shared_ptr<Socket> socket = slot.socket;
    const std::uint64_t kind = m_Random.Below(100);
    const int messages = 1 + static_cast<int>(m_Random.Below(kMostAtOnce));
    if (kind < 20)
    {
        socket->AwaitQuiet();
        return;
    }
    if (kind < 30)
    {
        Delete(slot, socket, kind < 29 ? 1 : 2);
        return;
    }
    const Gate::Pass pass(slot.session->Entrance());
    if (socket->IsReleased())
    {
        return;
    }
    if (kind < 32)
    {
        socket->Disconnect(Caller::Host);
    }
    else
    {
        socket->Send(messages);
    }
}

void Actor::UseTimer(Slot& slot)
{
    const std::shared_ptr<Timer> timer = slot.timer;
    const std::uint64_t kind = m_Random.Below(100);
    if (kind >= 60)
    {
        Delete(slot, timer, kind < 95 ? 1 : 2);
        return;
    }
    const Gate::Pass pass(slot.session->Entrance());
    if (timer->IsReleased())
    {
        return;
    }
    if (kind < 30)
    {
        timer->Stop(Caller::Host);
    }
    else
    {
        timer->Again(Caller::Host);
    }
}

/// The slot is free then, whatever comes of it.
void Actor::Delete(Slot& slot, const std::shared_ptr<Entry>& entry, int times)
{
    const Gate::Pass pass(slot.session->Entrance());
    for (int i = 0; i < times && !entry->IsReleased(); ++i)
    {
        entry->Delete(Caller::Host, true);
    }
    slot = {};
}

} // namespace stress
