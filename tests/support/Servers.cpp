#include "support/Servers.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>

namespace test
{

std::string Server(const std::string& key)
{
    const char* const file = std::getenv("HTTP_INTERFACE_TEST_SERVERS");
    if (file == nullptr)
    {
        ADD_FAILURE() << "HTTP_INTERFACE_TEST_SERVERS names no file: run the tests with ctest";
        return "";
    }
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
    {
        if (line.compare(0, key.size() + 1, key + '=') == 0)
        {
            return line.substr(key.size() + 1);
        }
    }
    ADD_FAILURE() << "no " << key << " in " << file;
    return "";
}

} // namespace test
