// Fetches several URLs at once on one engine.
//
//   fetch [--ca FILE] [--too-early] URL...
//
// With --too-early it first shows what a refused request looks like.

#include "common/Request.h"
#include "common/Session.h"
#include "FetchNotic.h"

#include <base/base.h>

#include <cstdio>
#include <cstring>
#include <vector>

int main(int argc, char** argv)
{
    const char* caFile = nullptr;
    bool tooEarly = false;
    int first = 1;
    for (; first < argc && std::strncmp(argv[first], "--", 2) == 0; ++first)
    {
        if (std::strcmp(argv[first], "--ca") == 0 && first + 1 < argc)
        {
            caFile = argv[++first];
        }
        else if (std::strcmp(argv[first], "--too-early") == 0)
        {
            tooEarly = true;
        }
        else
        {
            first = argc;
        }
    }
    if (first >= argc)
    {
        std::fprintf(stderr, "usage: fetch [--ca FILE] [--too-early] URL...\n");
        return 2;
    }

    const auto notic = std::make_shared<FetchNotic>();
    std::vector<std::shared_ptr<http_interface::IHttpHandleInterface>> requests;
    for (int i = first; i < argc; ++i)
    {
        requests.push_back(MakeRequest(argv[i], kGet, notic, caFile));
    }

    Session session;
    if (tooEarly)
    {
        std::printf("An engine that does not run yet refuses a request; AddHttpReq returns -1:\n");
        std::fflush(stdout);
        session.Add(requests.front());
    }
    if (!session.Start())
    {
        return 1;
    }
    std::printf("%d requests at once, from the host's thread %ld:\n", argc - first, base::GetTid());
    std::printf("%-46s %4s %8s %9s %6s %8s\n", "URL", "done", "response", "bytes", "ms", "thread");
    notic->Begin();
    int added = 0;
    for (const auto& request : requests)
    {
        added += session.Add(request) ? 1 : 0;
    }
    notic->WaitFor(added);
    return session.Close() && added == argc - first ? 0 : 1;
}
