#pragma once

#include "module/HttpLog.h"

#include <curl/curl.h>

namespace http_interface
{

/// Sets one option of an easy handle. On failure logs the given line, whose
/// format takes libcurl's code, libcurl's text and then `args`.
template <typename Value, typename... Args>
bool SetEasyOption(CURL* easy, CURLoption option, Value value, const char* failure, Args... args)
{
    const CURLcode code = curl_easy_setopt(easy, option, value);
    if (code != CURLE_OK)
    {
        HttpLog(LOG_LEVEL_ERROR, failure, static_cast<int>(code), curl_easy_strerror(code),
                args...);
    }
    return code == CURLE_OK;
}

} // namespace http_interface
