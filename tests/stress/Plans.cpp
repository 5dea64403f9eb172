#include "stress/Plans.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace stress
{
namespace
{

constexpr int kFailed = -2;
constexpr int kShortMs = 100; ///< for peers that keep silent

std::shared_ptr<const std::string> FileContent(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        throw std::runtime_error("cannot read " + path);
    }
    return std::make_shared<const std::string>(std::istreambuf_iterator<char>(file),
                                               std::istreambuf_iterator<char>());
}

std::shared_ptr<const std::string> Text(std::string text)
{
    return std::make_shared<const std::string>(std::move(text));
}

std::string Chunks(int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
    {
        text += "chunk " + std::to_string(i) + '\n';
    }
    return text;
}

template <typename Plan>
const Plan& Draw(const std::vector<Plan>& plans, Random& random)
{
    std::uint64_t all = 0;
    for (const Plan& plan : plans)
    {
        all += plan.weight;
    }
    std::uint64_t drawn = random.Below(all);
    for (const Plan& plan : plans)
    {
        if (drawn < plan.weight)
        {
            return plan;
        }
        drawn -= plan.weight;
    }
    return plans.back();
}

} // namespace

Plans::Plans(const Servers& servers)
    : m_CaFile(servers["CA_FILE"]), m_DavDirectory(servers["DAV_DIR"])
{
    AddGood(servers);
    AddUploads(servers);
    AddFaulty(servers);
    AddSockets(servers);
}

const TransferPlan& Plans::DrawTransfer(Random& random) const
{
    return Draw(m_Transfers, random);
}

const SocketPlan& Plans::DrawSocket(Random& random) const
{
    return Draw(m_Sockets, random);
}

void Plans::AddGood(const Servers& servers)
{
    const auto add =
        [this](std::string url, unsigned weight, std::shared_ptr<const std::string> body)
    {
        TransferPlan plan;
        plan.url = std::move(url);
        plan.weight = weight;
        plan.fixed = std::move(body);
        m_Transfers.push_back(std::move(plan));
    };
    const std::string& http = servers["HTTP_URL"];
    const std::string& hostile = servers["HOSTILE_URL"];
    add(http + "/hello", 30, Text("hello from nginx\n"));
    for (const char* const key : {"HTTP_URL", "HTTPS_URL", "H2_URL"})
    {
        add(servers[key] + "/echo-header", key == std::string("HTTP_URL") ? 60 : 6, Text(""));
        m_Transfers.back().body = Body::EchoHeader;
    }
    for (const char* const name : {"1", "1k", "64k", "1m"})
    {
        const bool large = name == std::string("1m");
        add(http + "/bytes/" + name, large ? 1 : 12,
            FileContent(servers["WWW_DIR"] + "/bytes/" + name));
    }
    add(servers["H2_URL"] + "/bytes/64k", 4, FileContent(servers["WWW_DIR"] + "/bytes/64k"));
    add(http + "/bytes/64k", 2, FileContent(servers["WWW_DIR"] + "/bytes/64k"));
    m_Transfers.back().intoFile = true;
    add(http + "/empty", 4, Text(""));
    add(http + "/status/404", 4, Text("status 404\n"));
    m_Transfers.back().status = 404;
    add(hostile + "/chunked?n=100", 3, Text(Chunks(100)));
    add(hostile + "/no-length", 3, Text("the end of the connection ends this\n"));
    add(hostile + "/slow-start?ms=20", 3, Text("slow start\n"));
    add(hostile + "/drip?n=10&ms=2", 3, Text(".........."));
}

void Plans::AddUploads(const Servers& servers)
{
    const auto add = [this](std::string url, unsigned weight, Body body)
    {
        TransferPlan plan;
        plan.url = std::move(url);
        plan.weight = weight;
        plan.body = body;
        m_Transfers.push_back(plan);
    };
    const std::string& hostile = servers["HOSTILE_URL"];
    add(hostile + "/post-echo", 6, Body::EchoPost);
    add(hostile + "/continue", 2, Body::EchoPost);
    add(hostile + "/post-echo", 6, Body::EchoUpload);
    for (const UploadEnd end : {UploadEnd::Short, UploadEnd::Aborted})
    {
        add(hostile + "/post-echo", 2, Body::EchoUpload);
        m_Transfers.back().upload = end;
        m_Transfers.back().result = kFailed;
    }
    add(servers["HTTP_URL"] + "/dav/stress-", 6, Body::Store);
    m_Transfers.back().status = 0; // 201 for the first, 204 for all later ones
}

void Plans::AddFaulty(const Servers& servers)
{
    const auto add = [this](std::string url, int timeoutMs, std::string body)
    {
        TransferPlan plan;
        plan.url = std::move(url);
        plan.result = kFailed;
        plan.status = 0;
        plan.timeoutMs = timeoutMs;
        plan.connectTimeoutMs = timeoutMs;
        plan.fixed = Text(std::move(body));
        m_Transfers.push_back(std::move(plan));
    };
    constexpr int kLongMs = 30000;
    const std::string& hostile = servers["HOSTILE_URL"];
    add(hostile + "/close", kLongMs, "");
    add(hostile + "/reset", kLongMs, "xxxxxxxxxx");
    add(hostile + "/truncated", kLongMs, "xxxxxxxxxx");
    add(hostile + "/lying-length", kLongMs, "xxxxxxxxxx");
    add(hostile + "/garbage", kLongMs, "");
    add(hostile + "/bad-chunk", kLongMs, "hello");
    add(hostile + "/huge-header", kLongMs, "");
    add(hostile + "/silence", kShortMs, "");
    add(hostile + "/drip?n=1000&ms=10", kShortMs, std::string(1000, '.'));
    add(servers["REFUSED_URL"] + '/', kLongMs, "");
    add(servers["STALL_URL"] + '/', kShortMs, "");
    add(servers["HTTPS_EXPIRED_URL"] + "/hello", kLongMs, "");
    add(servers["HTTPS_WRONG_HOST_URL"] + "/hello", kLongMs, "");
    add("", kLongMs, "");
    add("http://", kLongMs, "");
    add("nothing://127.0.0.1/", kLongMs, "");
    add("http://[::1", kLongMs, "");
}

void Plans::AddSockets(const Servers& servers)
{
    const std::string& peer = servers["WS_PEER_URL"];
    for (const char* const key : {"WS_URL", "WSS_URL"})
    {
        const unsigned weight = key == std::string("WS_URL") ? 12 : 2;
        m_Sockets.push_back({servers[key] + "/echo", weight, Dialogue::Echo, 0, 0});
        m_Sockets.push_back(
            {servers[key] + "/send?n=3&size=5000", weight / 2, Dialogue::Push, 5000, 3});
    }
    for (const char* const path :
         {"/fragments", "/close", "/noise", "/half-a-frame-reset", "/no-close-frame", "/vanish",
          "/wrong-key", "/refuse?status=403", "/half-handshake", "/handshake-reset"})
    {
        m_Sockets.push_back({peer + path, 1, Dialogue::Odd, 0, 0});
    }
    m_Sockets.push_back({"ws" + servers["REFUSED_URL"].substr(4) + '/', 1, Dialogue::Odd, 0, 0});
}

} // namespace stress
