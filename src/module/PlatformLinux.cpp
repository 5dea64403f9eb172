#include "module/LibraryEntry.h"
#include "module/Platform.h"

#include <cerrno>
#include <openssl/crypto.h>

namespace http_interface
{
namespace
{

// The system's OpenSSL would take itself apart in exit(), under the feet of a
// loop thread that a host has not stopped. What it keeps goes with the process.
__attribute__((constructor)) void OnLoad()
{
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    OnLibraryLoad();
}

__attribute__((destructor)) void OnUnload()
{
    OnLibraryUnload();
}

} // namespace

namespace platform
{

// The system's OpenSSL is a shared library and notices threads ending.
void OnLoopThreadEnd() {}

int OpenFile(std::FILE** file, const char* path, const char* mode)
{
    *file = std::fopen(path, mode);
    return *file != nullptr ? 0 : errno;
}

} // namespace platform
} // namespace http_interface
