// Downloads a body straight into a file.
//
//   download URL FILE

#include "common/Request.h"
#include "common/RequestNotic.h"
#include "common/Session.h"

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: download URL FILE\n");
        return 2;
    }
    Session session;
    const auto notic = std::make_shared<RequestNotic>();
    const auto request = MakeRequest(argv[1], kGet, notic);
    if (request->SetDownloadFile(argv[2]) != 0 || !session.Start() || !session.Add(request))
    {
        return 1;
    }
    notic->WaitFor(1);
    std::printf("download answered %ld, into %s; %lu bytes in memory\n", request->GetResponseCode(),
                argv[2], static_cast<unsigned long>(request->GetResponse().size()));
    return session.Close() ? 0 : 1;
}
