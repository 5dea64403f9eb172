#include "ChatNotic.h"

namespace
{

constexpr int kText = 1;
constexpr int kClose = 3;

/// A close message is a code of two bytes, the higher one first, and a reason.
std::string CodeAndReason(const std::string& data)
{
    if (data.size() < 2)
    {
        return "no code";
    }
    const int code = static_cast<unsigned char>(data[0]) << 8 | static_cast<unsigned char>(data[1]);
    return std::to_string(code) + " " + data.substr(2);
}

} // namespace

ChatNotic::Event ChatNotic::Next()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Changed.wait(lock, [&] { return !m_Events.empty(); });
    Event event = std::move(m_Events.front());
    m_Events.pop_front();
    return event;
}

void ChatNotic::OnWsData(const char* data, std::size_t len, int type, void* /*user*/)
{
    std::string text(data, len);
    if (type == kClose)
    {
        Put({Kind::kClose, CodeAndReason(text)});
    }
    else if (type == kText)
    {
        Put({Kind::kMessage, std::move(text)});
    }
}

void ChatNotic::Put(Event event)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Events.push_back(std::move(event));
    m_Changed.notify_all();
}
