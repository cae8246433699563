// What a server sends on one connection: responses until it ends or one does not hold together. The first byte chooses whether the
// connection is a used one.
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "FuzzTarget.h"
#include "tavHttpClient/httpResponse.h"
#include "tavHttpClient/tavHttpClient.h"

FUZZ_TARGET(fuzz_httpResponse) {
    FuzzInput input(data, size);
    const bool reused = input.pick(2) != 0;
    const std::string sent = input.rest();
    int ends[2];
    FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    FUZZ_CHECK(write(ends[1], sent.data(), sent.size()) == static_cast<ssize_t>(sent.size()));
    close(ends[1]);
    const FuzzBalance balance;
    char buffer[HTTP_BUFFER_SIZE + 1];
    InputStream stream = {ends[0], 0, 0, buffer, HTTP_BUFFER_SIZE, false, false};
    bool keepOpen = false;
    size_t bodies = 0;
    while (TavHttpResponse *response = readHttpResponse(&stream, reused, &keepOpen)) {
        bodies += strlen(response->body);
        tavHttpClientFreeResponse(response);
    }
    FUZZ_CHECK(bodies <= sent.size());
    close(ends[0]);
    return 0;
}
