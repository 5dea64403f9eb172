#include "base/base.h"
#include "support/LogRecorder.h"
#include "support/StandardError.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <thread>

namespace test
{
namespace
{

/// The default logger, writing into a file.
class DefaultLogTest : public ::testing::Test
{
protected:
    ~DefaultLogTest() override { base::IBaseLogInterface::SetDefaultLogLevel(0); }

    template <typename... Args>
    void Write(int level, const char* format, Args... args)
    {
        base::IBaseLogInterface::GetLogInstance()->WriteLog(&level, &m_ThreadId, format, args...);
    }

    const long m_ThreadId = 4711;
    StandardError m_Stderr;
};

TEST_F(DefaultLogTest, LineIsLevelThreadAndText)
{
    Write(60, "[HTTP_INTERFACE]err[%d:%s]", -7, "text");
    Write(0, "[HTTP_INTERFACE]FrameThread Start");
    EXPECT_EQ(m_Stderr.Lines(),
              (std::vector<std::string>{"60 4711 [HTTP_INTERFACE]err[-7:text]",
                                        "0 4711 [HTTP_INTERFACE]FrameThread Start"}));
}

TEST_F(DefaultLogTest, EmptyTextIsALineToo)
{
    Write(20, "%s", "");
    EXPECT_EQ(m_Stderr.Lines(), std::vector<std::string>{"20 4711 "});
}

TEST_F(DefaultLogTest, NegativeIdsAndLevelsAreShown)
{
    const int level = -5;
    const long threadId = -1;
    base::IBaseLogInterface::SetDefaultLogLevel(-10);
    base::IBaseLogInterface::GetLogInstance()->WriteLog(&level, &threadId, "text");
    EXPECT_EQ(m_Stderr.Lines(), std::vector<std::string>{"-5 -1 text"});
}

TEST_F(DefaultLogTest, LinesBelowTheLevelAreDropped)
{
    base::IBaseLogInterface::SetDefaultLogLevel(40);
    Write(0, "debug");
    Write(39, "almost");
    Write(40, "warning");
    Write(60, "error");
    base::IBaseLogInterface::SetDefaultLogLevel(0);
    Write(0, "debug again");
    EXPECT_EQ(m_Stderr.Lines(),
              (std::vector<std::string>{"40 4711 warning", "60 4711 error", "0 4711 debug again"}));
}

// The C runtime of Windows knows no %zu of its own.
TEST_F(DefaultLogTest, SizesAreFormattedOnEveryPlatform)
{
    Write(0, "size[%zu]", std::size_t{0});
    Write(0, "size[%zu] [%d]", std::numeric_limits<std::size_t>::max(), 3);
    Write(40, "[HTTP_INTERFACE]Send len diff [%zu] != [%zu]", std::size_t{1}, std::size_t{1} << 40);
    EXPECT_EQ(
        m_Stderr.Lines(),
        (std::vector<std::string>{"0 4711 size[0]", "0 4711 size[18446744073709551615] [3]",
                                  "40 4711 [HTTP_INTERFACE]Send len diff [1] != [1099511627776]"}));
}

TEST_F(DefaultLogTest, PrecisionBoundsAText)
{
    Write(0, "[HTTP_INTERFACE][TEXT][%zu]%.*s", std::size_t{3}, 3, "abcdef");
    EXPECT_EQ(m_Stderr.Lines(), std::vector<std::string>{"0 4711 [HTTP_INTERFACE][TEXT][3]abc"});
}

TEST_F(DefaultLogTest, LinesOfAnyLengthAreWhole)
{
    std::vector<std::string> expected;
    for (const std::size_t length : {510U, 511U, 512U, 513U, 1024U, 100000U})
    {
        const std::string text(length, 'x');
        Write(0, "%s", text.c_str());
        expected.push_back("0 4711 " + text);
    }
    EXPECT_EQ(m_Stderr.Lines(), expected);
}

TEST_F(DefaultLogTest, LinesOfEightThreadsAreNeverTorn)
{
    constexpr int kThreads = 8;
    constexpr int kLines = 300;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back(
            [i]
            {
                const int level = 20;
                const long threadId = i;
                // Of different lengths, some beyond what one buffer holds.
                const std::string text(static_cast<std::size_t>(i * 200 + 1),
                                       static_cast<char>('a' + i));
                for (int line = 0; line < kLines; ++line)
                {
                    base::IBaseLogInterface::GetLogInstance()->WriteLog(&level, &threadId, "%s",
                                                                        text.c_str());
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    std::map<std::string, int> counts;
    for (const std::string& line : m_Stderr.Lines())
    {
        ++counts[line];
    }
    EXPECT_EQ(counts.size(), static_cast<std::size_t>(kThreads));
    for (int i = 0; i < kThreads; ++i)
    {
        EXPECT_EQ(
            counts["20 " + std::to_string(i) + " " +
                   std::string(static_cast<std::size_t>(i * 200 + 1), static_cast<char>('a' + i))],
            kLines);
    }
}

} // namespace
} // namespace test
