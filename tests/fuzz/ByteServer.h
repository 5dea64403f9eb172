#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fuzz
{

/// A server on 127.0.0.1 that answers requests with whatever bytes it is told
/// to, on a thread of its own. Requests are told apart by the empty line behind
/// their header.
class ByteServer
{
public:
    /// What becomes of a connection after its last answer.
    enum class Ending
    {
        Close,
        HalfClose, ///< nothing is sent any more, but read until the peer closes
        Reset,
        Hold, ///< open and silent
    };

    struct Script
    {
        /// Makes the answer to the given request. Called on the server's
        /// thread, at most `answers` times, whatever the connection.
        std::function<std::string(const std::string& request, std::size_t number)> answer;
        std::size_t answers = 1;
        bool keepsOpen = false;   ///< more than one answer on a connection, until an empty one
        bool speaksFirst = false; ///< the first answer does not wait for a request
        Ending ending = Ending::Close;
    };

    ByteServer();
    ~ByteServer();
    ByteServer(const ByteServer&) = delete;
    ByteServer& operator=(const ByteServer&) = delete;

    std::uint16_t Port() const { return m_Port; }

    /// Closes every connection and answers new ones as the script says.
    void Play(Script script);
    /// Closes every connection, and new ones once they have said something.
    void Rest();

    /// Waits until every peer of this script has closed its connection, at
    /// least one; false when they have not within the limit.
    bool WaitUntilLeft();

private:
    struct Connection
    {
        int fd;
        std::string in;
        std::string out;
        bool ended; ///< no more answers
    };

    void Run();
    bool Turn();
    void Accept();
    void Read(Connection& connection);
    void Answer(Connection& connection, const std::string& request);
    void Write(Connection& connection);
    void End(Connection& connection);
    void CloseAll();

    int m_Listener = -1;
    int m_WakeUp = -1;
    std::uint16_t m_Port = 0;

    std::mutex m_Mutex; ///< guards what follows
    std::condition_variable m_Changed;
    Script m_Script;
    std::size_t m_Answers = 0;
    std::size_t m_Accepted = 0;
    std::vector<Connection> m_Connections;
    std::uint64_t m_Generation = 0; ///< counts the scripts
    bool m_bStopping = false;
    std::thread m_Thread;
};

} // namespace fuzz
