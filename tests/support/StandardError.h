#pragma once

#include <string>
#include <vector>

namespace test
{

/// Sends the process's standard error into a file, from construction to
/// destruction.
class StandardError
{
public:
    StandardError();
    ~StandardError();
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;

    /// What was written so far, line by line. Every line must be ended.
    std::vector<std::string> Lines() const;

private:
    std::string m_Path;
    int m_Before; ///< descriptor of the earlier standard error
};

} // namespace test
