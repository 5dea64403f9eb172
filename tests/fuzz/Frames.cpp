#include "fuzz/Frames.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace fuzz
{
namespace
{

constexpr std::size_t kMostFrames = 40;
constexpr std::uint64_t kLargestPattern = 70000;
constexpr std::uint8_t kFirstBytes[] = {0x81, 0x82, 0x01, 0x02, 0x00, 0x80, 0x88, 0x89, 0x8a};

constexpr std::uint8_t kFinal = 0x80;
constexpr std::uint8_t kKind = 0x0f;
constexpr std::uint8_t kReserved = 0x70;
constexpr std::uint8_t kMasked = 0x80;
constexpr std::uint8_t kLargestControl = 125;

enum Kind : std::uint8_t
{
    kContinued = 0,
    kText = 1,
    kBinary = 2,
    kClose = 8,
    kPing = 9,
    kPong = 10,
};

std::string BigEndian(std::uint64_t value, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i)
    {
        text += static_cast<char>(value >> (8 * i));
    }
    return text;
}

std::string Header(std::uint8_t first, std::uint64_t size, int form)
{
    std::string header(1, static_cast<char>(first));
    if (form == 2 || size > 0xffff)
    {
        return header + '\x7f' + BigEndian(size, 8);
    }
    if (form == 1 || size > kLargestControl)
    {
        return header + '\x7e' + BigEndian(size, 2);
    }
    return header + static_cast<char>(size | (form == 3 ? kMasked : 0U));
}

/// Bytes that repeat with a prime period.
std::string Pattern(std::size_t size)
{
    std::string data(size, '\0');
    for (std::size_t i = 0; i != size; ++i)
    {
        data[i] = static_cast<char>(i % 251);
    }
    return data;
}

/// Reads frames as libcurl does, up to the first one that it refuses.
class Reader
{
public:
    explicit Reader(const std::string& bytes) : m_Bytes(bytes) {}

    bool ReadFrame(Messages& messages);

private:
    std::optional<std::uint64_t> Take(std::size_t bytes);
    bool Accept(std::uint8_t first);
    std::optional<std::uint64_t> TakeSize(bool control);
    int TypeOf(std::uint8_t kind) const;

    const std::string& m_Bytes;
    std::size_t m_At = 0;
    std::uint8_t m_Kind = 0;   ///< of the message that is being received
    bool m_bContinues = false; ///< that message has more frames to come
    std::string m_Held;        ///< what has come of it
};

std::optional<std::uint64_t> Reader::Take(std::size_t bytes)
{
    if (m_Bytes.size() - m_At < bytes)
    {
        return std::nullopt;
    }
    std::uint64_t value = 0;
    for (std::size_t i = 0; i != bytes; ++i)
    {
        value = value << 8 | static_cast<std::uint8_t>(m_Bytes[m_At++]);
    }
    return value;
}

bool Reader::Accept(std::uint8_t first)
{
    const std::uint8_t kind = first & kKind;
    const bool final = (first & kFinal) != 0;
    if ((first & kReserved) != 0)
    {
        return false;
    }
    switch (kind)
    {
    case kContinued:
        if (!m_bContinues)
        {
            return false;
        }
        m_bContinues = !final;
        return true;
    case kText:
    case kBinary:
        if (m_bContinues)
        {
            return false;
        }
        m_Kind = kind;
        m_bContinues = !final;
        return true;
    default:
        return final && (kind == kClose || kind == kPing || kind == kPong);
    }
}

std::optional<std::uint64_t> Reader::TakeSize(bool control)
{
    const auto second = Take(1);
    if (!second || (*second & kMasked) != 0 || (control && *second > kLargestControl))
    {
        return std::nullopt;
    }
    if (*second <= kLargestControl)
    {
        return second;
    }
    const auto size = Take(*second == 126 ? 2 : 8);
    return size && *size >> 63 == 0 ? size : std::nullopt;
}

int Reader::TypeOf(std::uint8_t kind) const
{
    switch (kind)
    {
    case kClose:
        return 3;
    case kPong:
        return 0;
    default:
        return m_Kind == kBinary ? 2 : 1;
    }
}

bool Reader::ReadFrame(Messages& messages)
{
    const auto first = Take(1);
    if (!first || !Accept(static_cast<std::uint8_t>(*first)))
    {
        return false;
    }
    const std::uint8_t kind = *first & kKind;
    const bool control = kind >= kClose;
    const auto size = TakeSize(control);
    if (!size)
    {
        return false;
    }
    if (kind == kPing && *size > 0)
    {
        messages.exact = false;
    }
    if (*size > m_Bytes.size() - m_At)
    {
        return false;
    }
    if (kind != kPing)
    {
        // Later frames of a message come first.
        m_Held.insert(0, m_Bytes, m_At, *size);
        if (control || !m_bContinues)
        {
            messages.all.push_back({m_Held, TypeOf(kind)});
            m_Held.clear();
        }
    }
    m_At += *size;
    return true;
}

} // namespace

std::string MakeFrames(FuzzedDataProvider& input)
{
    std::string bytes;
    for (std::size_t i = 0; i != kMostFrames && input.remaining_bytes() != 0; ++i)
    {
        const auto choice = input.ConsumeIntegralInRange<std::size_t>(0, std::size(kFirstBytes));
        const auto first = choice < std::size(kFirstBytes) ? kFirstBytes[choice]
                                                           : input.ConsumeIntegral<std::uint8_t>();
        const int form = input.ConsumeIntegralInRange(0, 15);
        std::string payload;
        if (input.ConsumeIntegralInRange(0, 7) == 0)
        {
            payload = Pattern(input.ConsumeIntegralInRange<std::uint64_t>(0, kLargestPattern));
        }
        else
        {
            payload = input.ConsumeBytesAsString(input.ConsumeIntegral<std::uint8_t>());
        }
        const std::uint64_t announced =
            form == 4 ? input.ConsumeIntegral<std::uint64_t>() : payload.size();
        bytes += Header(first, announced, form) + payload;
    }
    return bytes;
}

Messages MessagesIn(const std::string& bytes)
{
    Messages messages;
    Reader reader(bytes);
    while (reader.ReadFrame(messages))
    {
    }
    return messages;
}

} // namespace fuzz
