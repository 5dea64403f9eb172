#include "UploadNotic.h"

namespace
{

constexpr int kBarSteps = 32;

} // namespace

UploadNotic::~UploadNotic()
{
    if (m_pFile != nullptr)
    {
        std::fclose(m_pFile);
    }
}

std::int64_t UploadNotic::Size() const
{
    if (m_pFile == nullptr || std::fseek(m_pFile, 0, SEEK_END) != 0)
    {
        return -1;
    }
    const long size = std::ftell(m_pFile);
    std::rewind(m_pFile);
    return size;
}

std::size_t UploadNotic::OnReadData(std::shared_ptr<http_interface::IHttpHandleInterface>,
                                    char* buffer, std::size_t size, std::size_t nitems, void*)
{
    return std::fread(buffer, 1, size * nitems, m_pFile);
}

void UploadNotic::OnProgress(const char*, const char*, double, double, double ultotal, double ulnow,
                             void*)
{
    const int steps = ultotal > 0 ? static_cast<int>(kBarSteps * ulnow / ultotal) : 0;
    for (; m_Drawn < steps; ++m_Drawn)
    {
        std::putchar('#');
        std::fflush(stdout);
    }
}
