#pragma once

#include "support/Event.h"

#include <atomic>
#include <netinet/in.h>
#include <thread>
#include <vector>

namespace test
{

/// A name server on 127.0.0.1:53 that keeps every question unanswered until it
/// is let go; then it says of each that there is no such name.
class HangingNameServer
{
public:
    HangingNameServer();
    ~HangingNameServer();

    bool IsListening() const { return m_Socket >= 0; }
    /// Told of each question.
    Event m_Asked;
    /// Answers what waits, and from now on at once.
    void LetGo();

private:
    struct Question
    {
        std::vector<char> packet;
        sockaddr_in from;
    };

    void Serve();
    void Refuse(Question& question) const;

    int m_Socket;
    std::atomic<bool> m_bLetGo{false};
    std::atomic<bool> m_bEnded{false};
    std::thread m_Thread;
};

} // namespace test
