#pragma once

#include "stress/Random.h"
#include "stress/Servers.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace stress
{

/// What a transfer carries and has to bring back.
enum class Body
{
    Fixed,      ///< comes: the plan's own text
    EchoHeader, ///< goes: a header line of its own; comes: that line among others
    EchoPost,   ///< goes: a text of its own, as a POST; comes: the same
    EchoUpload, ///< goes: bytes of its own, as an upload; comes: the same
    Store,      ///< goes: a file of the server, always the same
};

/// How an upload ends.
enum class UploadEnd
{
    Whole,
    Short,   ///< before the announced size
    Aborted, ///< by the notice
};

/// One way to use a transfer.
struct TransferPlan
{
    std::string url;
    unsigned weight = 1; ///< how often, among the others
    int result = 0;      ///< that OnFinish has to tell
    long status = 200;   ///< that has to come; 0 for any
    int timeoutMs = 30000;
    int connectTimeoutMs = 30000;
    Body body = Body::Fixed;
    std::shared_ptr<const std::string> fixed = std::make_shared<const std::string>();
    UploadEnd upload = UploadEnd::Whole;
    bool intoFile = false; ///< the body goes into a download file
};

enum class Dialogue
{
    Echo, ///< messages of its own, and back
    Push, ///< the peer sends messages
    Odd,  ///< the peer breaks the protocol; what comes is not looked at
};

/// One way to use a WebSocket.
struct SocketPlan
{
    std::string url;
    unsigned weight = 1;
    Dialogue dialogue = Dialogue::Odd;
    std::size_t size = 0;  ///< of a pushed message
    std::size_t count = 0; ///< of pushed messages
};

/// All of them, for the servers that run.
class Plans
{
public:
    explicit Plans(const Servers& servers);

    const TransferPlan& DrawTransfer(Random& random) const;
    const SocketPlan& DrawSocket(Random& random) const;
    /// A small one that succeeds.
    const TransferPlan& First() const { return m_Transfers.front(); }

    const std::string& CaFile() const { return m_CaFile; }
    const std::string& DavDirectory() const { return m_DavDirectory; }

private:
    void AddGood(const Servers& servers);
    void AddUploads(const Servers& servers);
    void AddFaulty(const Servers& servers);
    void AddSockets(const Servers& servers);

    std::string m_CaFile;
    std::string m_DavDirectory;
    std::vector<TransferPlan> m_Transfers;
    std::vector<SocketPlan> m_Sockets;
};

} // namespace stress
