#include "module/SharedLibrary.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace test
{

SharedLibrary::SharedLibrary(const std::string& path) : m_pHandle(LoadLibraryA(path.c_str()))
{
    EXPECT_TRUE(IsLoaded()) << path << ": error " << GetLastError();
}

SharedLibrary::~SharedLibrary()
{
    if (IsLoaded())
    {
        EXPECT_NE(FreeLibrary(static_cast<HMODULE>(m_pHandle)), 0) << "error " << GetLastError();
    }
}

bool SharedLibrary::IsInProcess(const std::string& path)
{
    return GetModuleHandleA(path.c_str()) != nullptr;
}

void* SharedLibrary::FindSymbol(const char* symbol) const
{
    void* const found =
        reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(m_pHandle), symbol));
    EXPECT_NE(found, nullptr) << symbol << ": error " << GetLastError();
    return found;
}

} // namespace test
