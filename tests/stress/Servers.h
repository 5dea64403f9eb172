#pragma once

#include <map>
#include <string>

namespace stress
{

/// What the local test servers announced, by key.
class Servers
{
public:
    /// Reads the file of lines KEY=VALUE; throws std::runtime_error without it.
    explicit Servers(const std::string& file);

    /// Throws std::runtime_error for a key that is not there.
    const std::string& operator[](const std::string& key) const;

private:
    std::map<std::string, std::string> m_Values;
};

} // namespace stress
