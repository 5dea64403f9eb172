#include "stress/Entry.h"

#include "stress/Session.h"

#include <utility>

namespace stress
{

Entry::Entry(Session& session, std::uint64_t id, Script script)
    : m_Session(session), m_Id(id), m_Script(script)
{
    m_Session.Books().Lives(+1);
}

Entry::~Entry()
{
    m_Session.Books().Lives(-1);
}

void Entry::AwaitQuiet()
{
    if (!m_Session.Owed().Wait(kPatience, [this](int) { return IsQuiet(); }))
    {
        Differ("nothing more came");
    }
}

void Entry::Differ(const std::string& what) const
{
    m_Session.Books().Differ(m_Session.Name() + ' ' + Describe() + ": " + what);
}

void Entry::Remember(const std::string& event)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_History += ' ' + event;
}

std::string Entry::Name() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return std::to_string(m_Id) + " (script " + std::to_string(static_cast<int>(m_Script.when)) +
           ' ' + std::to_string(static_cast<int>(m_Script.what)) + ';' + m_History + ')';
}

void Entry::Act(Moment moment)
{
    if (m_Script.when == moment && !m_bActed)
    {
        m_bActed = true;
        Perform(m_Script.what);
    }
}

void Entry::Perform(Action action)
{
    switch (action)
    {
    case Action::Delete:
        Delete(Caller::Loop, false);
        break;
    case Action::DeleteQueued:
        Delete(Caller::Loop, true);
        break;
    case Action::AddAgain:
        Add(Caller::Loop, false);
        break;
    case Action::AddAgainQueued:
        Add(Caller::Loop, true);
        break;
    case Action::DeleteAnother:
        m_Session.DeleteAnother(*this);
        break;
    case Action::StopEngine:
        m_Session.StopInLoop(false);
        break;
    case Action::StopEngineLater:
        m_Session.StopInLoop(true);
        break;
    case Action::StopBehindAnAdd:
        m_Session.StopBehindAnAdd(m_Id);
        break;
    default:
        break;
    }
}

} // namespace stress
