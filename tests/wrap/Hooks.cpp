#include "wrap/Hooks.h"

#include <atomic>
#include <cstdarg>
#include <new>

namespace test
{
namespace
{

/// An object that is never destroyed, since threads may outlive main, and that
/// takes no memory from `new`, which a test may be counting.
template <typename Object>
class Lasting
{
public:
    template <typename... Args>
    explicit Lasting(const Args&... args) : m_Object(*new (m_Memory) Object(args...))
    {
    }

    Object& Get() { return m_Object; }

private:
    alignas(Object) unsigned char m_Memory[sizeof(Object)];
    Object& m_Object;
};

} // namespace
} // namespace test

// What the linker puts in the place of `name`, and under `real` the original.
#define HTTP_INTERFACE_HOOK(result, name, parameters, arguments, subject, detail)                  \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters;                                                    \
    result __wrap_##name parameters                                                                \
    {                                                                                              \
        test::CallRecorder::Note(#name, subject, detail);                                          \
        return test::hooks::name().Run arguments;                                                  \
    }                                                                                              \
    namespace test::hooks                                                                          \
    {                                                                                              \
    Hook<result parameters>& name()                                                                \
    {                                                                                              \
        static Lasting<Hook<result parameters>> hook(#name, __real_##name);                        \
        return hook.Get();                                                                         \
    }                                                                                              \
    }

// The same for a function that takes one variable argument after `option`, an
// enumeration: taken as an int, since the argument before `...` must not be one
// that is promoted.
#define HTTP_INTERFACE_VARIADIC_HOOK(result, name, Handle, Option)                                 \
    extern "C" result __real_##name(Handle, Option, ...);                                          \
    extern "C" result __wrap_##name(Handle, int, ...);                                             \
    result __wrap_##name(Handle handle, int option, ...)                                           \
    {                                                                                              \
        test::CallRecorder::Note(#name, handle, option);                                           \
        va_list args;                                                                              \
        va_start(args, option);                                                                    \
        void* const value = va_arg(args, void*);                                                   \
        va_end(args);                                                                              \
        return test::hooks::name().Run(handle, static_cast<Option>(option), value);                \
    }                                                                                              \
    namespace test::hooks                                                                          \
    {                                                                                              \
    Hook<result(Handle, Option, void*)>& name()                                                    \
    {                                                                                              \
        static Lasting<Hook<result(Handle, Option, void*)>> hook(                                  \
            #name, [](Handle handle, Option option, void* value)                                   \
            { return __real_##name(handle, option, value); });                                     \
        return hook.Get();                                                                         \
    }                                                                                              \
    }

HTTP_INTERFACE_HOOK(CURLcode, curl_global_init, (long flags), (flags), nullptr, flags)
HTTP_INTERFACE_HOOK(void, curl_global_cleanup, (), (), nullptr, 0)
HTTP_INTERFACE_HOOK(CURL*, curl_easy_init, (), (), nullptr, 0)
HTTP_INTERFACE_HOOK(void, curl_easy_cleanup, (CURL * easy), (easy), easy, 0)
HTTP_INTERFACE_HOOK(CURLM*, curl_multi_init, (), (), nullptr, 0)
HTTP_INTERFACE_HOOK(CURLMcode, curl_multi_add_handle, (CURLM * multi, CURL* easy), (multi, easy),
                    easy, 0)
HTTP_INTERFACE_HOOK(CURLMcode, curl_multi_remove_handle, (CURLM * multi, CURL* easy), (multi, easy),
                    easy, 0)
HTTP_INTERFACE_HOOK(CURLMcode, curl_multi_socket_action,
                    (CURLM * multi, curl_socket_t s, int flags, int* running),
                    (multi, s, flags, running), multi, flags)
HTTP_INTERFACE_HOOK(CURLMcode, curl_multi_assign, (CURLM * multi, curl_socket_t s, void* record),
                    (multi, s, record), record, 0)
HTTP_INTERFACE_HOOK(CURLMsg*, curl_multi_info_read, (CURLM * multi, int* left), (multi, left),
                    multi, 0)
HTTP_INTERFACE_HOOK(CURLMcode, curl_multi_cleanup, (CURLM * multi), (multi), multi, 0)
HTTP_INTERFACE_HOOK(curl_slist*, curl_slist_append, (curl_slist * list, const char* text),
                    (list, text), list, 0)
HTTP_INTERFACE_HOOK(void, curl_slist_free_all, (curl_slist * list), (list), list, 0)
HTTP_INTERFACE_HOOK(CURLcode, curl_ws_send,
                    (CURL * easy, const void* data, size_t size, size_t* sent, curl_off_t fragment,
                     unsigned int flags),
                    (easy, data, size, sent, fragment, flags), easy, static_cast<long>(flags))
HTTP_INTERFACE_HOOK(const curl_ws_frame*, curl_ws_meta, (CURL * easy), (easy), easy, 0)
HTTP_INTERFACE_HOOK(int, fclose, (std::FILE * file), (file), file, 0)
HTTP_INTERFACE_HOOK(int, uv_loop_init, (uv_loop_t * loop), (loop), loop, 0)
HTTP_INTERFACE_HOOK(int, uv_loop_close, (uv_loop_t * loop), (loop), loop, 0)
HTTP_INTERFACE_HOOK(int, uv_run, (uv_loop_t * loop, uv_run_mode mode), (loop, mode), loop, mode)
HTTP_INTERFACE_HOOK(int, uv_async_init, (uv_loop_t * loop, uv_async_t* handle, uv_async_cb cb),
                    (loop, handle, cb), handle, 0)
HTTP_INTERFACE_HOOK(int, uv_async_send, (uv_async_t * handle), (handle), handle, 0)
HTTP_INTERFACE_HOOK(int, uv_timer_init, (uv_loop_t * loop, uv_timer_t* handle), (loop, handle),
                    handle, 0)
HTTP_INTERFACE_HOOK(int, uv_timer_start,
                    (uv_timer_t * handle, uv_timer_cb cb, uint64_t timeoutMs, uint64_t repeatMs),
                    (handle, cb, timeoutMs, repeatMs), handle, static_cast<long>(timeoutMs))
HTTP_INTERFACE_HOOK(int, uv_timer_stop, (uv_timer_t * handle), (handle), handle, 0)
HTTP_INTERFACE_HOOK(int, uv_timer_again, (uv_timer_t * handle), (handle), handle, 0)
HTTP_INTERFACE_HOOK(int, uv_prepare_init, (uv_loop_t * loop, uv_prepare_t* handle), (loop, handle),
                    handle, 0)
HTTP_INTERFACE_HOOK(int, uv_prepare_start, (uv_prepare_t * handle, uv_prepare_cb cb), (handle, cb),
                    handle, 0)
HTTP_INTERFACE_HOOK(int, uv_prepare_stop, (uv_prepare_t * handle), (handle), handle, 0)
HTTP_INTERFACE_HOOK(int, uv_poll_init_socket, (uv_loop_t * loop, uv_poll_t* handle, uv_os_sock_t s),
                    (loop, handle, s), handle, 0)
HTTP_INTERFACE_HOOK(int, uv_poll_start, (uv_poll_t * handle, int events, uv_poll_cb cb),
                    (handle, events, cb), handle, events)
HTTP_INTERFACE_HOOK(int, uv_poll_stop, (uv_poll_t * handle), (handle), handle, 0)
HTTP_INTERFACE_HOOK(void, uv_close, (uv_handle_t * handle, uv_close_cb cb), (handle, cb), handle,
                    cb != nullptr ? 1 : 0)

HTTP_INTERFACE_VARIADIC_HOOK(CURLcode, curl_easy_setopt, CURL*, CURLoption)
HTTP_INTERFACE_VARIADIC_HOOK(CURLMcode, curl_multi_setopt, CURLM*, CURLMoption)
HTTP_INTERFACE_VARIADIC_HOOK(CURLcode, curl_easy_getinfo, CURL*, CURLINFO)

// Notes nothing and takes no lock: noting itself allocates.
extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size);

namespace test
{
namespace
{

std::atomic<bool (*)(std::size_t)> refusesMemory{nullptr};

} // namespace

MemoryRefused::MemoryRefused(bool (*refuses)(std::size_t size))
{
    refusesMemory = refuses;
}

MemoryRefused::~MemoryRefused()
{
    refusesMemory = nullptr;
}

} // namespace test

void* __wrap_malloc(std::size_t size)
{
    bool (*const refuses)(std::size_t) = test::refusesMemory;
    return refuses != nullptr && refuses(size) ? nullptr : __real_malloc(size);
}
