#include "module/SharedLibrary.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace test
{

SharedLibrary::SharedLibrary(const std::string& path)
    : m_pHandle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    EXPECT_TRUE(IsLoaded()) << dlerror();
}

SharedLibrary::~SharedLibrary()
{
    if (IsLoaded())
    {
        EXPECT_EQ(dlclose(m_pHandle), 0) << dlerror();
    }
}

bool SharedLibrary::IsInProcess(const std::string& path)
{
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr)
    {
        return false;
    }
    dlclose(handle);
    return true;
}

void* SharedLibrary::FindSymbol(const char* symbol) const
{
    void* const found = dlsym(m_pHandle, symbol);
    EXPECT_NE(found, nullptr) << dlerror();
    return found;
}

} // namespace test
