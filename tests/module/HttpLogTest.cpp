#include "module/HttpLog.h"

#include "support/LogRecorder.h"

#include <cstdarg>
#include <gtest/gtest.h>
#include <thread>

namespace test
{
namespace
{

using namespace http_interface;

/// Keeps the pointers of the last line as they came, and two of its arguments.
class RawLogger : public base::IBaseLogInterface
{
public:
    void WriteLog(const int* level, const long* threadId, const char* format, ...) override
    {
        m_Level = *level;
        m_ThreadId = *threadId;
        m_Format = format;
        ++m_Lines;
        if (m_HasArguments)
        {
            va_list args;
            va_start(args, format);
            m_Number = va_arg(args, int);
            m_Text = va_arg(args, const char*);
            va_end(args);
        }
    }

    bool m_HasArguments = false;
    int m_Level = -1;
    long m_ThreadId = -1;
    const char* m_Format = nullptr;
    int m_Number = 0;
    const char* m_Text = nullptr;
    int m_Lines = 0;
};

class HttpLogTest : public ::testing::Test
{
protected:
    HttpLogTest() { base::IBaseLogInterface::SetLogInstance(m_pLogger); }
    ~HttpLogTest() override { base::IBaseLogInterface::SetLogInstance(nullptr); }

    const std::shared_ptr<RawLogger> m_pLogger = std::make_shared<RawLogger>();
};

TEST_F(HttpLogTest, LevelsHaveTheHostsValues)
{
    EXPECT_EQ(LOG_LEVEL_DEBUG, 0);
    EXPECT_EQ(LOG_LEVEL_INFO, 20);
    EXPECT_EQ(LOG_LEVEL_WARN, 40);
    EXPECT_EQ(LOG_LEVEL_ERROR, 60);
}

TEST_F(HttpLogTest, FormatWithoutArgumentsReachesTheLoggerAsItIs)
{
    const char* const format = "[HTTP_INTERFACE]FrameThread Start";
    HttpLog(LOG_LEVEL_WARN, format);
    EXPECT_EQ(m_pLogger->m_Lines, 1);
    EXPECT_EQ(m_pLogger->m_Format, format);
    EXPECT_EQ(m_pLogger->m_Level, 40);
    EXPECT_EQ(m_pLogger->m_ThreadId, base::GetTid());
}

TEST_F(HttpLogTest, ArgumentsReachTheLoggerUnformatted)
{
    m_pLogger->m_HasArguments = true;
    const char* const text = "text";
    HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]err[%d:%s]", 7, text);
    EXPECT_STREQ(m_pLogger->m_Format, "[HTTP_INTERFACE]err[%d:%s]");
    EXPECT_EQ(m_pLogger->m_Number, 7);
    EXPECT_EQ(m_pLogger->m_Text, text);
}

TEST_F(HttpLogTest, LineCarriesTheIdOfTheThreadThatWritesIt)
{
    long other = 0;
    std::thread(
        [&]
        {
            other = base::GetTid();
            HttpLog(LOG_LEVEL_DEBUG, "line");
        })
        .join();
    EXPECT_EQ(m_pLogger->m_ThreadId, other);
    EXPECT_NE(other, base::GetTid());
}

TEST_F(HttpLogTest, LoggerIsAskedForAnewForEveryLine)
{
    HttpLog(LOG_LEVEL_DEBUG, "first");
    const auto second = std::make_shared<RawLogger>();
    base::IBaseLogInterface::SetLogInstance(second);
    HttpLog(LOG_LEVEL_DEBUG, "second");
    EXPECT_EQ(m_pLogger->m_Lines, 1);
    EXPECT_EQ(second->m_Lines, 1);
    base::IBaseLogInterface::SetLogInstance(nullptr);
    EXPECT_EQ(second.use_count(), 1);
}

/// Lets go of its place while it writes.
class LeavingLogger : public base::IBaseLogInterface
{
public:
    explicit LeavingLogger(bool& written) : m_Written(written) {}
    void WriteLog(const int*, const long*, const char*, ...) override
    {
        base::IBaseLogInterface::SetLogInstance(nullptr);
        m_Written = !m_Self.expired();
    }

    std::weak_ptr<LeavingLogger> m_Self;

private:
    bool& m_Written;
};

TEST_F(HttpLogTest, LoggerIsHeldUntilItHasWrittenTheLine)
{
    bool written = false;
    std::weak_ptr<LeavingLogger> logger;
    {
        const auto made = std::make_shared<LeavingLogger>(written);
        made->m_Self = made;
        logger = made;
        base::IBaseLogInterface::SetLogInstance(made);
    }
    HttpLog(LOG_LEVEL_DEBUG, "line");
    EXPECT_TRUE(written);
    EXPECT_TRUE(logger.expired());
}

} // namespace
} // namespace test
