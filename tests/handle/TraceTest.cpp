// The lines that EnableVerbose adds, of whole requests.

#include "support/EngineTest.h"
#include "support/Servers.h"

#include <algorithm>
#include <cstdio>

namespace test
{
namespace
{

const std::string kHello = "hello from nginx\n";

class TraceTest : public EngineTest
{
protected:
    /// Runs a traced request, deletes it and stops the engine.
    void RunTraced(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        ASSERT_EQ(handle->EnableVerbose(), 0);
        StartEngine();
        OnLoop([&] { m_LoopThread = base::GetTid(); });
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        Delete(handle);
        StopEngine();
    }

    /// The lines of one kind, which all are debug lines of the loop thread.
    std::vector<LogLine> Lines(const std::string& kind)
    {
        std::vector<LogLine> lines;
        for (const LogLine& line : m_Log.Lines())
        {
            if (line.format.find("][" + kind + "][") != std::string::npos)
            {
                EXPECT_EQ(line.level, kDebug);
                EXPECT_EQ(line.threadId, m_LoopThread);
                lines.push_back(line);
            }
        }
        return lines;
    }

    static std::string Line(const std::string& kind, const std::string& text)
    {
        return "[HTTP_INTERFACE][" + kind + "][" + std::to_string(text.size()) + "]" + text;
    }

    /// The texts of the lines of one kind.
    std::vector<std::string> Texts(const std::string& kind)
    {
        std::vector<std::string> texts;
        for (const LogLine& line : Lines(kind))
        {
            texts.push_back(line.text);
        }
        return texts;
    }

    /// Of the one line with outgoing headers, which has the size where a
    /// pointer belongs, what follows the user pointer.
    std::string HeaderOut()
    {
        const std::vector<LogLine> lines = Lines("HEADER_OUT");
        EXPECT_EQ(lines.size(), 1u);
        if (lines.empty())
        {
            return "";
        }
        EXPECT_EQ(lines[0].format, "[HTTP_INTERFACE][HEADER_OUT][%zu] [%p] %.*s");
        const std::string prefix = "[HTTP_INTERFACE][HEADER_OUT][";
        EXPECT_EQ(lines[0].text.compare(0, prefix.size(), prefix), 0);
        const std::size_t end = lines[0].text.find(']', prefix.size());
        const std::string pointer = lines[0].text.substr(prefix.size(), end - prefix.size());
        EXPECT_TRUE(std::all_of(pointer.begin(), pointer.end(),
                                [](char c) { return c >= '0' && c <= '9'; }))
            << pointer;
        return lines[0].text.substr(end);
    }

    static std::string ExpectedHeaderOut(const std::string& head)
    {
        char size[40];
        std::snprintf(size, sizeof size, "] [%p] ", reinterpret_cast<void*>(head.size()));
        return size + head;
    }

    long m_LoopThread = 0;
};

TEST_F(TraceTest, OfAnHttpsRequestTellsEveryKindOfData)
{
    const std::string server = Server("HTTPS_URL");
    const auto handle = MakeHandle(server + "/hello");
    ASSERT_EQ(handle->SetCaCert(Server("CA_FILE").c_str()), 0);
    RunTraced(handle);

    EXPECT_EQ(HeaderOut(), ExpectedHeaderOut("GET /hello HTTP/1.1\r\nHost: " + server.substr(8) +
                                             "\r\nAccept: */*\r\n\r\n"));
    const std::vector<std::string> headers = Texts("HEADER_IN");
    ASSERT_GE(headers.size(), 3u);
    EXPECT_EQ(headers.front(), Line("HEADER_IN", "HTTP/1.1 200 OK\r\n"));
    EXPECT_NE(
        std::find(headers.begin(), headers.end(), Line("HEADER_IN", "Content-Length: 17\r\n")),
        headers.end());
    EXPECT_EQ(headers.back(), Line("HEADER_IN", "\r\n"));
    EXPECT_EQ(Texts("DATA_IN"), std::vector<std::string>{Line("DATA_IN", kHello)});
    EXPECT_TRUE(Lines("DATA_OUT").empty());
    EXPECT_FALSE(Lines("SSL_DATA_IN").empty());
    EXPECT_FALSE(Lines("SSL_DATA_OUT").empty());
    EXPECT_EQ(Lines("SSL_DATA_IN").front().format, "[HTTP_INTERFACE][SSL_DATA_IN][%zu]%.*s");
    EXPECT_EQ(Lines("SSL_DATA_OUT").front().format, "[HTTP_INTERFACE][SSL_DATA_OUT][%zu]%.*s");

    const std::vector<std::string> texts = Texts("TEXT");
    ASSERT_FALSE(texts.empty());
    for (const std::string& text : texts)
    {
        const std::size_t end = text.find(']', text.find("[TEXT][") + 7);
        EXPECT_EQ(text, Line("TEXT", text.substr(end + 1))); // the size is that of the text
    }
    EXPECT_TRUE(std::any_of(texts.begin(), texts.end(),
                            [](const std::string& text)
                            { return text.find("TLSv1.3") != std::string::npos; }));
}

TEST_F(TraceTest, ComesInTheOrderOfTheTransfer)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    RunTraced(handle);
    std::vector<std::string> kinds;
    for (const LogLine& line : m_Log.Lines())
    {
        for (const char* const kind : {"HEADER_OUT", "HEADER_IN", "DATA_IN"})
        {
            if (line.format.find(std::string("[") + kind + "]") != std::string::npos &&
                (kinds.empty() || kinds.back() != kind))
            {
                kinds.push_back(kind);
            }
        }
    }
    EXPECT_EQ(kinds, (std::vector<std::string>{"HEADER_OUT", "HEADER_IN", "DATA_IN"}));
    EXPECT_TRUE(Lines("SSL_DATA_IN").empty());
    EXPECT_TRUE(Lines("SSL_DATA_OUT").empty());
}

TEST_F(TraceTest, OfAPostTellsTheBody)
{
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/post-echo", kPost);
    ASSERT_EQ(handle->SetPostFields("the body"), 0);
    RunTraced(handle);
    EXPECT_EQ(Texts("DATA_OUT"), std::vector<std::string>{Line("DATA_OUT", "the body")});
    EXPECT_EQ(Texts("DATA_IN"), std::vector<std::string>{Line("DATA_IN", "the body")});
}

TEST_F(TraceTest, IsOffUnlessItIsEnabled)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    Delete(handle);
    StopEngine();
    for (const char* const kind : {"TEXT", "HEADER_IN", "HEADER_OUT", "DATA_IN", "DATA_OUT"})
    {
        EXPECT_TRUE(Lines(kind).empty()) << kind;
    }
}

} // namespace
} // namespace test
