/// Everything that a host can set for a request, with texts and numbers from
/// the input, and then a transfer with it: to a server that says little, or to a
/// port where nobody listens.

#include "fuzz/Bench.h"
#include "fuzz/Check.h"
#include "fuzz/Network.h"
#include "fuzz/Request.h"

#include <algorithm>
#include <filesystem>
#include <fuzzer/FuzzedDataProvider.h>
#include <list>

namespace fuzz
{
namespace
{

constexpr std::size_t kLongestText = 300;
constexpr std::size_t kMostOptions = 12;
constexpr int kLongestTimeoutMs = 100;
constexpr auto kPatience = std::chrono::milliseconds(150);

std::string Text(FuzzedDataProvider& input)
{
    return input.ConsumeRandomLengthString(kLongestText);
}

/// One of a few, or whatever the input says.
int Number(FuzzedDataProvider& input, int most)
{
    return input.ConsumeBool() ? input.ConsumeIntegralInRange(0, most)
                               : input.ConsumeIntegral<int>();
}

/// A URL of this program's server or of the closed port with a free rest, or
/// one that is free as a whole; connections go to the server all the same.
std::string Url(FuzzedDataProvider& input)
{
    static constexpr const char* kSchemes[] = {"http", "https", "ws", "wss", "HTTP", "ftp", ""};
    const std::string text = Text(input);
    switch (input.ConsumeIntegralInRange(0, 3))
    {
    case 0:
        return text;
    case 1:
        return "http://127.0.0.1:" + std::to_string(ClosedPort()) + '/' + text;
    case 2:
        return std::string(input.PickValueInArray(kSchemes)) + "://" + text;
    default:
        return std::string(input.PickValueInArray(kSchemes)) +
               "://127.0.0.1:" + std::to_string(Bench::Get().Server().Port()) + text;
    }
}

/// A name in the folder of this run, whatever the input says: files elsewhere
/// are neither written nor read.
std::string FileName(FuzzedDataProvider& input)
{
    std::string name = Text(input);
    std::replace(name.begin(), name.end(), '/', '_');
    return input.ConsumeBool() ? "./fuzz_file" : "./fuzz_" + name;
}

std::list<std::string> Lines(FuzzedDataProvider& input)
{
    std::list<std::string> lines;
    for (auto count = input.ConsumeIntegralInRange(0, 4); count > 0; --count)
    {
        lines.push_back(Text(input));
    }
    return lines;
}

/// The files that SetDownloadFile made.
void RemoveFiles()
{
    for (const auto& entry : std::filesystem::directory_iterator("."))
    {
        if (entry.path().filename().string().rfind("fuzz_", 0) == 0)
        {
            std::filesystem::remove(entry.path());
        }
    }
}

void SetOne(IHttpHandleInterface& handle, FuzzedDataProvider& input, bool initialised)
{
    const auto refusedUnlessReady = [&](int result)
    {
        FUZZ_CHECK(result == 0 || result == -1);
        FUZZ_CHECK(initialised || result == -1);
    };
    switch (input.ConsumeIntegralInRange(0, 9))
    {
    case 0:
        refusedUnlessReady(handle.SetPostFields(Text(input).c_str()));
        break;
    case 1:
        refusedUnlessReady(handle.EnableVerbose());
        break;
    case 2:
        refusedUnlessReady(handle.SetDownloadFile(FileName(input).c_str()));
        break;
    case 3:
        refusedUnlessReady(handle.SetProgress(input.ConsumeBool()));
        break;
    case 4:
        refusedUnlessReady(handle.SetCaCert(FileName(input).c_str()));
        break;
    case 5:
        refusedUnlessReady(handle.SetCaCert(nullptr));
        break;
    case 6:
    {
        const std::list<std::string> lines = Lines(input);
        refusedUnlessReady(handle.SetHeaders(&lines));
        break;
    }
    case 7:
        refusedUnlessReady(handle.SetUploadSize(input.ConsumeIntegral<std::int64_t>()));
        break;
    case 8:
        FUZZ_CHECK(handle.SetPostFields(nullptr) == -1);
        FUZZ_CHECK(handle.SetDownloadFile(nullptr) == -1);
        FUZZ_CHECK(handle.SetHeaders(nullptr) == -1);
        break;
    default:
        FUZZ_CHECK(handle.InitRequest(nullptr, nullptr, 0, nullptr, 0, 0, nullptr) == -1);
        FUZZ_CHECK(!initialised ||
                   handle.InitRequest("http://other/", "", 1, nullptr, 0, 0, nullptr) == -1);
        break;
    }
}

void Run(FuzzedDataProvider& input)
{
    Bench& bench = Bench::Get();
    const bool tagged = input.ConsumeBool();
    const std::string url = Url(input);
    const std::string tag = Text(input);
    const int method = Number(input, 3);
    // A transfer without a limit, or a long one, would outlast the patience.
    const int timeoutMs = std::min(Number(input, kLongestTimeoutMs), kLongestTimeoutMs);
    const auto count = input.ConsumeIntegralInRange<std::size_t>(0, kMostOptions);

    auto request = Request::Make();
    const bool initialised = request->Init(url, tagged ? tag.c_str() : nullptr, method, timeoutMs);
    IHttpHandleInterface& handle = *request->Handle();
    if (initialised)
    {
        // Both were handed over as C strings.
        FUZZ_CHECK(handle.GetUrl() == url.c_str());
        FUZZ_CHECK(handle.GetTag() == (tagged ? tag.c_str() : ""));
        FUZZ_CHECK(handle.GetUserData() == request.get());
        FUZZ_CHECK(handle.GetResponseCode() == 0);
    }
    for (std::size_t i = 0; i != count; ++i)
    {
        SetOne(handle, input, initialised);
    }
    const std::size_t readSize = input.ConsumeIntegral<std::uint8_t>();
    request->m_OnReadData = [reads = 0, readSize](char* buffer, std::size_t room) mutable
    {
        const std::size_t size = ++reads < 4 ? std::min(room, readSize) : 0;
        std::fill_n(buffer, size, 'u');
        return size;
    };
    // A body is sent at once where it is asked for.
    const std::string goOn = input.ConsumeBool() ? "HTTP/1.1 100 Continue\r\n\r\n" : "";
    const std::string answer = goOn + "HTTP/1.1 200 OK\r\n" + input.ConsumeRemainingBytesAsString();
    bench.Server().Play({[&](const std::string&, std::size_t) { return answer; }, 1, false, false,
                         ByteServer::Ending::Close});
    CutReads({});

    const int added = request->Add();
    FUZZ_CHECK(added == (initialised ? 0 : -1));
    if (added == 0)
    {
        request->WaitForFinish(kPatience); // a WebSocket says nothing
    }
    Request::Delete(std::move(request));
    bench.Server().Rest();
    RemoveFiles();
}

} // namespace
} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    fuzz::Run(input);
    return 0;
}
