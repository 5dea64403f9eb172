/// A loop is found busy when its engine closes it, and so each run of an engine
/// leaves descriptors behind. Here runs are many: what is still registered is
/// closed before the loop.

#include <uv.h>

extern "C"
{
    int __real_uv_loop_close(uv_loop_t* loop);

    int __wrap_uv_loop_close(uv_loop_t* loop)
    {
        uv_walk(
            loop,
            [](uv_handle_t* handle, void*)
            {
                if (uv_is_closing(handle) == 0)
                {
                    uv_close(handle, nullptr);
                }
            },
            nullptr);
        uv_run(loop, UV_RUN_DEFAULT);
        return __real_uv_loop_close(loop);
    }
}
