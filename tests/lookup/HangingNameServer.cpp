#include "lookup/HangingNameServer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test
{
namespace
{

constexpr int kTurnMs = 5;

int ListenOnNamePort()
{
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    {
        close(server);
        return -1;
    }
    return server;
}

} // namespace

HangingNameServer::HangingNameServer() : m_Socket(ListenOnNamePort())
{
    if (IsListening())
    {
        m_Thread = std::thread(&HangingNameServer::Serve, this);
    }
}

HangingNameServer::~HangingNameServer()
{
    m_bEnded = true;
    if (m_Thread.joinable())
    {
        m_Thread.join();
        close(m_Socket);
    }
}

void HangingNameServer::LetGo()
{
    m_bLetGo = true;
}

void HangingNameServer::Serve()
{
    std::vector<Question> waiting;
    while (!m_bEnded)
    {
        if (m_bLetGo)
        {
            for (Question& question : waiting)
            {
                Refuse(question);
            }
            waiting.clear();
        }
        pollfd readable = {m_Socket, POLLIN, 0};
        if (poll(&readable, 1, kTurnMs) != 1)
        {
            continue;
        }
        Question question = {std::vector<char>(512), {}};
        socklen_t length = sizeof question.from;
        const ssize_t size = recvfrom(m_Socket, question.packet.data(), question.packet.size(), 0,
                                      reinterpret_cast<sockaddr*>(&question.from), &length);
        if (size < 12)
        {
            continue; // less than a header
        }
        question.packet.resize(static_cast<std::size_t>(size));
        waiting.push_back(std::move(question));
        m_Asked.Set();
    }
}

// The question itself, with the header's bits "answer" and "no such name".
void HangingNameServer::Refuse(Question& question) const
{
    question.packet[2] = static_cast<char>(question.packet[2] | 0x80);
    question.packet[3] = static_cast<char>(0x83);
    sendto(m_Socket, question.packet.data(), question.packet.size(), 0,
           reinterpret_cast<const sockaddr*>(&question.from), sizeof question.from);
}

} // namespace test
