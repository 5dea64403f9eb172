#pragma once

#include "ChatNotic.h"
#include "common/Session.h"

#include <memory>
#include <string>

/// One connection to a chat, with a timer for its heartbeat; both are deleted
/// with it. Nobody tells when a connection opens, and nobody when it is lost:
/// what was heard since the last beat is all there is to know.
class Connection
{
public:
    /// Begins to connect. Throws std::runtime_error when nothing can be begun.
    Connection(Session& session, const char* url, const char* caFile, int beatMs);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// What came next; waits for it, for the time of a beat at most.
    ChatNotic::Event Next() { return m_pNotic->Next(); }

    /// Sends a text. One that is lost on its way is not reported either.
    bool Say(const std::string& text);

    /// Closes it and waits for the peer's answer, for the time of a beat at most.
    void Leave();

private:
    bool Send(const std::string& data, int type);

    Session& m_Session;
    const std::shared_ptr<ChatNotic> m_pNotic = std::make_shared<ChatNotic>();
    const std::shared_ptr<http_interface::IHttpHandleInterface> m_pRequest;
    const std::shared_ptr<http_interface::ITimerHandleInterface> m_pTimer;
};
