#pragma once

#include "fuzz/ByteServer.h"
#include "fuzz/Calls.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace fuzz
{

/// Three bytes of an input: what is called, on which object, and how.
struct CallAction
{
    std::uint8_t what;
    std::uint8_t target;
    std::uint8_t value;
};

constexpr std::size_t kEngines = 2;
/// Who acts is told by the number of the engine whose loop thread it is, or this.
constexpr int kMain = -1;

/// Every connection of the program ends up here.
ByteServer& CallServer();

/// One sequence of calls: what it is made of in CallRun.cpp, what an action does
/// in CallActions.cpp.
class CallRun
{
public:
    CallRun(const std::uint8_t* data, std::size_t size);
    void Perform();

private:
    void PlayServer(std::uint8_t choice);
    void Inside(int engine);
    void Act(const CallAction& action, int loop);
    void ActOnEngine(const CallAction& action, int loop);
    void ActOnHandle(const CallAction& action, int loop);
    void ActOnTimer(const CallAction& action, int loop);
    void DeleteAll(int engine, bool onLoop);
    bool NeedsDelete(int engine) const;
    void End();

    std::vector<CallAction> m_Main;
    std::vector<CallAction> m_Inside; ///< performed one by one, in whatever notice comes next
    std::atomic<std::size_t> m_NextInside{0};
    Tickets m_Tickets;
    std::vector<std::shared_ptr<CalledEngine>> m_Engines;
    std::vector<std::shared_ptr<CalledHandle>> m_Handles; ///< of the engines by turns
    std::vector<std::shared_ptr<CalledTimer>> m_Timers;   ///< the same
};

} // namespace fuzz
