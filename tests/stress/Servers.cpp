#include "stress/Servers.h"

#include <fstream>
#include <stdexcept>

namespace stress
{

Servers::Servers(const std::string& file)
{
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
    {
        const std::size_t equals = line.find('=');
        m_Values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    if (m_Values.empty())
    {
        throw std::runtime_error("no servers in '" + file + '\'');
    }
}

const std::string& Servers::operator[](const std::string& key) const
{
    const auto found = m_Values.find(key);
    if (found == m_Values.end())
    {
        throw std::runtime_error("no server " + key);
    }
    return found->second;
}

} // namespace stress
