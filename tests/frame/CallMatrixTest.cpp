/// Every call of the public interface from every place where the library calls
/// the host. The tables say how each is answered; docs/threads-and-notices.md
/// shows them to hosts.

#include "frame/CallMatrixFixture.h"
#include "support/Transfers.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <ostream>
#include <sstream>

namespace test
{
namespace
{

using Matrix = CallMatrixFixture;

struct Row
{
    const char* call;
    Matrix::Subject subject;
    Matrix::Call make;
    std::vector<const char*> answers; ///< a column each; null for a call that is not to be made
};

struct Column
{
    const char* title;
    std::vector<Matrix::Place> places; ///< they answer alike
};

struct Table
{
    const char* title;
    std::vector<Column> columns;
    std::vector<Row> rows;
};

const std::vector<Table>& Tables()
{
    static const std::vector<Table> tables = {
        {"Calls on the engine, other requests and other timers",
         {{"outside libcurl",
           {&Matrix::InOnFinish, &Matrix::InOnTimer, &Matrix::InOnClose, &Matrix::InAddCompletion,
            &Matrix::InDeleteCompletion, &Matrix::InTimersAddCompletion,
            &Matrix::InTimersDeleteCompletion, &Matrix::InTimersStopCompletion,
            &Matrix::InTimersAgainCompletion}},
          {"inside libcurl", {&Matrix::InOnWsData, &Matrix::InOnProgress, &Matrix::InOnReadData}},
          {"cancelled add", {&Matrix::InCancelledAdd, &Matrix::InTimersCancelledAdd}},
          {"`OnHttpFrameStop`", {&Matrix::InOnHttpFrameStop}}},
         {
             {"`Init`", Matrix::kNobody, &Matrix::Init, {"-1", "-1", "-1", "-1"}},
             {"`Start(false)`", Matrix::kNobody, &Matrix::StartAndReturn, {"0", "0", "0", "0"}},
             {"`Start(true)`", Matrix::kNobody, &Matrix::StartAndWait, {"0", "0", "0", "0"}},
             {"`Stop(false)`", Matrix::kNobody, &Matrix::StopAtOnce, {"0", "0, e", "-1", "-1"}},
             {"`Stop(true)`", Matrix::kNobody, &Matrix::StopLater, {"0", "0", "-1", "-1"}},
             {"`AddHttpReq` at once",
              Matrix::kNewRequest,
              &Matrix::AddHttpAtOnce,
              {"0, done 0", "-1, done -1, f", "-1, a", "-1, a"}},
             {"`AddHttpReq` queued",
              Matrix::kNewRequest,
              &Matrix::AddHttpQueued,
              {"0, later 0", "0, later 0", "-1, a", "-1, a"}},
             {"`DelHttpReq` at once",
              Matrix::kRequestInFlight,
              &Matrix::DelHttpAtOnce,
              {"0, done 0", "-1, done -1, e", "0, done 0", "0, done 0"}},
             {"`DelHttpReq` queued",
              Matrix::kRequestInFlight,
              &Matrix::DelHttpQueued,
              {"0, later 0", "0, later 0", "-1", "-1"}},
             {"`AddTimerReq` at once",
              Matrix::kNewTimer,
              &Matrix::AddTimerAtOnce,
              {"0, done 0", "0, done 0", "-1, b", "-1, b"}},
             {"`AddTimerReq` queued",
              Matrix::kNewTimer,
              &Matrix::AddTimerQueued,
              {"0, later 0", "0, later 0", "-1, b", "-1, b"}},
             {"`DelTimerReq` at once",
              Matrix::kRunningTimer,
              &Matrix::DelTimerAtOnce,
              {"0, done 0", "0, done 0", "0, done 0", "0, done 0"}},
             {"`DelTimerReq` queued",
              Matrix::kRunningTimer,
              &Matrix::DelTimerQueued,
              {"0, later 0", "0, later 0", "-1", "-1"}},
             {"`InitRequest`", Matrix::kUninitialised, &Matrix::InitRequest, {"0", "0", "0", "0"}},
             {"`SetPostFields`", Matrix::kNewPost, &Matrix::SetPostFields, {"0", "0", "0", "0"}},
             {"`SetUploadSize`", Matrix::kNewUpload, &Matrix::SetUploadSize, {"0", "0", "0", "0"}},
             {"the other options", Matrix::kNewRequest, &Matrix::SetOptions, {"0", "0", "0", "0"}},
             {"`GetResponse` of a finished one, its size",
              Matrix::kFinishedRequest,
              &Matrix::GetResponse,
              {"17", "17", "17", "17"}},
             {"`GetResponseCode` of a finished one",
              Matrix::kFinishedRequest,
              &Matrix::GetResponseCode,
              {"200", "200", "200", "200"}},
             {"`Disconnect`",
              Matrix::kRequestInFlight,
              &Matrix::Disconnect,
              {"0, d", "-1, d, e", "-1, c", "-1, c"}},
             {"`SendWsData`",
              Matrix::kOpenWebSocket,
              &Matrix::SendWsData,
              {"0", "0", "-1, c", "-1, c"}},
             {"`StopTimer`",
              Matrix::kRunningTimer,
              &Matrix::StopTimer,
              {"0, done 0", "0, done 0", "-1, c", "-1, c"}},
             {"`AgainTimer`",
              Matrix::kRunningTimer,
              &Matrix::AgainTimer,
              {"0, done 0", "0, done 0", "-1, c", "-1, c"}},
         }},
        {"Calls on the request that the notice or completion tells of",
         {{"`OnFinish`", {&Matrix::InOnFinish}},
          {"`OnWsData`", {&Matrix::InOnWsData}},
          {"`OnProgress`, `OnReadData`", {&Matrix::InOnProgress, &Matrix::InOnReadData}},
          {"its add", {&Matrix::InAddCompletion}},
          {"its delete", {&Matrix::InDeleteCompletion}},
          {"its cancelled add", {&Matrix::InCancelledAdd}}},
         {
             {"`AddHttpReq` at once",
              Matrix::kOwn,
              &Matrix::AddHttpAtOnce,
              {"0, done 0", "-1, done -1, f", "-1, done -1, f", "-1, done -1, g", "0, done 0",
               "-1, a"}},
             {"`AddHttpReq` queued",
              Matrix::kOwn,
              &Matrix::AddHttpQueued,
              {"0, later 0", "0, later -1, g", "0, later -1, g", "0, later -1, g", "0, later -1, h",
               "-1, a"}},
             {"`DelHttpReq` at once",
              Matrix::kOwn,
              &Matrix::DelHttpAtOnce,
              {"0, done 0", "-1, done -1, e", "-1, done -1, e", "0, done 0", "0, done 0",
               "0, done 0"}},
             {"`DelHttpReq` queued",
              Matrix::kOwn,
              &Matrix::DelHttpQueued,
              {"0, later 0", "0, later 0", "0, later 0", "0, later 0", "0, later -1, i", "-1"}},
             {"`Disconnect`",
              Matrix::kOwn,
              &Matrix::Disconnect,
              {"0, d", "-1, d, e", "-1, d, e", "0, d", "0, d", "-1, c"}},
             {"`SendWsData`",
              Matrix::kOwn,
              &Matrix::SendWsData,
              {"-1", "0", "-1", "-1", "-1", "-1"}},
             {"`InitRequest`",
              Matrix::kOwn,
              &Matrix::InitRequest,
              {"-1", "-1", "-1", "-1", "-1", "-1"}},
             {"options",
              Matrix::kOwn,
              &Matrix::SetOptions,
              {"0", nullptr, nullptr, nullptr, "0", "0"}},
             {"`GetUserData`, `GetUrl`, `GetTag`",
              Matrix::kOwn,
              &Matrix::GetTexts,
              {"0", "0", "0", "0", "0", "0"}},
             {"`GetResponse`, its size",
              Matrix::kOwn,
              &Matrix::GetResponse,
              {"17", nullptr, nullptr, nullptr, "0", "0"}},
             {"`GetResponseCode`",
              Matrix::kOwn,
              &Matrix::GetResponseCode,
              {"200", nullptr, nullptr, nullptr, "0", "0"}},
         }},
        {"Calls on the timer that the notice or completion tells of",
         {{"`OnTimer`", {&Matrix::InOnTimer}},
          {"`OnClose`", {&Matrix::InOnClose}},
          {"its add, stop, restart",
           {&Matrix::InTimersAddCompletion, &Matrix::InTimersStopCompletion,
            &Matrix::InTimersAgainCompletion}},
          {"its delete", {&Matrix::InTimersDeleteCompletion}},
          {"its cancelled add", {&Matrix::InTimersCancelledAdd}}},
         {
             {"`DelTimerReq` at once",
              Matrix::kOwn,
              &Matrix::DelTimerAtOnce,
              {"0, done 0", "0, done 0", "0, done 0", "0, done 0", "0, done 0"}},
             {"`DelTimerReq` queued",
              Matrix::kOwn,
              &Matrix::DelTimerQueued,
              {"0, later 0", "0, later 0", "0, later 0", "0, later 0", "-1"}},
             {"`StopTimer`",
              Matrix::kOwn,
              &Matrix::StopTimer,
              {"0, done 0", "0, done 0", "0, done 0", "0, done 0", "-1"}},
             {"`AgainTimer`",
              Matrix::kOwn,
              &Matrix::AgainTimer,
              {"0, done 0", "0, done 0", "0, done 0", "0, done 0", "-1"}},
         }},
    };
    return tables;
}

struct NamedPlace
{
    const char* name;
    Matrix::Place place;
};

void PrintTo(const NamedPlace& place, std::ostream* out)
{
    *out << place.name;
}

const NamedPlace kPlaces[] = {
    {"OnFinish", &Matrix::InOnFinish},
    {"OnWsData", &Matrix::InOnWsData},
    {"OnProgress", &Matrix::InOnProgress},
    {"OnReadData", &Matrix::InOnReadData},
    {"OnTimer", &Matrix::InOnTimer},
    {"OnClose", &Matrix::InOnClose},
    {"AddCompletion", &Matrix::InAddCompletion},
    {"DeleteCompletion", &Matrix::InDeleteCompletion},
    {"TimersAddCompletion", &Matrix::InTimersAddCompletion},
    {"TimersDeleteCompletion", &Matrix::InTimersDeleteCompletion},
    {"TimersStopCompletion", &Matrix::InTimersStopCompletion},
    {"TimersAgainCompletion", &Matrix::InTimersAgainCompletion},
    {"CancelledAdd", &Matrix::InCancelledAdd},
    {"TimersCancelledAdd", &Matrix::InTimersCancelledAdd},
    {"OnHttpFrameStop", &Matrix::InOnHttpFrameStop},
};

class CallMatrixTest : public CallMatrixFixture, public ::testing::WithParamInterface<NamedPlace>
{
};

TEST_P(CallMatrixTest, AnswersEveryCallAsThePageTells)
{
    for (const Table& table : Tables())
    {
        for (std::size_t i = 0; i != table.columns.size(); ++i)
        {
            const auto& places = table.columns[i].places;
            if (std::find(places.begin(), places.end(), GetParam().place) == places.end())
            {
                continue;
            }
            for (const Row& row : table.rows)
            {
                if (row.answers[i] != nullptr)
                {
                    SCOPED_TRACE(std::string(table.title) + ": " + row.call);
                    EXPECT_EQ(Answer(GetParam().place, row.subject, row.make), row.answers[i]);
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(In, CallMatrixTest, ::testing::ValuesIn(kPlaces),
                         [](const auto& it) { return it.param.name; });

const std::string kMark = "<!-- From here on the tests write this page. -->\n";

/// What follows the mark in the page.
std::string WrittenPart()
{
    std::ostringstream page;
    for (const Table& table : Tables())
    {
        page << "\n### " << table.title << "\n\n| call |";
        std::string rule = "|---|";
        for (const Column& column : table.columns)
        {
            page << ' ' << column.title << " |";
            rule += "---|";
        }
        page << '\n' << rule << '\n';
        for (const Row& row : table.rows)
        {
            page << "| " << row.call << " |";
            for (const char* const answer : row.answers)
            {
                page << ' ' << (answer != nullptr ? answer : "not allowed") << " |";
            }
            page << '\n';
        }
    }
    page << "\n### Lines\n\n";
    for (const AnswerLine& line : AnswerLines())
    {
        page << "- " << line.letter << ": `" << line.text << "`\n";
    }
    return page.str();
}

TEST(CallMatrixPageTest, PageTellsWhatTheTestsProve)
{
    const std::string path = HTTP_INTERFACE_DOCS_DIR "/threads-and-notices.md";
    const std::string page = ReadFile(path);
    const std::size_t mark = page.find(kMark);
    ASSERT_NE(mark, std::string::npos);
    const std::string expected = page.substr(0, mark + kMark.size()) + WrittenPart();
    if (std::getenv("HTTP_INTERFACE_WRITE_PAGES") != nullptr)
    {
        std::ofstream(path, std::ios::binary) << expected;
    }
    EXPECT_EQ(ReadFile(path), expected) << "run the tests with HTTP_INTERFACE_WRITE_PAGES set";
}

} // namespace
} // namespace test
