#include "fuzz/Upgrade.h"

#include "fuzz/Check.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

namespace fuzz
{
namespace
{

const std::string kKeyName = "Sec-WebSocket-Key: ";

std::string AcceptKey(const std::string& key)
{
    const std::string text = key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    unsigned char encoded[64];
    const int length = EVP_EncodeBlock(encoded, digest, sizeof digest);
    return std::string(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(length));
}

} // namespace

bool AsksForUpgrade(const std::string& request)
{
    return request.find(kKeyName) != std::string::npos;
}

std::string Upgrade(const std::string& request)
{
    FUZZ_CHECK(AsksForUpgrade(request));
    const std::size_t start = request.find(kKeyName) + kKeyName.size();
    const std::string key = request.substr(start, request.find("\r\n", start) - start);
    return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
           "Sec-WebSocket-Accept: " +
           AcceptKey(key) + "\r\n\r\n";
}

} // namespace fuzz
