#include "module/LibraryEntry.h"
#include "module/Platform.h"

#include <cerrno>

namespace http_interface
{
namespace
{

__attribute__((constructor)) void OnLoad()
{
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
