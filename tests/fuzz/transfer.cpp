/// Whole requests against a server that answers with the input's bytes, cut and
/// ended as the input says.

#include "fuzz/Bench.h"
#include "fuzz/Check.h"
#include "fuzz/Network.h"
#include "fuzz/Request.h"

#include <algorithm>
#include <fuzzer/FuzzedDataProvider.h>
#include <list>
#include <numeric>
#include <vector>

namespace fuzz
{
namespace
{

constexpr int kTimeoutMs = 25;
constexpr std::size_t kMostRounds = 3;
constexpr std::size_t kMostPieces = 8;
constexpr std::uint16_t kLargestPiece = 300;
constexpr std::size_t kUploadAbort = 0x10000000;

enum class How
{
    WaitForFinish,
    DeleteInFinish,
    QueueDeleteInFinish,
    DeleteInProgress,
    DeleteAtOnce,
    Disconnect,
    kMaxValue = Disconnect,
};

/// What the end of an input chooses; the bytes before it are the answers.
struct Plan
{
    explicit Plan(FuzzedDataProvider& input)
        : how(input.ConsumeEnum<How>()),
          method(input.ConsumeIntegralInRange(0, 2)),
          verbose(input.ConsumeBool()),
          progress(input.ConsumeBool()),
          headers(input.ConsumeBool()),
          uploadSize(input.ConsumeIntegralInRange<std::int64_t>(-1, 70000)),
          readSize(input.ConsumeIntegralInRange<std::size_t>(0, 20000)),
          abortsUpload(input.ConsumeBool()),
          speaksFirst(input.ConsumeBool()),
          rounds(input.ConsumeIntegralInRange<std::size_t>(1, kMostRounds)),
          // Silence costs the whole timeout: seldom.
          keepsOpen(input.ConsumeIntegralInRange(0, 7) == 0)
    {
        const auto end = input.ConsumeIntegralInRange(0, 15);
        ending = end == 15  ? ByteServer::Ending::Hold
                 : end > 11 ? ByteServer::Ending::Reset
                 : end > 7  ? ByteServer::Ending::HalfClose
                            : ByteServer::Ending::Close;
        const auto count = input.ConsumeIntegralInRange<std::size_t>(0, kMostPieces);
        for (std::size_t i = 0; i != count; ++i)
        {
            pieces.push_back(input.ConsumeIntegralInRange<std::uint16_t>(1, kLargestPiece));
        }
        for (std::size_t i = 1; i != rounds; ++i)
        {
            const auto size = input.ConsumeIntegralInRange<std::size_t>(0, 500);
            answers.push_back(input.ConsumeBytesAsString(size));
        }
        answers.push_back(input.ConsumeRemainingBytesAsString());
    }

    How how;
    int method;
    bool verbose;
    bool progress;
    bool headers;
    std::int64_t uploadSize;
    std::size_t readSize;
    bool abortsUpload;
    bool speaksFirst;
    std::size_t rounds;
    bool keepsOpen;
    ByteServer::Ending ending;
    std::vector<std::uint16_t> pieces;
    std::vector<std::string> answers;
};

void Configure(Request& request, const Plan& plan)
{
    IHttpHandleInterface& handle = *request.Handle();
    if (plan.verbose)
    {
        FUZZ_CHECK(handle.EnableVerbose() == 0);
    }
    FUZZ_CHECK(handle.SetProgress(plan.progress) == 0);
    if (plan.headers)
    {
        const std::list<std::string> lines{"Expect:", "X-One: 1", "Accept;"};
        FUZZ_CHECK(handle.SetHeaders(&lines) == 0);
    }
    if (plan.method == 1 && plan.readSize != 0)
    {
        FUZZ_CHECK(handle.SetPostFields(std::string(plan.readSize, 'p').c_str()) == 0);
    }
    if (plan.method == 2)
    {
        FUZZ_CHECK(handle.SetUploadSize(plan.uploadSize) == 0);
    }
}

void HandOut(Request& request, const Plan& plan)
{
    request.m_OnReadData =
        [left = std::size_t{70000}, &plan](char* buffer, std::size_t room) mutable
    {
        if (plan.abortsUpload && left < 50000)
        {
            return kUploadAbort;
        }
        const std::size_t count = std::min({left, room, plan.readSize});
        std::fill_n(buffer, count, 'u');
        left -= count;
        return count;
    };
    if (plan.how == How::DeleteInFinish || plan.how == How::QueueDeleteInFinish)
    {
        request.m_OnFinish = [&]
        {
            request.DeleteInside(plan.how == How::QueueDeleteInFinish);
        };
    }
    if (plan.how == How::DeleteInProgress)
    {
        request.m_OnProgress = request.m_OnFinish = [&]
        {
            request.DeleteInside(false);
        };
    }
}

/// Libcurl leaves out what belongs to the protocol; what it hands on has been
/// sent, in that order.
bool IsWithin(const std::string& body, const std::string& sent)
{
    std::size_t found = 0;
    for (std::size_t i = 0; i != sent.size() && found != body.size(); ++i)
    {
        found += sent[i] == body[found] ? 1 : 0;
    }
    return found == body.size();
}

void CheckResults(const Request& request, const std::vector<std::string>& answers)
{
    const std::string sent = std::accumulate(answers.begin(), answers.end(), std::string());
    const std::string& body = request.Handle()->GetResponse();
    FUZZ_CHECK(IsWithin(body, sent));
    const long code = request.Handle()->GetResponseCode();
    FUZZ_CHECK(code >= 0 && code < 1000);
}

void Run(const Plan& plan)
{
    Bench& bench = Bench::Get();
    bench.Server().Play({[&plan](const std::string&, std::size_t number)
                         { return plan.answers[number]; },
                         plan.answers.size(), plan.keepsOpen, plan.speaksFirst, plan.ending});
    CutReads(plan.pieces);

    auto request = Request::Make();
    const std::string url = "http://127.0.0.1:" + std::to_string(bench.Server().Port()) + "/path";
    FUZZ_CHECK(request->Init(url, "tag", plan.method, kTimeoutMs));
    Configure(*request, plan);
    HandOut(*request, plan);
    FUZZ_CHECK(request->Add() == 0);
    switch (plan.how)
    {
    case How::WaitForFinish:
        for (std::size_t round = 0; round != plan.rounds; ++round)
        {
            request->AwaitFinish();
            CheckResults(*request, plan.answers);
            if (round + 1 != plan.rounds)
            {
                FUZZ_CHECK(request->Add() == 0);
            }
        }
        break;
    case How::DeleteInFinish:
    case How::QueueDeleteInFinish:
        request->AwaitFinish();
        break;
    case How::DeleteInProgress:
        request->AwaitDelete();
        break;
    case How::Disconnect:
        FUZZ_CHECK(request->Handle()->Disconnect() == 0);
        break;
    case How::DeleteAtOnce:
        break;
    }
    Request::Delete(std::move(request));
    bench.Server().Rest();
}

} // namespace
} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    fuzz::Run(fuzz::Plan(input));
    return 0;
}
