#include "support/StoppedServer.h"

#include <csignal>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test
{

StoppedServer::StoppedServer() : m_Listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(m_Listener, any, size), 0);
    EXPECT_EQ(listen(m_Listener, SOMAXCONN), 0);
    EXPECT_EQ(getsockname(m_Listener, any, &size), 0);
    m_Port = ntohs(address.sin_port);
    m_Process = fork();
    if (m_Process == 0)
    {
        raise(SIGSTOP);
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(m_Process, &status, WUNTRACED), m_Process);
    EXPECT_TRUE(WIFSTOPPED(status));
    close(m_Listener); // the stopped process holds it
}

StoppedServer::~StoppedServer()
{
    kill(m_Process, SIGKILL);
    waitpid(m_Process, nullptr, 0);
}

} // namespace test
