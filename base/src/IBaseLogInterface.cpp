#include "CDefaultLog.h"

#include <mutex>
#include <new>
#include <utility>

namespace base
{
namespace
{

/// The logger in use. Never destroyed: libraries that log while they are
/// unloaded at exit find it alive.
class LogSlot
{
public:
    static LogSlot& Get()
    {
        alignas(LogSlot) static unsigned char storage[sizeof(LogSlot)];
        static LogSlot* const slot = new (storage) LogSlot;
        return *slot;
    }

    CDefaultLog& Default() { return m_Default; }

    std::shared_ptr<IBaseLogInterface> Load()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_pLogger;
    }

    void Store(std::shared_ptr<IBaseLogInterface> logger)
    {
        if (!logger)
        {
            logger = UnownedDefault();
        }
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_pLogger.swap(logger); // the earlier logger is released outside the lock
    }

private:
    LogSlot() : m_pLogger(UnownedDefault()) {}

    std::shared_ptr<IBaseLogInterface> UnownedDefault()
    {
        return std::shared_ptr<IBaseLogInterface>(std::shared_ptr<void>(), &m_Default);
    }

    CDefaultLog m_Default;
    std::mutex m_Mutex;
    std::shared_ptr<IBaseLogInterface> m_pLogger;
};

} // namespace

std::shared_ptr<IBaseLogInterface> IBaseLogInterface::GetLogInstance()
{
    return LogSlot::Get().Load();
}

void IBaseLogInterface::SetLogInstance(std::shared_ptr<IBaseLogInterface> logger)
{
    LogSlot::Get().Store(std::move(logger));
}

void IBaseLogInterface::SetDefaultLogLevel(int level)
{
    LogSlot::Get().Default().SetLevel(level);
}

IBaseLogInterface::~IBaseLogInterface() = default;

} // namespace base
