#include "lookup/LoopbackServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test
{

LoopbackServer::LoopbackServer() : m_Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(m_Socket, any, length), 0);
    EXPECT_EQ(listen(m_Socket, 16), 0);
    EXPECT_EQ(getsockname(m_Socket, any, &length), 0);
    m_Url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    m_Thread = std::thread(&LoopbackServer::Serve, this);
}

LoopbackServer::~LoopbackServer()
{
    shutdown(m_Socket, SHUT_RDWR); // ends the accept
    m_Thread.join();
    close(m_Socket);
}

void LoopbackServer::Serve() const
{
    static constexpr char kAnswer[] = "HTTP/1.1 200 OK\r\nConnection: close\r\n"
                                      "Content-Length: 2\r\n\r\nok";
    for (;;)
    {
        const int connection = accept4(m_Socket, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
        {
            return;
        }
        std::string request;
        char buffer[1024];
        while (request.find("\r\n\r\n") == std::string::npos)
        {
            const ssize_t size = recv(connection, buffer, sizeof buffer, 0);
            if (size <= 0)
            {
                break;
            }
            request.append(buffer, static_cast<std::size_t>(size));
        }
        send(connection, kAnswer, sizeof kAnswer - 1, MSG_NOSIGNAL);
        close(connection);
    }
}

} // namespace test
