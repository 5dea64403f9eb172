#include "stress/Socket.h"

#include "stress/Content.h"
#include "stress/HostLog.h"
#include "stress/Session.h"

#include <utility>
#include <vector>

namespace stress
{
namespace
{

constexpr int kWebSocket = 3;
constexpr int kText = 1;
constexpr int kBinary = 2;
constexpr int kConnectMs = 30000;
constexpr int kOnTheWay = 16;  ///< few and small: the socket always takes them whole
constexpr int kLoopSends = 20; ///< that answer one another
constexpr std::size_t kMaxMessage = 3000;

} // namespace

std::shared_ptr<Socket> Socket::Make(Session& session, std::uint64_t id, Script script,
                                     const SocketPlan& plan)
{
    auto socket = std::make_shared<Socket>(session, id, script, plan);
    if (!socket->Init(plan.url, kWebSocket, kConnectMs, 0) ||
        socket->Handle().SetCaCert(session.Catalogue().CaFile().c_str()) != 0)
    {
        socket->Differ("cannot be configured");
    }
    session.Enter(socket);
    return socket;
}

Socket::Socket(Session& session, std::uint64_t id, Script script, const SocketPlan& plan)
    : Request(session, id, script, End::Silent), m_Plan(plan)
{
}

std::string Socket::Message(int lane, int number) const
{
    const std::string head = std::to_string(lane) + ' ' + std::to_string(number) + ' ';
    const std::uint64_t id = Id() * 1000 + static_cast<std::uint64_t>(lane * 500 + number);
    const auto size = static_cast<std::size_t>(id * 7919 % kMaxMessage);
    return head + (TypeOf(number) == kText ? TextOf(id, size) : BytesOf(id, size));
}

int Socket::TypeOf(int number)
{
    return number % 2 == 0 ? kText : kBinary;
}

bool Socket::SendOne(Lane lane, int number)
{
    const std::string text = Message(lane, number);
    const auto message = std::make_shared<std::vector<char>>(text.begin(), text.end());
    std::size_t sent = 0;
    HostLog::TakeRefusal();
    const int result = Handle().SendWsData(message, TypeOf(number), &sent);
    const bool accepted = result == 0 && !HostLog::TakeRefusal();
    Owner().Books().Called(Operation::SendMessage, accepted);
    if (accepted && lane == kLoop && sent != message->size())
    {
        Differ("a message was sent in part");
    }
    return accepted;
}

void Socket::Send(int count)
{
    for (int i = 0; i < count && m_bOpen && IsInEngine() && !IsDeleted() &&
                    m_Sent[kHost] - m_Received[kHost] < kOnTheWay;
         ++i)
    {
        if (!SendOne(kHost, m_Sent[kHost]))
        {
            return; // none of the later ones could get through either
        }
        ++m_Sent[kHost];
        Remember("sent");
    }
}

bool Socket::IsQuiet() const
{
    if (!IsInEngine())
    {
        return HasNothingQueued();
    }
    switch (m_Plan.dialogue)
    {
    case Dialogue::Echo:
        return m_bOpen && m_Sent[kHost] == m_Received[kHost] && m_Received[kLoop] == kLoopSends;
    case Dialogue::Push:
        return m_Received[kHost] == static_cast<int>(m_Plan.count);
    default:
        return HasNothingQueued();
    }
}

void Socket::Received(const char* data, std::size_t len, int type)
{
    const std::string message(data, len);
    if (m_Plan.dialogue == Dialogue::Push)
    {
        ReceivedPush(message, type);
    }
    else if (m_Plan.dialogue == Dialogue::Echo && m_bOpen)
    {
        ReceivedEcho(message, type);
    }
    else if (m_Plan.dialogue == Dialogue::Echo)
    {
        if (message != "ready" || type != kText)
        {
            Differ("a message before the connection is ready");
        }
        ++m_Sent[kLoop];
        m_bOpen = true;
        SendOne(kLoop, 0);
    }
    Owner().Owed().Notify();
}

void Socket::ReceivedEcho(const std::string& message, int type)
{
    const Lane lane = !message.empty() && message.front() == '1' ? kLoop : kHost;
    const int number = m_Received[lane];
    if (lane == kHost && HasOvertaken(message, type))
    {
        Verified(message.size());
        return;
    }
    if (!IsEchoOf(lane, number, message, type))
    {
        Differ("instead of message " + std::to_string(number) + " of lane " + std::to_string(lane) +
               " came \"" + message.substr(0, 20) + "\" of type " + std::to_string(type));
        return;
    }
    Verified(message.size());
    do
    {
        ++m_Received[lane];
    } while (lane == kHost && m_Overtaking.erase(m_Received[lane]) != 0);
    if (lane == kLoop && number + 1 < kLoopSends)
    {
        ++m_Sent[kLoop];
        SendOne(kLoop, number + 1);
    }
}

bool Socket::IsEchoOf(Lane lane, int number, const std::string& message, int type) const
{
    return message == Message(lane, number) && type == TypeOf(number);
}

/// A stop in a completion performs what was queued last before what the same
/// wake-up had taken already.
bool Socket::HasOvertaken(const std::string& message, int type)
{
    if (!Owner().IsStoppedInLoop())
    {
        return false;
    }
    for (int number = m_Received[kHost] + 1; number < m_Received[kHost] + kOnTheWay; ++number)
    {
        if (IsEchoOf(kHost, number, message, type))
        {
            return m_Overtaking.insert(number).second;
        }
    }
    return false;
}

void Socket::ReceivedPush(const std::string& message, int type)
{
    constexpr unsigned kPeriod = 251;
    bool right = type == kBinary && message.size() == m_Plan.size &&
                 m_Received[kHost] < static_cast<int>(m_Plan.count);
    for (std::size_t i = 0; right && i < message.size(); ++i)
    {
        right = static_cast<unsigned char>(message[i]) == i % kPeriod;
    }
    if (!right)
    {
        Differ("a wrong pushed message of " + std::to_string(message.size()) + " bytes");
        return;
    }
    Verified(message.size());
    ++m_Received[kHost];
}

void Socket::Verified(std::size_t bytes)
{
    Owner().Books().Noted(Notice::VerifiedBody);
    Owner().Books().Noted(Notice::VerifiedBytes, bytes);
}

std::string Socket::Describe() const
{
    return Request::Describe() + ' ' + m_Plan.url + " sent " + std::to_string(m_Sent[kHost]) +
           " and " + std::to_string(m_Sent[kLoop]) + ", received " +
           std::to_string(m_Received[kHost]) + " and " + std::to_string(m_Received[kLoop]);
}

} // namespace stress
