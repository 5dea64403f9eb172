#pragma once

#include "stress/Options.h"
#include "stress/Random.h"
#include "stress/Session.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <vector>

namespace stress
{

class Socket;
class Transfer;

/// One host thread. What it decides depends on its seed and on its own earlier
/// decisions alone, never on results or on time.
class Actor
{
public:
    using Sessions = std::vector<std::shared_ptr<Session>>;

    Actor(unsigned index, const Options& options, const Sessions& sessions);

    /// The thread's body.
    void Run();

    std::uint64_t Decisions() const { return m_Decisions; }
    std::uint64_t Digest() const { return m_Random.Digest(); }

private:
    /// What the thread works on; at most one of the three is there.
    struct Slot
    {
        Session* session = nullptr;
        Script script;
        std::shared_ptr<Transfer> transfer;
        std::shared_ptr<Socket> socket;
        std::shared_ptr<Timer> timer;
    };

    bool IsOver() const;
    void Step();
    bool StopsOrStarts();
    void Fill(Slot& slot);
    // False when the engine refused the add:
    bool FillTransfer(Slot& slot);
    bool FillSocket(Slot& slot);
    bool FillTimer(Slot& slot);
    void UseTransfer(Slot& slot);
    void UseSocket(Slot& slot);
    void UseTimer(Slot& slot);
    void Delete(Slot& slot, const std::shared_ptr<Entry>& entry, int times);
    Session& DrawSession();
    std::uint64_t NextId();
    Script DrawScript(unsigned percent, std::initializer_list<Moment> moments,
                      std::initializer_list<Action> actions, std::initializer_list<Action> stops);

    static constexpr std::size_t kSlots = 16;

    const unsigned m_Index;
    const Options& m_Options;
    const Sessions& m_Sessions;
    const std::chrono::steady_clock::time_point m_End;
    Random m_Random;
    std::uint64_t m_Decisions = 0;
    std::uint64_t m_Ids = 0;
    std::array<Slot, kSlots> m_Slots;
};

} // namespace stress
