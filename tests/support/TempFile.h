#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

namespace test
{

/// A path of its own in the folder for temporary files; the file, should the
/// test make one, goes with it.
class TempFile
{
public:
    TempFile()
        : m_Path(std::filesystem::temp_directory_path() /
                 ("http_interface_" + std::to_string(std::random_device{}())))
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

/// All bytes of a file; empty when there is none.
inline std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

} // namespace test
