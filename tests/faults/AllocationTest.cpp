#include "faults/EachNthCallOf.h"
#include "support/Scale.h"

namespace test
{
namespace
{

TEST_F(EachNthCallOf, NewOnTheHostsThread)
{
    Consequence consequence;
    consequence.refused = true;
    Fail(Allocator::NewOnHostThread, consequence, kAllParts);
}

// Apart, since the order among them varies, so that a call could be skipped.
TEST_F(EachNthCallOf, NewOnTheLoopThreadOfATimer)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"[HTTP_INTERFACE]Init timer failed"};
    Fail(Allocator::NewOnLoopThread, consequence, kTimerPart);
}

TEST_F(EachNthCallOf, NewOnTheLoopThreadOfADeleteInsideANotice)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.failed = true;
    Fail(Allocator::NewOnLoopThread, consequence, kDeletedPart);
}

TEST_F(EachNthCallOf, NewOnTheLoopThreadOfRequests)
{
    Consequence consequence;
    consequence.failed = true;
    Fail(Allocator::NewOnLoopThread, consequence, kAllParts & ~(kTimerPart | kDeletedPart));
}

TEST_F(EachNthCallOf, MallocInLibuv)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"uv_loop_init failed"};
    Fail(Allocator::Uv, consequence, kAllParts);
}

/// What may come of an allocation of libcurl's, whichever it is.
Consequence WithoutMemory()
{
    Consequence consequence;
    consequence.refused = true;
    consequence.deadHandle = true;
    consequence.failed = true;
    consequence.late = true;
    consequence.leavesMulti = true;
    consequence.lines = {"Out of memory]", "Invalid multi handle]", "Send len diff [5] != [0]"};
    // libcurl could not note which sockets to watch, nor when to be called next.
    consequence.unheardAfter =
        "err[3:Out of memory]curl_multi_socket_action failed while OnTimeout";
    return consequence;
}

TEST_F(EachNthCallOf, MallocInOpenSsl)
{
    // Thousands: one connection makes them all, but each run leaves the loop's
    // descriptors behind.
    constexpr int kStep = kSanitized ? 401 : 41;
    Consequence consequence = WithoutMemory();
    consequence.refused = false;
    Fail(Allocator::OpenSsl, consequence, kTlsPart, kStep);
}

class MallocInLibcurl : public EachNthCallOf,
                        public ::testing::WithParamInterface<std::pair<const char*, Part>>
{
};

TEST_P(MallocInLibcurl, EndsInAnAnswer)
{
    Fail(Allocator::Curl, WithoutMemory(), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(
    EachNthCallOf, MallocInLibcurl,
    ::testing::Values(std::pair("Get", kGetPart), std::pair("Post", kPostPart),
                      std::pair("Upload", kUploadPart), std::pair("Download", kDownloadPart),
                      std::pair("Tls", kTlsPart), std::pair("WebSocket", kWebSocketPart),
                      std::pair("Deleted", kDeletedPart), std::pair("Timer", kTimerPart)),
    [](const auto& instance) { return instance.param.first; });

} // namespace
} // namespace test
