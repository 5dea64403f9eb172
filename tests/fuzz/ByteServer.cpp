#include "fuzz/ByteServer.h"

#include "fuzz/Check.h"
#include "support/Event.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace fuzz
{
namespace
{

constexpr char kHeaderEnd[] = "\r\n\r\n";
constexpr int kBacklog = 64;

void Reset(int fd)
{
    const linger atOnce{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

} // namespace

ByteServer::ByteServer()
    : m_Listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      m_WakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    FUZZ_CHECK(m_WakeUp >= 0);
    FUZZ_CHECK(bind(m_Listener, generic, length) == 0);
    FUZZ_CHECK(listen(m_Listener, kBacklog) == 0);
    FUZZ_CHECK(getsockname(m_Listener, generic, &length) == 0);
    m_Port = ntohs(address.sin_port);
    m_Thread = std::thread([this] { Run(); });
}

ByteServer::~ByteServer()
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_bStopping = true;
    }
    eventfd_write(m_WakeUp, 1);
    m_Thread.join();
    CloseAll();
    close(m_Listener);
    close(m_WakeUp);
}

void ByteServer::Play(Script script)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    CloseAll();
    for (int fd = 0; (fd = accept(m_Listener, nullptr, nullptr)) >= 0;)
    {
        close(fd); // of an earlier script, whose peer may have gone already
    }
    m_Script = std::move(script);
    m_Answers = 0;
    m_Accepted = 0;
    ++m_Generation;
    eventfd_write(m_WakeUp, 1);
}

void ByteServer::Rest()
{
    Script silent;
    silent.answers = 0;
    Play(std::move(silent));
}

bool ByteServer::WaitUntilLeft()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    return m_Changed.wait_for(lock, test::kLimit,
                              [this] { return m_Accepted > 0 && m_Connections.empty(); });
}

void ByteServer::CloseAll()
{
    for (const Connection& connection : m_Connections)
    {
        close(connection.fd);
    }
    m_Connections.clear();
}

void ByteServer::Run()
{
    while (Turn())
    {
    }
}

bool ByteServer::Turn()
{
    std::vector<pollfd> polled{{m_WakeUp, POLLIN, 0}, {m_Listener, POLLIN, 0}};
    std::unique_lock<std::mutex> lock(m_Mutex);
    for (const Connection& connection : m_Connections)
    {
        const int events = POLLIN | (connection.out.empty() ? 0 : POLLOUT);
        polled.push_back({connection.fd, static_cast<short>(events), 0});
    }
    const std::uint64_t generation = m_Generation;
    lock.unlock();
    poll(polled.data(), polled.size(), -1);
    lock.lock();
    eventfd_t count = 0;
    eventfd_read(m_WakeUp, &count);
    if (m_bStopping)
    {
        return false;
    }
    if (generation != m_Generation)
    {
        return true; // the connections that were polled are closed
    }
    for (std::size_t i = 0; i != m_Connections.size(); ++i)
    {
        const int events = polled[i + 2].revents;
        Connection& connection = m_Connections[i];
        if ((events & POLLOUT) != 0)
        {
            Write(connection);
        }
        if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && connection.fd >= 0)
        {
            Read(connection);
        }
    }
    if ((polled[1].revents & POLLIN) != 0)
    {
        Accept();
    }
    m_Connections.erase(std::remove_if(m_Connections.begin(), m_Connections.end(),
                                       [](const Connection& each) { return each.fd < 0; }),
                        m_Connections.end());
    m_Changed.notify_all();
    return true;
}

void ByteServer::Accept()
{
    const int fd = accept4(m_Listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0)
    {
        return;
    }
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ++m_Accepted;
    m_Connections.push_back({fd, "", "", false});
    if (m_Script.speaksFirst)
    {
        Answer(m_Connections.back(), "");
    }
}

void ByteServer::Read(Connection& connection)
{
    char buffer[16384];
    const ssize_t count = read(connection.fd, buffer, sizeof buffer);
    if (count <= 0)
    {
        if (count == 0 || errno != EAGAIN)
        {
            close(std::exchange(connection.fd, -1));
        }
        return;
    }
    connection.in.append(buffer, static_cast<std::size_t>(count));
    for (std::size_t end = 0; connection.fd >= 0 && !connection.ended &&
                              (end = connection.in.find(kHeaderEnd)) != std::string::npos;)
    {
        const std::string request = connection.in.substr(0, end);
        connection.in.erase(0, end + sizeof kHeaderEnd - 1);
        Answer(connection, request);
    }
}

void ByteServer::Answer(Connection& connection, const std::string& request)
{
    std::string answer;
    if (m_Answers < m_Script.answers)
    {
        answer = m_Script.answer(request, m_Answers++);
    }
    connection.out += answer;
    connection.ended = !m_Script.keepsOpen || answer.empty() || m_Answers == m_Script.answers;
    Write(connection);
}

void ByteServer::Write(Connection& connection)
{
    const ssize_t count = send(connection.fd, connection.out.data(), connection.out.size(),
                               MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno != EAGAIN)
    {
        close(std::exchange(connection.fd, -1));
        return;
    }
    connection.out.erase(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (connection.ended && connection.out.empty())
    {
        End(connection);
    }
}

void ByteServer::End(Connection& connection)
{
    switch (m_Script.ending)
    {
    case Ending::Reset:
        Reset(connection.fd);
        close(std::exchange(connection.fd, -1));
        break;
    case Ending::Close:
        close(std::exchange(connection.fd, -1));
        break;
    case Ending::HalfClose:
        shutdown(connection.fd, SHUT_WR);
        break;
    case Ending::Hold:
        break;
    }
}

} // namespace fuzz
