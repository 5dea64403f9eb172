#include "support/Transfers.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace test
{

std::string DoneLine(const std::string& url, const CurlResult& result)
{
    return "[HTTP_INTERFACE]" + url + " DONE result[" + std::to_string(result.code) + ":" +
           result.text + "]";
}

std::string UniqueKey()
{
    static std::atomic<int> s_Next{0};
    static const auto s_Process = std::chrono::steady_clock::now().time_since_epoch().count();
    return std::to_string(s_Process) + "-" + std::to_string(s_Next++);
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

} // namespace test
