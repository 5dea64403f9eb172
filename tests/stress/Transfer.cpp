#include "stress/Transfer.h"

#include "stress/Content.h"
#include "stress/Session.h"

#include <algorithm>
#include <filesystem>
#include <list>

namespace stress
{
namespace
{

constexpr int kGet = 0;
constexpr int kPost = 1;
constexpr int kUpload = 2;
constexpr std::size_t kAbort = 0x10000000; // CURL_READFUNC_ABORT
constexpr std::size_t kMaxEcho = 6000;

int MethodOf(Body body)
{
    switch (body)
    {
    case Body::EchoPost:
        return kPost;
    case Body::EchoUpload:
    case Body::Store:
        return kUpload;
    default:
        return kGet;
    }
}

} // namespace

std::shared_ptr<Transfer> Transfer::Make(Session& session, std::uint64_t id, Script script,
                                         const TransferPlan& plan)
{
    auto transfer = std::make_shared<Transfer>(session, id, script, plan);
    if (!transfer->Configure())
    {
        transfer->Differ("cannot be configured");
    }
    session.Enter(transfer);
    return transfer;
}

Transfer::Transfer(Session& session, std::uint64_t id, Script script, const TransferPlan& plan)
    : Request(session, id, script, End::Told), m_Plan(plan)
{
}

Transfer::~Transfer()
{
    if (!m_File.empty())
    {
        std::error_code ignored;
        std::filesystem::remove(m_File, ignored);
    }
}

bool Transfer::Configure()
{
    return Init(Url(), MethodOf(m_Plan.body), m_Plan.connectTimeoutMs, m_Plan.timeoutMs) &&
           Handle().SetProgress(Id() % 4 == 0) == 0 &&
           Handle().SetCaCert(Owner().Catalogue().CaFile().c_str()) == 0 && SetBody();
}

bool Transfer::SetBody()
{
    const std::size_t size = static_cast<std::size_t>(Id() * 7919 % kMaxEcho);
    std::list<std::string> headers;
    switch (m_Plan.body)
    {
    case Body::Fixed:
        if (m_Plan.intoFile)
        {
            m_File = (std::filesystem::temp_directory_path() /
                      ("http_interface_stress_" + Owner().Name() + '_' + std::to_string(Id())))
                         .string();
            return Handle().SetDownloadFile(m_File.c_str()) == 0;
        }
        return true;
    case Body::EchoHeader:
        m_Sent = TextOf(Id(), size / 2);
        m_Expected = "Host: " + Authority() +
                     "\nUser-Agent: \nAccept: */*\nContent-Type: \nX-Test: " + m_Sent + '\n';
        headers.push_back("X-Test: " + m_Sent);
        return Handle().SetHeaders(&headers) == 0;
    case Body::EchoPost:
        m_Sent = m_Expected = TextOf(Id(), size);
        return Handle().SetPostFields(m_Sent.c_str()) == 0;
    case Body::EchoUpload:
        m_Sent = m_Expected = BytesOf(Id(), size + 100);
        return Handle().SetUploadSize(Id() % 3 == 0 && m_Plan.upload == UploadEnd::Whole
                                          ? -1
                                          : static_cast<std::int64_t>(m_Sent.size())) == 0;
    case Body::Store:
        m_Sent = stored::Content(stored::NumberOf(Id()));
        return Handle().SetUploadSize(static_cast<std::int64_t>(m_Sent.size())) == 0;
    }
    return false;
}

std::string Transfer::Url() const
{
    return m_Plan.body == Body::Store ? m_Plan.url + std::to_string(stored::NumberOf(Id()))
                                      : m_Plan.url;
}

std::string Transfer::Authority() const
{
    const std::size_t begin = m_Plan.url.find("://") + 3;
    return m_Plan.url.substr(begin, m_Plan.url.find('/', begin) - begin);
}

void Transfer::Began()
{
    m_Before = Handle().GetResponse().size();
    m_ReadBytes = 0;
}

std::size_t Transfer::Read(char* buffer, std::size_t room)
{
    const std::size_t whole = m_Plan.upload == UploadEnd::Whole ? m_Sent.size() : m_Sent.size() / 2;
    const std::size_t count = std::min({room, whole - m_ReadBytes, std::size_t{500} + Id() % 4096});
    if (count == 0 && m_Plan.upload == UploadEnd::Aborted)
    {
        return kAbort;
    }
    m_Sent.copy(buffer, count, m_ReadBytes);
    m_ReadBytes += count;
    return count;
}

void Transfer::Ended(int result)
{
    if (result != m_Plan.result)
    {
        Differ("ended with " + std::to_string(result));
    }
    const long status = Handle().GetResponseCode();
    if (result == 0 && m_Plan.status != 0 && status != m_Plan.status)
    {
        Differ("ended with status " + std::to_string(status));
    }
    if (m_File.empty())
    {
        CheckResponse(result, Handle().GetResponse().substr(m_Before));
    }
    else
    {
        m_bFileWhole = true;
    }
}

/// All of it, or, of a transfer that failed, its beginning.
void Transfer::CheckResponse(int result, const std::string& response)
{
    const std::string& expected = m_Plan.body == Body::Fixed ? *m_Plan.fixed : m_Expected;
    const bool right = result == 0 ? m_Plan.body == Body::Store || response == expected
                                   : expected.compare(0, response.size(), response) == 0;
    if (!right)
    {
        Differ("wrong body of " + std::to_string(response.size()) + " bytes instead of " +
               std::to_string(expected.size()));
        return;
    }
    Owner().Books().Noted(Notice::VerifiedBody);
    Owner().Books().Noted(Notice::VerifiedBytes, response.size());
}

void Transfer::Deleted()
{
    m_Sent = {};
    m_Expected = {};
}

bool Transfer::Settle()
{
    const bool done = Request::Settle();
    if (done && !m_File.empty())
    {
        CheckFile();
    }
    return done;
}

/// It is closed by now, which on Windows it has to be before anybody opens it.
void Transfer::CheckFile()
{
    const std::string content = ContentOf(m_File);
    const std::string& expected = *m_Plan.fixed;
    if (m_bFileWhole ? content != expected : expected.compare(0, content.size(), content) != 0)
    {
        Differ("wrong download file of " + std::to_string(content.size()) + " bytes");
        return;
    }
    Owner().Books().Noted(Notice::VerifiedBody);
    Owner().Books().Noted(Notice::VerifiedBytes, content.size());
}

bool Transfer::MayBeAddedAgain() const
{
    return !m_Plan.intoFile;
}

std::string Transfer::Describe() const
{
    return Request::Describe() + ' ' + Url();
}

} // namespace stress
