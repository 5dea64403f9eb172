// Uploads a file with a progress bar.
//
//   upload URL FILE

#include "common/Request.h"
#include "common/Session.h"
#include "UploadNotic.h"

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: upload URL FILE\n");
        return 2;
    }
    const auto notic = std::make_shared<UploadNotic>(argv[2]);
    const std::int64_t size = notic->Size();
    if (size < 0)
    {
        std::fprintf(stderr, "upload: %s can't be read\n", argv[2]);
        return 1;
    }
    Session session;
    const auto request = MakeRequest(argv[1], kUpload, notic);
    if (request->SetUploadSize(size) != 0 || request->SetProgress(true) != 0 || !session.Start())
    {
        return 1;
    }
    std::printf("upload   [");
    if (!session.Add(request))
    {
        return 1;
    }
    notic->WaitFor(1);
    std::printf("] %ld bytes, answered %ld\n", static_cast<long>(size), request->GetResponseCode());
    return session.Close() ? 0 : 1;
}
