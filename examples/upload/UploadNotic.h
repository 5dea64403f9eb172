#pragma once

#include "common/RequestNotic.h"

#include <cstdint>
#include <cstdio>

/// Supplies a file's bytes and draws a progress bar.
class UploadNotic : public RequestNotic
{
public:
    explicit UploadNotic(const char* path) : m_pFile(std::fopen(path, "rb")) {}
    ~UploadNotic() override;

    /// Bytes; -1 when the file can't be read.
    std::int64_t Size() const;

    // IHttpHandleNotic, on the loop thread:
    std::size_t OnReadData(std::shared_ptr<http_interface::IHttpHandleInterface> handle,
                           char* buffer, std::size_t size, std::size_t nitems, void* user) override;
    void OnProgress(const char* tag, const char* url, double dltotal, double dlnow, double ultotal,
                    double ulnow, void* user) override;

private:
    std::FILE* m_pFile;
    int m_Drawn = 0; ///< steps of the bar
};
