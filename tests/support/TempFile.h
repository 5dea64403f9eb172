#pragma once

#include "support/Transfers.h"

#include <filesystem>
#include <string>

namespace test
{

/// A path of its own in the folder for temporary files; the file, should the
/// test make one, goes with it.
class TempFile
{
public:
    TempFile() : m_Path(std::filesystem::temp_directory_path() / ("http_interface_" + UniqueKey()))
    {
    }
    ~TempFile()
    {
        std::error_code ignored;
        std::filesystem::remove(m_Path, ignored);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    std::string Path() const { return m_Path.string(); }
    bool Exists() const { return std::filesystem::exists(m_Path); }

private:
    std::filesystem::path m_Path;
};

} // namespace test
