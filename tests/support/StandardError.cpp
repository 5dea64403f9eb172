#include "support/StandardError.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#if defined(_WIN32)
#include <io.h>
#include <process.h>
#else
#include <unistd.h>
#endif

namespace test
{

StandardError::StandardError()
    : m_Path(::testing::TempDir() + "stderr-" + std::to_string(getpid()) + ".txt"),
      m_Before(dup(fileno(stderr)))
{
    std::fflush(stderr);
    std::FILE* const file = std::fopen(m_Path.c_str(), "wb");
    EXPECT_NE(file, nullptr) << m_Path;
    if (file != nullptr)
    {
        dup2(fileno(file), fileno(stderr));
        std::fclose(file);
    }
}

StandardError::~StandardError()
{
    std::fflush(stderr);
    dup2(m_Before, fileno(stderr));
    close(m_Before);
    std::remove(m_Path.c_str());
}

std::vector<std::string> StandardError::Lines() const
{
    std::fflush(stderr);
    std::ifstream file(m_Path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    std::string text = content.str();
    EXPECT_TRUE(text.empty() || text.back() == '\n') << "a line without its end";

    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
    {
        if (!line.empty() && line.back() == '\r')
        {
            line.pop_back(); // the text mode of Windows
        }
        lines.push_back(line);
    }
    return lines;
}

} // namespace test
