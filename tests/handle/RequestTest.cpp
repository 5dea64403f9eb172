// Bodies of POSTs and header lines as the server sees them.

#include "support/EngineTest.h"
#include "support/Servers.h"

#include <algorithm>
#include <sstream>

namespace test
{
namespace
{

class RequestTest : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }

    /// Runs a request, deletes it and returns the body of the response.
    std::string Answer(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        EXPECT_EQ(handle->GetResponseCode(), 200);
        Delete(handle);
        return handle->GetResponse();
    }

    std::string Echo(const std::string& body)
    {
        const auto handle = MakeHandle(Server("HOSTILE_URL") + "/post-echo", kPost);
        EXPECT_EQ(handle->SetPostFields(body.c_str()), 0);
        return Answer(handle);
    }

    /// The header lines that the server got, without the request line.
    std::vector<std::string> HeaderLines(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        std::istringstream head(Answer(handle));
        std::vector<std::string> lines;
        std::string line;
        std::getline(head, line);
        while (std::getline(head, line) && line != "\r")
        {
            EXPECT_EQ(line.back(), '\r');
            lines.push_back(line.substr(0, line.size() - 1));
        }
        return lines;
    }

    /// Those of them that begin so.
    std::vector<std::string> HeaderLines(const std::shared_ptr<IHttpHandleInterface>& handle,
                                         const std::string& prefix)
    {
        std::vector<std::string> lines = HeaderLines(handle);
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [&](const std::string& line)
                                   { return line.compare(0, prefix.size(), prefix) != 0; }),
                    lines.end());
        return lines;
    }

    /// The JSON of httpbin, without the blanks that some versions have.
    std::string AnswerOfHttpbin(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        std::string json = Answer(handle);
        for (std::size_t at = 0; (at = json.find("\": ", at)) != std::string::npos;)
        {
            json.erase(at + 2, 1);
        }
        return json;
    }

    std::string m_Headers = Server("HOSTILE_URL") + "/headers";
};

TEST_F(RequestTest, PostFieldsArriveByteForByte)
{
    std::string everything;
    for (int byte = 1; byte < 256; ++byte)
    {
        everything += static_cast<char>(byte);
    }
    EXPECT_EQ(Echo("key=value&other=1"), "key=value&other=1");
    EXPECT_EQ(Echo(everything), everything);
    EXPECT_EQ(Echo(""), "");
}

TEST_F(RequestTest, LongPostFieldsArriveByteForByte)
{
    std::string body;
    for (int number = 0; body.size() < (3u << 20); ++number)
    {
        body += std::to_string(number) + '\n';
    }
    EXPECT_TRUE(Echo(body) == body); // no dump of megabytes
}

TEST_F(RequestTest, PostFieldsEndAtTheFirstZero)
{
    EXPECT_EQ(Echo(std::string("seen\0unseen", 11)), "seen");
}

TEST_F(RequestTest, PostFieldsAreCopied)
{
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/post-echo", kPost);
    std::string body = "as it was";
    ASSERT_EQ(handle->SetPostFields(body.c_str()), 0);
    body.assign("different");
    EXPECT_EQ(Answer(handle), "as it was");
}

TEST_F(RequestTest, SecondPostFieldsReplaceTheFirst)
{
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/post-echo", kPost);
    ASSERT_EQ(handle->SetPostFields("a first body that is a good deal longer"), 0);
    ASSERT_EQ(handle->SetPostFields("second"), 0);
    EXPECT_EQ(Answer(handle), "second");
}

TEST_F(RequestTest, PostWithoutFieldsHasAnEmptyBody)
{
    const auto handle = MakeHandle(m_Headers, kPost);
    EXPECT_EQ(HeaderLines(handle, "Content-Length:"),
              std::vector<std::string>{"Content-Length: 0"});
    EXPECT_EQ(Answer(MakeHandle(Server("HOSTILE_URL") + "/post-echo", kPost)), "");
}

TEST_F(RequestTest, PostThatIsAddedAgainSendsItsBodyAgain)
{
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/post-echo", kPost);
    ASSERT_EQ(handle->SetPostFields("body "), 0);
    Run(handle);
    EXPECT_EQ(Answer(handle), "body body ");
}

TEST_F(RequestTest, AnotherServerSeesTheSameBody)
{
    const auto handle = MakeHandle(Server("HTTPBIN_URL") + "/anything", kPost);
    const std::list<std::string> type{"Content-Type: text/plain"};
    ASSERT_EQ(handle->SetHeaders(&type), 0);
    ASSERT_EQ(handle->SetPostFields("a body for httpbin"), 0);
    const std::string answer = AnswerOfHttpbin(handle);
    EXPECT_NE(answer.find("\"data\":\"a body for httpbin\""), std::string::npos) << answer;
    EXPECT_NE(answer.find("\"method\":\"POST\""), std::string::npos) << answer;
}

TEST_F(RequestTest, FieldsOfAFormArriveAsSuch)
{
    const auto handle = MakeHandle(Server("HTTPBIN_URL") + "/post", kPost);
    ASSERT_EQ(handle->SetPostFields("name=some+value"), 0);
    const std::string answer = AnswerOfHttpbin(handle);
    EXPECT_NE(answer.find("\"name\":\"some value\""), std::string::npos) << answer;
}

TEST_F(RequestTest, HeaderLinesArriveInOrderAndCallsAddUp)
{
    const auto handle = MakeHandle(m_Headers);
    const std::list<std::string> first{"X-One: 1", "X-Two: two words"};
    const std::list<std::string> second{"X-Three: 3"};
    ASSERT_EQ(handle->SetHeaders(&first), 0);
    ASSERT_EQ(handle->SetHeaders(&second), 0);
    EXPECT_EQ(HeaderLines(handle, "X-"),
              (std::vector<std::string>{"X-One: 1", "X-Two: two words", "X-Three: 3"}));
}

TEST_F(RequestTest, HeaderLinesAreCopied)
{
    const auto handle = MakeHandle(m_Headers);
    {
        const std::list<std::string> lines{"X-Copied: yes"};
        ASSERT_EQ(handle->SetHeaders(&lines), 0);
    }
    EXPECT_EQ(HeaderLines(handle, "X-"), std::vector<std::string>{"X-Copied: yes"});
}

TEST_F(RequestTest, RepeatedHeaderNamesAreSentEachTime)
{
    const auto handle = MakeHandle(m_Headers);
    const std::list<std::string> lines{"X-Same: 1", "X-Same: 2", "X-Same: 1"};
    ASSERT_EQ(handle->SetHeaders(&lines), 0);
    EXPECT_EQ(HeaderLines(handle, "X-"),
              (std::vector<std::string>{"X-Same: 1", "X-Same: 2", "X-Same: 1"}));
}

TEST_F(RequestTest, HeaderWithASemicolonHasAnEmptyValue)
{
    const auto handle = MakeHandle(m_Headers);
    const std::list<std::string> lines{"X-Empty;", "X-Absent:"};
    ASSERT_EQ(handle->SetHeaders(&lines), 0);
    EXPECT_EQ(HeaderLines(handle, "X-"), std::vector<std::string>{"X-Empty:"});
}

TEST_F(RequestTest, HeaderOfLibcurlIsReplacedOrRemoved)
{
    const auto replaced = MakeHandle(m_Headers);
    const std::list<std::string> accept{"Accept: text/html"};
    ASSERT_EQ(replaced->SetHeaders(&accept), 0);
    EXPECT_EQ(HeaderLines(replaced, "Accept"), std::vector<std::string>{"Accept: text/html"});

    const auto removed = MakeHandle(m_Headers);
    const std::list<std::string> none{"Accept:"};
    ASSERT_EQ(removed->SetHeaders(&none), 0);
    EXPECT_TRUE(HeaderLines(removed, "Accept").empty());
}

TEST_F(RequestTest, WithoutHeadersOnlyThoseOfLibcurlAreSent)
{
    const std::vector<std::string> lines = HeaderLines(MakeHandle(m_Headers));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Host: " + Server("HOSTILE_URL").substr(7));
    EXPECT_EQ(lines[1], "Accept: */*");
}

} // namespace
} // namespace test
