#pragma once

#include <string>
#include <thread>

namespace test
{

/// Answers every connection to a free port of 127.0.0.1 with the body "ok" and
/// closes it: the test servers can't be reached from another network.
class LoopbackServer
{
public:
    LoopbackServer();
    ~LoopbackServer();

    const std::string& Url() const { return m_Url; }

private:
    void Serve() const;

    int m_Socket;
    std::string m_Url;
    std::thread m_Thread;
};

} // namespace test
