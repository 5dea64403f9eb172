#include "stress/Content.h"

#include "support/Pattern.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace stress
{

std::string BytesOf(std::uint64_t id, std::size_t size)
{
    std::string bytes(size, '\0');
    test::FillPattern(bytes.data(), static_cast<std::size_t>(id * 977 % 65521), size);
    const std::string name = std::to_string(id) + ' ';
    const std::size_t shown = std::min(name.size(), size);
    bytes.replace(0, shown, name, 0, shown);
    return bytes;
}

std::string TextOf(std::uint64_t id, std::size_t size)
{
    std::string text = BytesOf(id, size);
    for (char& c : text)
    {
        c = static_cast<char>('a' + static_cast<unsigned char>(c) % 26);
    }
    return std::to_string(id) + '-' + text;
}

std::string ContentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

namespace stored
{

constexpr std::uint64_t kFiles = 8;

std::uint64_t NumberOf(std::uint64_t id)
{
    return id % kFiles;
}

std::string Content(std::uint64_t number)
{
    return BytesOf(number, 10000 + number * 1000);
}

void Check(const std::string& directory, Ledger& ledger)
{
    for (std::uint64_t number = 0; number < kFiles; ++number)
    {
        const std::string path = directory + "/stress-" + std::to_string(number);
        if (!std::filesystem::exists(path))
        {
            continue; // no upload of it was finished
        }
        const std::string content = ContentOf(path);
        if (content != Content(number))
        {
            ledger.Differ("wrong content of the uploaded " + path);
            continue;
        }
        ledger.Noted(Notice::VerifiedBody);
        ledger.Noted(Notice::VerifiedBytes, content.size());
    }
}

} // namespace stored
} // namespace stress
