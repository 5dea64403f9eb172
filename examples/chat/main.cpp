// Talks to a peer that greets and answers what it is told, such as an echo:
// says each text once the one before was answered. Whenever a heartbeat passes
// without a word from the peer, or the peer closes, it connects anew and goes
// on with the text that was not answered.
//
//   chat [--ca FILE] [--beat MS] URL TEXT...

#include "Connection.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <stdexcept>

namespace
{

constexpr int kMostConnections = 5;
constexpr int kMostBeats = 60; ///< of one connection: nothing here goes on for ever
constexpr const char* kHeartbeat = "heartbeat";

/// Talks until no text is left, or until the connection is of no use any more.
void Talk(Connection& connection, std::deque<std::string>& texts)
{
    bool greeted = false;
    bool heard = false; // since the last beat
    for (int beats = 0; beats < kMostBeats && !texts.empty();)
    {
        const ChatNotic::Event event = connection.Next();
        if (event.kind == ChatNotic::Kind::kClose)
        {
            std::printf("chat     closed by the peer: %s\n", event.text.c_str());
            return;
        }
        if (event.kind == ChatNotic::Kind::kBeat)
        {
            if (!heard)
            {
                std::printf("chat     nothing heard since the last heartbeat\n");
                return;
            }
            heard = false;
            ++beats;
            connection.Say(kHeartbeat);
            continue;
        }
        heard = true;
        std::printf("chat     < %s\n", event.text.c_str());
        if (event.text == kHeartbeat)
        {
            continue;
        }
        if (greeted)
        {
            texts.pop_front();
        }
        greeted = true; // only now the connection is known to be open
        if (!texts.empty())
        {
            std::printf("chat     > %s\n", texts.front().c_str());
            connection.Say(texts.front());
        }
    }
    connection.Leave();
}

} // namespace

int main(int argc, char** argv)
{
    const char* caFile = nullptr;
    int beatMs = 1000;
    int first = 1;
    for (; first + 1 < argc && std::strncmp(argv[first], "--", 2) == 0; first += 2)
    {
        if (std::strcmp(argv[first], "--ca") == 0)
        {
            caFile = argv[first + 1];
        }
        else if (std::strcmp(argv[first], "--beat") == 0)
        {
            beatMs = std::atoi(argv[first + 1]);
        }
        else
        {
            first = argc;
        }
    }
    if (first + 1 >= argc || beatMs < 1)
    {
        std::fprintf(stderr, "usage: chat [--ca FILE] [--beat MS] URL TEXT...\n");
        return 2;
    }
    std::deque<std::string> texts(argv + first + 1, argv + argc);

    Session session;
    if (!session.Start())
    {
        return 1;
    }
    for (int made = 0; made != kMostConnections && !texts.empty(); ++made)
    {
        std::printf("chat     connecting to %s\n", argv[first]);
        Connection connection(session, argv[first], caFile, beatMs);
        Talk(connection, texts);
    }
    return session.Close() && texts.empty() ? 0 : 1;
}
