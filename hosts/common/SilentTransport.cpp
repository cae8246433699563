#include "SilentTransport.h"

#include <mutex>
#include <vector>

struct EnvConnectorClient {
    char unused;
};

namespace tavhost {

namespace {

struct PendingRequest {
    TavHttpResponseCallBack callback;
    TavHttpResponseContext *passback;
};
std::mutex pendingMutex;
std::vector<PendingRequest> pendingRequests;

int acceptRequest(EnvConnectorClient *, const char *, const char *, const char *, int, TavHttpResponseCallBack callback,
                  TavHttpResponseContext *passback) {
    const std::lock_guard<std::mutex> lock(pendingMutex);
    pendingRequests.push_back({callback, passback});
    return 0;
}

} // namespace

void useSilentTransport(EnvCallBacks &env) {
    env.http.connector.open = [](TavConnector *) { return new EnvConnectorClient; };
    env.http.connector.sendRequest = acceptRequest;
    env.http.connector.freeResponse = [](TavHttpResponse *) {};
    env.http.connector.close = [](EnvConnectorClient *client) { delete client; };
}

void endSilentRequests() {
    std::vector<PendingRequest> ended;
    {
        const std::lock_guard<std::mutex> lock(pendingMutex);
        ended.swap(pendingRequests);
    }
    for (const PendingRequest &request : ended) request.callback(nullptr, request.passback);
}

} // namespace tavhost
