#include "faults/EachNthCallOf.h"

namespace test
{
namespace
{

TEST_F(EachNthCallOf, uv_loop_init)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"uv_loop_init failed"};
    Fail(
        hooks::uv_loop_init(), [](uv_loop_t*) { return UV_EMFILE; }, consequence);
}

TEST_F(EachNthCallOf, uv_async_init)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"Stop async init failed", "Req async init failed",
                         "uv_loop_init failed"}; // the loop has one of its own
    Fail(
        hooks::uv_async_init(), [](uv_loop_t*, uv_async_t*, uv_async_cb) { return UV_EMFILE; },
        consequence);
}

TEST_F(EachNthCallOf, uv_async_send)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"uv_async_send failed while stop HttpFrame"};
    consequence.unheardAfter = ""; // the record waits for the next wake-up
    Fail(
        hooks::uv_async_send(), [](uv_async_t*) { return UV_EINVAL; }, consequence);
}

TEST_F(EachNthCallOf, uv_timer_init)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"uv_timer_init failed", "Init timer failed"};
    Fail(
        hooks::uv_timer_init(), [](uv_loop_t*, uv_timer_t*) { return UV_EINVAL; }, consequence);
}

TEST_F(EachNthCallOf, uv_timer_start)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"uv_timer_start[0:1] failed", "Start timer failed"};
    const auto fails = [](uv_timer_t*, uv_timer_cb, std::uint64_t, std::uint64_t)
    {
        return UV_EINVAL;
    };
    Fail(hooks::uv_timer_start(), fails, consequence, kTimerPart);

    Consequence ignored; // libcurl's timeout is lost
    ignored.unheardAfter = "";
    Fail(hooks::uv_timer_start(), fails, ignored, kRequestParts);
}

TEST_F(EachNthCallOf, uv_timer_stop)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"uv_timer_stop[0:1] failed", "stop timer failed"};
    const auto fails = [](uv_timer_t*)
    {
        return UV_EINVAL;
    };
    Fail(hooks::uv_timer_stop(), fails, consequence, kTimerPart);
    Fail(hooks::uv_timer_stop(), fails, Consequence(), kRequestParts);
}

TEST_F(EachNthCallOf, uv_timer_again)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"uv_timer_again[0:1] failed", "again timer failed"};
    Fail(
        hooks::uv_timer_again(), [](uv_timer_t*) { return UV_EINVAL; }, consequence);
}

TEST_F(EachNthCallOf, uv_poll_init_socket)
{
    Consequence consequence;
    consequence.late = true;
    Fail(
        hooks::uv_poll_init_socket(),
        [](uv_loop_t*, uv_poll_t*, uv_os_sock_t) { return UV_ENOMEM; }, consequence);
}

TEST_F(EachNthCallOf, uv_poll_start)
{
    Consequence consequence;
    consequence.late = true;
    Fail(
        hooks::uv_poll_start(), [](uv_poll_t*, int, uv_poll_cb) { return UV_EINVAL; }, consequence);
}

TEST_F(EachNthCallOf, uv_poll_stop)
{
    Fail(hooks::uv_poll_stop(), WorksButAnswers(hooks::uv_poll_stop(), UV_EINVAL), Consequence());
}

TEST_F(EachNthCallOf, uv_prepare_init)
{
    Fail(hooks::uv_prepare_init(), WorksButAnswers(hooks::uv_prepare_init(), UV_EINVAL),
         Consequence());
}

TEST_F(EachNthCallOf, uv_prepare_start)
{
    Fail(hooks::uv_prepare_start(), WorksButAnswers(hooks::uv_prepare_start(), UV_EINVAL),
         Consequence());
}

TEST_F(EachNthCallOf, uv_prepare_stop)
{
    Fail(hooks::uv_prepare_stop(), WorksButAnswers(hooks::uv_prepare_stop(), UV_EINVAL),
         Consequence());
}

TEST_F(EachNthCallOf, uv_loop_close)
{
    Fail(hooks::uv_loop_close(), WorksButAnswers(hooks::uv_loop_close(), UV_EINVAL), Consequence());
}

TEST_F(EachNthCallOf, uv_run)
{
    Consequence consequence;
    consequence.lines = {"uv_run failed"};
    consequence.leavesMulti = true;
    Fail(hooks::uv_run(), WorksButAnswers(hooks::uv_run(), UV_EIO), consequence);
}

} // namespace
} // namespace test
