#pragma once

/// What stands between libcurl and the network. Fuzzed URLs must reach nobody:
/// every name resolves to this machine, and every connection goes to the one
/// server of the program, whatever address it was meant for. Received bytes
/// come in pieces of chosen sizes, the same ones each time an input is run.

#include <cstdint>
#include <vector>

namespace fuzz
{

/// Where connections go from now on.
void SendConnectionsTo(std::uint16_t port);

/// A port of this machine on which nobody listens; connections to it are not
/// redirected but refused.
std::uint16_t ClosedPort();

/// The most that each of libcurl's next reads gets; those after them get what
/// there is. Only the first kMaxPieces count.
void CutReads(const std::vector<std::uint16_t>& sizes);
constexpr std::size_t kMaxPieces = 64;

} // namespace fuzz
