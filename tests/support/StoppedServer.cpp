#include "support/StoppedServer.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
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
    const pid_t parent = getpid();
    m_Process = fork();
    if (m_Process == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent)
        {
            raise(SIGSTOP);
        }
        _exit(0);
    }
    if (m_Process < 0)
    {
        const int error = errno;
        close(m_Listener);
        throw std::system_error(error, std::generic_category(), "fork");
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
