#pragma once

#include "module/HttpLog.h"

#include <curl/curl.h>
#include <uv.h>

namespace http_interface
{

/// True when a libuv call succeeded. A failed one is logged: the line's format
/// takes libuv's code and text.
inline bool CheckUv(int code, const char* failure)
{
    if (code != 0)
    {
        HttpLog(LOG_LEVEL_ERROR, failure, code, uv_strerror(code));
    }
    return code == 0;
}

/// The same for a call of libcurl's multi interface.
inline bool CheckMulti(CURLMcode code, const char* failure)
{
    if (code != CURLM_OK)
    {
        HttpLog(LOG_LEVEL_ERROR, failure, static_cast<int>(code), curl_multi_strerror(code));
    }
    return code == CURLM_OK;
}

/// The same for a call of libcurl's easy interface.
inline bool CheckEasy(CURLcode code, const char* failure)
{
    if (code != CURLE_OK)
    {
        HttpLog(LOG_LEVEL_ERROR, failure, static_cast<int>(code), curl_easy_strerror(code));
    }
    return code == CURLE_OK;
}

} // namespace http_interface
