#include "SilentTransport.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

#include "ConnectorClient.h"

namespace tavhost {

namespace {

struct PendingRequest {
    const TavConnectorGroup *group;
    TavHttpResponseCallBack callback;
    TavHttpResponseContext *passback;
};
std::mutex pendingMutex;
std::vector<PendingRequest> pendingRequests;

// A report is a JSON object; the interest, which is answered as a poll is, quotes its names otherwise.
int acceptRequest(EnvConnectorClient *client, const char *, const char *, const char *body, int, TavHttpResponseCallBack callback,
                  TavHttpResponseContext *passback) {
    if (body && body[0] == '{' && body[1] != '\'') return -1;
    const std::lock_guard<std::mutex> lock(pendingMutex);
    try {
        pendingRequests.push_back({client->group, callback, passback});
    } catch (const std::bad_alloc &) {
        return -1;
    }
    return 0;
}

} // namespace

void useSilentTransport(EnvCallBacks &env) {
    env.http.connector.open = openClient;
    env.http.connector.sendRequest = acceptRequest;
    env.http.connector.freeResponse = [](TavHttpResponse *) {};
    env.http.connector.close = [](EnvConnectorClient *client) { delete client; };
}

void endSilentRequests(const TavConnectorGroup *group) {
    std::vector<PendingRequest> ended;
    {
        const std::lock_guard<std::mutex> lock(pendingMutex);
        const auto first = std::partition(pendingRequests.begin(), pendingRequests.end(),
                                          [group](const PendingRequest &request) { return request.group != group; });
        ended.assign(first, pendingRequests.end());
        pendingRequests.erase(first, pendingRequests.end());
    }
    for (const PendingRequest &request : ended) request.callback(nullptr, request.passback);
}

} // namespace tavhost
