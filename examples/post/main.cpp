// Posts a text with a header line of its own and prints the answer.
//
//   post URL TEXT

#include "common/Request.h"
#include "common/RequestNotic.h"
#include "common/Session.h"

#include <cstdio>
#include <list>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: post URL TEXT\n");
        return 2;
    }
    Session session;
    const auto notic = std::make_shared<RequestNotic>();
    const auto request = MakeRequest(argv[1], kPost, notic);
    const std::list<std::string> headers{"Content-Type: text/plain"};
    if (request->SetHeaders(&headers) != 0 || request->SetPostFields(argv[2]) != 0 ||
        !session.Start() || !session.Add(request))
    {
        return 1;
    }
    notic->WaitFor(1);
    std::printf("POST     answered %ld: %s\n", request->GetResponseCode(),
                request->GetResponse().c_str());
    return session.Close() ? 0 : 1;
}
