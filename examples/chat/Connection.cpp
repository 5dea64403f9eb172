#include "Connection.h"

#include "common/Request.h"

#include <stdexcept>
#include <vector>

using http_interface::ITimerHandleInterface;

namespace
{

constexpr int kText = 1;
constexpr int kClose = 3;

} // namespace

Connection::Connection(Session& session, const char* url, const char* caFile, int beatMs)
    : m_Session(session),
      m_pRequest(MakeRequest(url, kWebSocket, m_pNotic, caFile)),
      m_pTimer(ITimerHandleInterface::Create(
          [notic = m_pNotic](std::shared_ptr<ITimerHandleInterface>, void*) { notic->Beat(); },
          nullptr, static_cast<std::uint64_t>(beatMs), static_cast<std::uint64_t>(beatMs), nullptr))
{
    if (!m_Session.Add(m_pRequest) || !m_Session.Add(m_pTimer))
    {
        throw std::runtime_error("the engine takes no more connections");
    }
}

Connection::~Connection()
{
    m_Session.Delete(m_pTimer);
    m_Session.Delete(m_pRequest);
}

bool Connection::Say(const std::string& text)
{
    return Send(text, kText);
}

void Connection::Leave()
{
    Send("\x03\xe8", kClose); // the code 1000, which stands for a normal end
    while (Next().kind == ChatNotic::Kind::kMessage)
    {
    }
}

bool Connection::Send(const std::string& data, int type)
{
    std::size_t sent = 0; // is only written by a send on the loop thread
    return m_pRequest->SendWsData(std::make_shared<std::vector<char>>(data.begin(), data.end()),
                                  type, &sent) == 0;
}
