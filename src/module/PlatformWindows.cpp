#include "module/LibraryEntry.h"
#include "module/Platform.h"

#include <openssl/crypto.h>
#include <windows.h>

/// The loader's notifications. A null reserved pointer on detach means that
/// the library is really unloaded and the process goes on, so that what the
/// static OpenSSL allocated has to go too; at process exit the system takes
/// everything back.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        http_interface::OnLibraryLoad();
    }
    else if (reason == DLL_PROCESS_DETACH)
    {
        http_interface::OnLibraryUnload();
        if (reserved == nullptr)
        {
            OPENSSL_cleanup();
        }
    }
    return TRUE;
}

namespace http_interface::platform
{

// A static OpenSSL is not told of ending threads.
void OnLoopThreadEnd()
{
    OPENSSL_thread_stop();
}

int OpenFile(std::FILE** file, const char* path, const char* mode)
{
    return fopen_s(file, path, mode);
}

} // namespace http_interface::platform
