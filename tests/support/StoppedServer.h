#pragma once

#include <string>

namespace test
{

/// A server process that is stopped, as a debugger or SIGSTOP would: the system
/// goes on to accept connections and bytes for it, and nothing ever answers.
/// Linux only. To be made before any engine starts, since it forks.
class StoppedServer
{
public:
    StoppedServer();
    ~StoppedServer();
    StoppedServer(const StoppedServer&) = delete;
    StoppedServer& operator=(const StoppedServer&) = delete;

    /// 127.0.0.1 and its port.
    std::string Host() const { return "127.0.0.1:" + std::to_string(m_Port); }

private:
    int m_Listener = -1;
    int m_Process = -1;
    int m_Port = 0;
};

} // namespace test
