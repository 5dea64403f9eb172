#pragma once

/// One hook for each wrapped function. Of the functions with variable
/// arguments the hook sees the one argument as the 64 bits that it travels in.

#include "wrap/Hook.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <curl/curl.h>
#include <uv.h>

// libcurl lays macros that check types over its variadic functions.
#undef curl_easy_getinfo
#undef curl_easy_setopt
#undef curl_multi_setopt

namespace test::hooks
{

Hook<CURLcode(long)>& curl_global_init();
Hook<void()>& curl_global_cleanup();
Hook<CURL*()>& curl_easy_init();
Hook<void(CURL*)>& curl_easy_cleanup();
Hook<CURLM*()>& curl_multi_init();
Hook<CURLMcode(CURLM*, CURL*)>& curl_multi_add_handle();
Hook<CURLMcode(CURLM*, CURL*)>& curl_multi_remove_handle();
Hook<CURLMcode(CURLM*, curl_socket_t, int, int*)>& curl_multi_socket_action();
Hook<CURLMcode(CURLM*, curl_socket_t, void*)>& curl_multi_assign();
Hook<CURLMsg*(CURLM*, int*)>& curl_multi_info_read();
Hook<CURLMcode(CURLM*)>& curl_multi_cleanup();
Hook<curl_slist*(curl_slist*, const char*)>& curl_slist_append();
Hook<void(curl_slist*)>& curl_slist_free_all();
Hook<CURLcode(CURL*, const void*, size_t, size_t*, curl_off_t, unsigned int)>& curl_ws_send();
Hook<const curl_ws_frame*(CURL*)>& curl_ws_meta();
Hook<int(std::FILE*)>& fclose();
Hook<int(uv_loop_t*)>& uv_loop_init();
Hook<int(uv_loop_t*)>& uv_loop_close();
Hook<int(uv_loop_t*, uv_run_mode)>& uv_run();
Hook<int(uv_loop_t*, uv_async_t*, uv_async_cb)>& uv_async_init();
Hook<int(uv_async_t*)>& uv_async_send();
Hook<int(uv_loop_t*, uv_timer_t*)>& uv_timer_init();
Hook<int(uv_timer_t*, uv_timer_cb, uint64_t, uint64_t)>& uv_timer_start();
Hook<int(uv_timer_t*)>& uv_timer_stop();
Hook<int(uv_timer_t*)>& uv_timer_again();
Hook<int(uv_loop_t*, uv_prepare_t*)>& uv_prepare_init();
Hook<int(uv_prepare_t*, uv_prepare_cb)>& uv_prepare_start();
Hook<int(uv_prepare_t*)>& uv_prepare_stop();
Hook<int(uv_loop_t*, uv_poll_t*, uv_os_sock_t)>& uv_poll_init_socket();
Hook<int(uv_poll_t*, int, uv_poll_cb)>& uv_poll_start();
Hook<int(uv_poll_t*)>& uv_poll_stop();
Hook<void(uv_handle_t*, uv_close_cb)>& uv_close();

Hook<CURLcode(CURL*, CURLoption, void*)>& curl_easy_setopt();
Hook<CURLMcode(CURLM*, CURLMoption, void*)>& curl_multi_setopt();
Hook<CURLcode(CURL*, CURLINFO, void*)>& curl_easy_getinfo();

} // namespace test::hooks

namespace test
{

/// malloc fails where the function says so, from construction to destruction.
class MemoryRefused
{
public:
    explicit MemoryRefused(bool (*refuses)(std::size_t size));
    ~MemoryRefused();
    MemoryRefused(const MemoryRefused&) = delete;
    MemoryRefused& operator=(const MemoryRefused&) = delete;
};

} // namespace test
