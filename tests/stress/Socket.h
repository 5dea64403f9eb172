#pragma once

#include "stress/Plans.h"
#include "stress/Request.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace stress
{

/// A WebSocket. Messages are numbered in two lanes, since those sent inside
/// OnWsData overtake those that a host thread has queued; within its lane each
/// has to come back in order and unchanged.
class Socket : public Request
{
public:
    static std::shared_ptr<Socket> Make(Session& session, std::uint64_t id, Script script,
                                        const SocketPlan& plan);

    Socket(Session& session, std::uint64_t id, Script script, const SocketPlan& plan);

    /// Queues some messages, if the connection is open and not too many are on
    /// their way; one host thread.
    void Send(int count);

    // Entry:
    bool IsQuiet() const override;
    std::string Describe() const override;

protected:
    // Request:
    void Received(const char* data, std::size_t len, int type) override;

private:
    enum Lane
    {
        kHost,
        kLoop,
        kLanes
    };

    std::string Message(int lane, int number) const;
    static int TypeOf(int number);
    bool SendOne(Lane lane, int number);
    void ReceivedEcho(const std::string& message, int type);
    bool IsEchoOf(Lane lane, int number, const std::string& message, int type) const;
    bool HasOvertaken(const std::string& message, int type);
    void ReceivedPush(const std::string& message, int type);
    void Verified(std::size_t bytes);

    const SocketPlan& m_Plan;
    std::atomic<bool> m_bOpen{false};
    std::array<std::atomic<int>, kLanes> m_Sent{};
    std::array<std::atomic<int>, kLanes> m_Received{};
    std::set<int> m_Overtaking; ///< the host's that came before an older one; loop thread
};

} // namespace stress
