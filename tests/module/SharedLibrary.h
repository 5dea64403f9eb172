#pragma once

#include <string>

namespace test
{

/// One load of a shared library, by its path.
class SharedLibrary
{
public:
    /// Fails the test when the library can't be loaded.
    explicit SharedLibrary(const std::string& path);
    ~SharedLibrary(); ///< unloads it
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    bool IsLoaded() const { return m_pHandle != nullptr; }

    /// An exported function, by its symbol; fails the test when there is none.
    template <typename Function>
    Function* Find(const char* symbol) const
    {
        return reinterpret_cast<Function*>(FindSymbol(symbol));
    }

    /// Whether the process holds the library, by whatever load.
    static bool IsInProcess(const std::string& path);

private:
    void* FindSymbol(const char* symbol) const;

    void* m_pHandle;
};

} // namespace test
