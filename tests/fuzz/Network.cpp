#include "fuzz/Network.h"

#include "fuzz/Check.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace fuzz
{
namespace
{

std::atomic<std::uint16_t> serverPort{0};
std::array<std::atomic<std::uint16_t>, kMaxPieces> pieces;
std::atomic<std::size_t> nextPiece{kMaxPieces};

sockaddr_in LocalAddress(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// The same as an IPv6 socket takes it.
sockaddr_in6 MappedLocalAddress(std::uint16_t port)
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    FUZZ_CHECK(inet_pton(AF_INET6, "::ffff:127.0.0.1", &address.sin6_addr) == 1);
    return address;
}

std::uint16_t Redirected(std::uint16_t port)
{
    return port == ClosedPort() ? port : serverPort.load();
}

} // namespace

void SendConnectionsTo(std::uint16_t port)
{
    serverPort = port;
}

// The port stays bound and is never listened on.
std::uint16_t ClosedPort()
{
    static const std::uint16_t port = []
    {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = LocalAddress(0);
        socklen_t length = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        FUZZ_CHECK(bind(fd, generic, length) == 0);
        FUZZ_CHECK(getsockname(fd, generic, &length) == 0);
        return ntohs(address.sin_port);
    }();
    return port;
}

void CutReads(const std::vector<std::uint16_t>& sizes)
{
    const std::size_t count = std::min(sizes.size(), kMaxPieces);
    nextPiece = kMaxPieces;
    for (std::size_t i = 0; i != count; ++i)
    {
        pieces[kMaxPieces - count + i] = sizes[i];
    }
    nextPiece = kMaxPieces - count;
}

} // namespace fuzz

extern "C"
{
    int __real_connect(int fd, const sockaddr* address, socklen_t length);
    int __real_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** result);
    ssize_t __real_recv(int fd, void* buffer, std::size_t size, int flags);

    int __wrap_connect(int fd, const sockaddr* address, socklen_t length)
    {
        if (address->sa_family == AF_INET)
        {
            sockaddr_in wanted{};
            std::memcpy(&wanted, address, sizeof wanted);
            const sockaddr_in to = fuzz::LocalAddress(fuzz::Redirected(ntohs(wanted.sin_port)));
            return __real_connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        }
        if (address->sa_family == AF_INET6)
        {
            sockaddr_in6 wanted{};
            std::memcpy(&wanted, address, sizeof wanted);
            const sockaddr_in6 to =
                fuzz::MappedLocalAddress(fuzz::Redirected(ntohs(wanted.sin6_port)));
            return __real_connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        }
        return __real_connect(fd, address, length);
    }

    int __wrap_getaddrinfo(const char* /*node*/, const char* service, const addrinfo* hints,
                           addrinfo** result)
    {
        addrinfo numeric = hints != nullptr ? *hints : addrinfo{};
        numeric.ai_family = AF_INET;
        numeric.ai_flags = AI_NUMERICHOST;
        return __real_getaddrinfo("127.0.0.1", service, &numeric, result);
    }

    ssize_t __wrap_recv(int fd, void* buffer, std::size_t size, int flags)
    {
        const std::size_t piece = fuzz::nextPiece;
        if ((flags & MSG_PEEK) != 0 || piece >= fuzz::kMaxPieces)
        {
            return __real_recv(fd, buffer, size, flags);
        }
        const std::size_t limit = std::max<std::size_t>(1, fuzz::pieces[piece]);
        const ssize_t count = __real_recv(fd, buffer, std::min(size, limit), flags);
        if (count > 0)
        {
            fuzz::nextPiece = piece + 1;
        }
        return count;
    }
}
