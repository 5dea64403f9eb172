#include "base/base.h"
#include "support/StandardError.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace test
{
namespace
{

using base::IBaseLogInterface;

class CountingLogger : public IBaseLogInterface
{
public:
    explicit CountingLogger(std::atomic<int>& lines) : m_Lines(lines) {}
    void WriteLog(const int*, const long*, const char*, ...) override { ++m_Lines; }

private:
    std::atomic<int>& m_Lines;
};

void WriteLine()
{
    const int level = 0;
    const long threadId = 1;
    IBaseLogInterface::GetLogInstance()->WriteLog(&level, &threadId, "line");
}

class LogInstanceTest : public ::testing::Test
{
protected:
    ~LogInstanceTest() override { IBaseLogInterface::SetLogInstance(nullptr); }

    StandardError m_Stderr;
    std::atomic<int> m_Lines{0};
};

TEST_F(LogInstanceTest, IsNeverEmpty)
{
    EXPECT_NE(IBaseLogInterface::GetLogInstance(), nullptr);
    IBaseLogInterface::SetLogInstance(nullptr);
    EXPECT_NE(IBaseLogInterface::GetLogInstance(), nullptr);
}

TEST_F(LogInstanceTest, IsTheOneThatWasSet)
{
    const auto logger = std::make_shared<CountingLogger>(m_Lines);
    IBaseLogInterface::SetLogInstance(logger);
    EXPECT_EQ(IBaseLogInterface::GetLogInstance(), logger);
    WriteLine();
    EXPECT_EQ(m_Lines, 1);
    EXPECT_TRUE(m_Stderr.Lines().empty());
}

TEST_F(LogInstanceTest, EmptyPointerPutsTheDefaultBack)
{
    const auto before = IBaseLogInterface::GetLogInstance();
    const auto logger = std::make_shared<CountingLogger>(m_Lines);
    IBaseLogInterface::SetLogInstance(logger);
    IBaseLogInterface::SetLogInstance(nullptr);
    EXPECT_EQ(IBaseLogInterface::GetLogInstance(), before);
    EXPECT_EQ(logger.use_count(), 1);
    WriteLine();
    EXPECT_EQ(m_Lines, 0);
    EXPECT_EQ(m_Stderr.Lines(), std::vector<std::string>{"0 1 line"});
}

TEST_F(LogInstanceTest, IsReplacedWhileOthersLog)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 1000;
    std::atomic<int> writing{kThreads};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int line = 0; line < kLines; ++line)
                {
                    WriteLine();
                }
                --writing;
            });
    }
    while (writing > 0)
    {
        IBaseLogInterface::SetLogInstance(std::make_shared<CountingLogger>(m_Lines));
        IBaseLogInterface::SetLogInstance(nullptr);
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    // No line got lost between two loggers.
    EXPECT_EQ(m_Lines + static_cast<int>(m_Stderr.Lines().size()), kThreads * kLines);
}

} // namespace
} // namespace test
