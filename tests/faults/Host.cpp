#include "faults/Host.h"

#include "support/LogRecorder.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <new>
#include <system_error>

namespace test
{

class Host::Logger : public base::IBaseLogInterface
{
public:
    explicit Logger(Host* host) : m_pHost(host) {}

    void WriteLog(const int* level, const long*, const char* format, ...) override
    {
        const TestCode inTest;
        std::array<char, 1024> text;
        va_list args;
        va_start(args, format);
        std::vsnprintf(text.data(), text.size(), format, args);
        va_end(args);
        m_pHost->Keep(*level, text.data());
    }

private:
    Host* const m_pHost;
};

Host::Host(const HostOptions& options) : m_Options(options)
{
    base::IBaseLogInterface::SetLogInstance(std::make_shared<Logger>(this));
}

Host::~Host()
{
    base::IBaseLogInterface::SetLogInstance(nullptr);
}

bool Host::Ask(const std::function<int()>& call)
{
    for (int tries = 0; tries != 2; ++tries)
    {
        try
        {
            const LibraryCode inLibrary;
            if (call() == 0)
            {
                return true;
            }
            ++m_Refusals;
        }
        catch (const std::bad_alloc&)
        {
            ++m_Exceptions;
        }
        catch (const std::system_error&)
        {
            ++m_Exceptions;
        }
    }
    return false;
}

bool Host::Wait(Event& event, int count) const
{
    constexpr auto kPatience = std::chrono::milliseconds(300);
    return event.Wait(count, kPatience) || (!MayBeUnheard() && event.Wait(count));
}

bool Host::MayBeUnheard() const
{
    if (m_Options.unheardAfter == nullptr || *m_Options.unheardAfter == '\0')
    {
        return m_Options.unheardAfter != nullptr;
    }
    const std::vector<std::string> errors = Errors();
    return std::any_of(errors.begin(), errors.end(),
                       [this](const std::string& line)
                       { return line.find(m_Options.unheardAfter) != std::string::npos; });
}

std::vector<std::string> Host::Errors() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Errors;
}

void Host::Keep(int level, const std::string& text)
{
    if (text.find(" DONE result[") != std::string::npos &&
        text.find(" DONE result[0:") == std::string::npos)
    {
        ++m_FailedTransfers;
    }
    if (level > kInfo)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Errors.push_back(text);
    }
}

} // namespace test
