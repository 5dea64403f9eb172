/// What a request hears.

#include "stress/Request.h"

#include "stress/Session.h"

namespace stress
{

using http_interface::IHttpHandleInterface;

void Request::CheckNotice(const char* name, const void* user) const
{
    if (m_bDeleted)
    {
        Differ(std::string(name) + " after its delete");
    }
    if (!m_bInEngine)
    {
        Differ(std::string(name) + " without a transfer");
    }
    if (user != this)
    {
        Differ(std::string(name) + " with another's user data");
    }
}

void Request::OnProgress(const char* /*tag*/, const char* /*url*/, double /*dltotal*/,
                         double /*dlnow*/, double /*ultotal*/, double /*ulnow*/, void* user)
{
    const Session::InsideLibcurl inside(Owner());
    CheckNotice("OnProgress", user);
    Owner().Books().Noted(Notice::Progress);
    Act(Moment::Inside);
}

std::size_t Request::OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                                std::size_t size, std::size_t nitems, void* user)
{
    const Session::InsideLibcurl inside(Owner());
    CheckNotice("OnReadData", user);
    if (handle != m_pHandle)
    {
        Differ("OnReadData with another's handle");
    }
    Owner().Books().Noted(Notice::ReadData);
    const std::size_t count = Read(buffer, size * nitems);
    Act(Moment::Inside);
    return count;
}

void Request::OnWsData(const char* data, std::size_t len, int type, void* user)
{
    const Session::InsideLibcurl inside(Owner());
    CheckNotice("OnWsData", user);
    Owner().Books().Noted(Notice::Message);
    Received(data, len, type);
    Act(Moment::Inside);
}

void Request::OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user)
{
    Remember("finished:" + std::to_string(result));
    CheckNotice("OnFinish", user);
    if (!m_bEndIsTold || handle != m_pHandle || (result != 0 && result != -2))
    {
        Differ("a wrong OnFinish(" + std::to_string(result) + ')');
    }
    Owner().Books().Noted(result == 0 ? Notice::Finished : Notice::Failed);
    if (m_bCutOff)
    {
        Owner().Books().Noted(Notice::BegunAllTheSame);
    }
    Ended(result);
    LeaveEngine();
    Act(Moment::Finished);
}

} // namespace stress
