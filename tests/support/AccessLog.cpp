#include "support/AccessLog.h"

#include "support/Event.h"
#include "support/Servers.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

namespace test
{
namespace
{

/// The value of a key in a line of flat JSON; empty when there is none.
std::string Value(const std::string& line, const std::string& key)
{
    const std::string prefix = '"' + key + "\":";
    std::size_t begin = line.find(prefix);
    if (begin == std::string::npos)
    {
        return "";
    }
    begin += prefix.size();
    const bool quoted = line[begin] == '"';
    begin += quoted ? 1 : 0;
    return line.substr(begin, line.find_first_of(quoted ? "\"" : ",}", begin) - begin);
}

std::vector<Access> Accesses(const std::string& uri)
{
    std::ifstream log(Server("ACCESS_LOG"));
    std::vector<Access> accesses;
    for (std::string line; std::getline(log, line);)
    {
        if (Value(line, "uri") == uri)
        {
            accesses.push_back({Value(line, "connection"), Value(line, "protocol"),
                                Value(line, "tls"), Value(line, "method"), Value(line, "status")});
        }
    }
    return accesses;
}

} // namespace

std::vector<Access> WaitForAccesses(const std::string& uri, std::size_t count)
{
    const auto end = std::chrono::steady_clock::now() + kLimit;
    std::vector<Access> accesses = Accesses(uri);
    while (accesses.size() < count && std::chrono::steady_clock::now() < end)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        accesses = Accesses(uri);
    }
    EXPECT_EQ(accesses.size(), count) << uri;
    return accesses;
}

} // namespace test
