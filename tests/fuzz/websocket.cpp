/// WebSocket connections whose peer, after a correct upgrade, sends frames made
/// from the input, or the input itself. What the host hears is compared with
/// what these bytes mean.

#include "fuzz/Bench.h"
#include "fuzz/Check.h"
#include "fuzz/Frames.h"
#include "fuzz/Network.h"
#include "fuzz/Request.h"
#include "fuzz/Upgrade.h"

#include <algorithm>

namespace fuzz
{
namespace
{

constexpr int kWebSocket = 3;
constexpr std::size_t kMostPieces = 32;

struct Plan
{
    explicit Plan(FuzzedDataProvider& input)
        : resets(input.ConsumeIntegralInRange(0, 7) == 0),
          verbose(input.ConsumeBool()),
          echoes(input.ConsumeBool()),
          disconnectsInside(input.ConsumeBool()),
          deleteAt(input.ConsumeIntegralInRange<std::size_t>(0, 8)),
          deletesAsync(input.ConsumeBool())
    {
        const auto count = input.ConsumeIntegralInRange<std::size_t>(0, kMostPieces);
        for (std::size_t i = 0; i != count; ++i)
        {
            pieces.push_back(input.ConsumeIntegralInRange<std::uint16_t>(1, 200));
        }
        frames = input.ConsumeBool() ? MakeFrames(input) : input.ConsumeRemainingBytesAsString();
    }

    bool resets;
    bool verbose;
    bool echoes;
    bool disconnectsInside;
    std::size_t deleteAt; ///< inside the message of that number; 0 for none
    bool deletesAsync;
    std::vector<std::uint16_t> pieces;
    std::string frames;
};

void Receive(Request& request, const Plan& plan, std::vector<Message>& received)
{
    request.m_OnWsData = [&](const char* data, std::size_t len, int type)
    {
        received.push_back({std::string(data, len), type});
        if (plan.echoes)
        {
            std::size_t sent = 0;
            const auto copy = std::make_shared<std::vector<char>>(data, data + len);
            FUZZ_CHECK(request.Handle()->SendWsData(copy, type == 2 ? 2 : 1, &sent) == 0);
            FUZZ_CHECK(sent <= len);
        }
        if (plan.disconnectsInside)
        {
            FUZZ_CHECK(request.Handle()->Disconnect() == -1); // libcurl is on the stack
        }
        if (received.size() == plan.deleteAt)
        {
            request.DeleteInside(plan.deletesAsync);
        }
    };
}

void CheckReceived(const Plan& plan, const std::vector<Message>& received)
{
    std::size_t total = 0;
    for (const Message& message : received)
    {
        total += message.data.size();
    }
    FUZZ_CHECK(total <= plan.frames.size());

    const Messages expected = MessagesIn(plan.frames);
    if (!expected.exact)
    {
        return;
    }
    FUZZ_CHECK(received.size() <= expected.all.size());
    FUZZ_CHECK(std::equal(received.begin(), received.end(), expected.all.begin()));
    const bool cutShort = plan.resets || (plan.deleteAt != 0 && plan.deleteAt <= received.size());
    FUZZ_CHECK(cutShort || received.size() == expected.all.size());
}

void Run(const Plan& plan)
{
    Bench& bench = Bench::Get();
    bench.Server().Play(
        {[&plan](const std::string& head, std::size_t) { return Upgrade(head) + plan.frames; }, 1,
         false, false, plan.resets ? ByteServer::Ending::Reset : ByteServer::Ending::HalfClose});
    CutReads(plan.pieces);

    std::vector<Message> received;
    auto request = Request::Make();
    const std::string url = "ws://127.0.0.1:" + std::to_string(bench.Server().Port()) + "/";
    FUZZ_CHECK(request->Init(url, nullptr, kWebSocket, 0));
    FUZZ_CHECK(!plan.verbose || request->Handle()->EnableVerbose() == 0);
    Receive(*request, plan, received);
    bool finished = false;
    request->m_OnFinish = [&]
    {
        finished = true;
    };
    FUZZ_CHECK(request->Add() == 0);
    FUZZ_CHECK(bench.Server().WaitUntilLeft());
    Request::Delete(std::move(request));
    FUZZ_CHECK(!finished); // a WebSocket ends silently
    CheckReceived(plan, received);
}

} // namespace
} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    fuzz::Run(fuzz::Plan(input));
    return 0;
}
