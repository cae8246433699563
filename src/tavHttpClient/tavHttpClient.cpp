// The client: its socket, its request, its life.
//
// One thread at a time runs a request, without the lock, and is the only one to open and close the socket meanwhile; another thread may
// only ask it to end, by closing the client. The lock guards that hand-over: between requests a close closes, during one it shuts the
// socket down, so that a descriptor is never closed while a read may be using it.
//
// A failure closes the socket and the next request connects again; nothing is retried. What a keep-alive server says while no request runs
// is not looked at, so a server that went away is noticed by the next request, as its failure.
#include "tavHttpClient/tavHttpClient.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tavHttpClient/httpResponse.h"
#include "tavUrl/tavUrl.h"
#include "tavUtil/tavMemory.h"

namespace {

struct UrlDeleter {
    void operator()(TavUrl *url) const noexcept { tavUrlDelete(url); }
};

bool resolve(const char *host, in_addr *address) noexcept {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0) return false;
    if (found) *address = reinterpret_cast<const sockaddr_in *>(found->ai_addr)->sin_addr;
    freeaddrinfo(found);
    return found != nullptr;
}

// ---- the socket ----

void closeSocket(TavHttpClient *client) noexcept TAV_REQUIRES(client->lock) {
    if (client->fd < 0) return;
    close(client->fd);
    client->fd = -1;
    client->timeoutInSecs = -1; // a new socket has no time-out
}

// Gives the client its socket, unless it was closed meanwhile.
bool adoptSocket(TavHttpClient *client, int fd) noexcept {
    TavLockGuard guard(&client->lock, "tavHttpClientConnect");
    client->fd = fd;
    return !client->aborted;
}

bool connectClient(TavHttpClient *client) noexcept {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        printf("socket create failed: %d\n", errno);
        return false;
    }
    if (!adoptSocket(client, fd)) return false;
    if (connect(fd, reinterpret_cast<const sockaddr *>(&client->dst), sizeof(client->dst)) == 0) return true;
    printf("connect failed to %s:%d: %d\n", client->host, ntohs(client->dst.sin_port), errno);
    return false;
}

bool applyTimeout(TavHttpClient *client, int timeoutInSecs) noexcept {
    if (timeoutInSecs == client->timeoutInSecs) return true;
    const timeval timeout = {timeoutInSecs, 0};
    if (setsockopt(client->fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0) {
        printf("setsockopt SO_RCVTIMEO failed; errno=%d\n", errno);
        return false;
    }
    client->timeoutInSecs = timeoutInSecs;
    return true;
}

// ---- the request ----

bool sendAll(int fd, const char *data, size_t size) noexcept {
    while (size > 0) {
        const ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 1) return false;
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

// A line end in a name would let it write headers of its own.
bool isOneLine(const char *text) noexcept {
    for (; *text; ++text) {
        if (static_cast<unsigned char>(*text) < ' ' || *text == 0x7f) return false;
    }
    return true;
}

// Writes the head into `buffer`; its length, or -1 when it does not fit: a head that is cut short is never sent.
int formatHead(char *buffer, size_t size, const TavHttpClient *client, const char *method, const char *uri, const char *body) noexcept {
    const size_t length = body ? strlen(body) : 0;
    if (length > INT_MAX || !isOneLine(method) || !isOneLine(uri)) return -1;
    const int written =
        body ? snprintf(buffer, size,
                        "%s %s HTTP/1.1\r\nHost: %s\r\nContent-Type: application/json\r\nAccept: application/json\r\n"
                        "Content-Length: %d\r\n\r\n",
                        method, uri, client->host, static_cast<int>(length))
             : snprintf(buffer, size, "%s %s HTTP/1.1\r\nHost: %s\r\nAccept: application/json\r\n\r\n", method, uri, client->host);
    return written < 0 || static_cast<size_t>(written) >= size ? -1 : written;
}

TavHttpResponse *exchange(TavHttpClient *client, const char *method, const char *uri, const char *body, int timeoutInSecs,
                          bool *keepOpen) noexcept {
    const bool reused = client->fd >= 0;
    if ((!reused && !connectClient(client)) || !applyTimeout(client, timeoutInSecs)) return nullptr;
    char buffer[HTTP_BUFFER_SIZE + 1];
    const int headLength = formatHead(buffer, sizeof(buffer), client, method, uri, body);
    if (headLength < 0 || !sendAll(client->fd, buffer, static_cast<size_t>(headLength))) return nullptr;
    if (body && !sendAll(client->fd, body, strlen(body))) return nullptr;
    InputStream stream = {client->fd, 0, 0, buffer, HTTP_BUFFER_SIZE, false, false};
    return readHttpResponse(&stream, reused, keepOpen);
}

// FALSE: the client was closed after the request was announced.
bool beginRequest(TavHttpClient *client) noexcept {
    TavLockGuard guard(&client->lock, "tavHttpClientGetResponse");
    client->busy = TRUE;
    return !client->aborted;
}

void endRequest(TavHttpClient *client, bool keepOpen) noexcept {
    TavLockGuard guard(&client->lock, "tavHttpClientGetResponse");
    if (client->aborted || !keepOpen) closeSocket(client);
    client->busy = FALSE;
    client->aborted = FALSE;
}

} // namespace

TavHttpClient *tavHttpClientCreate(const char *url) noexcept {
    std::unique_ptr<TavUrl, UrlDeleter> parsed(tavUrlCreate(url));
    if (!parsed) return nullptr;
    const int port = tavUrlGetPort(parsed.get());
    const char *host = tavUrlGetHost(parsed.get());
    if (port < 1 || port > 65535) return nullptr;
    in_addr address{};
    if (!resolve(host, &address)) {
        printf("unable to resolve hostname '%s' of '%s'\n", host, url);
        return nullptr;
    }
    auto *client = tavNewRecord<TavHttpClient>();
    if (!client) return nullptr;
    tavLockInit(&client->lock, TavLockRank::Leaf);
    client->fd = -1;
    client->timeoutInSecs = -1;
    client->dst.sin_family = AF_INET;
    client->dst.sin_port = htons(static_cast<uint16_t>(port));
    client->dst.sin_addr = address;
    client->host = tavStrdup(host);
    if (client->host) return client;
    tavHttpClientDelete(client);
    return nullptr;
}

TavHttpResponse *tavHttpClientGetResponse(TavHttpClient *client, const char *method, const char *uri, const char *body,
                                          int timeoutInSecs) noexcept {
    if (!client || !method || !uri) return nullptr;
    bool keepOpen = false;
    TavHttpResponse *response = nullptr;
    if (beginRequest(client)) response = exchange(client, method, uri, body, timeoutInSecs, &keepOpen);
    endRequest(client, response && keepOpen);
    return response;
}

void tavHttpClientFreeResponse(TavHttpResponse *response) noexcept { tavFree(response); }

void tavHttpClientAnnounce(TavHttpClient *client) noexcept {
    TavLockGuard guard(&client->lock, "tavHttpClientAnnounce");
    client->busy = TRUE;
}

void tavHttpClientRetract(TavHttpClient *client) noexcept { endRequest(client, true); }

void tavHttpClientClose(TavHttpClient *client) noexcept {
    if (!client) return;
    TavLockGuard guard(&client->lock, "tavHttpClientClose");
    if (!client->busy) return closeSocket(client);
    client->aborted = TRUE;
    if (client->fd >= 0) shutdown(client->fd, SHUT_RDWR);
}

void tavHttpClientDelete(TavHttpClient *client) noexcept {
    if (!client) return;
    tavHttpClientClose(client);
    tavFree(client->host);
    tavLockFini(&client->lock);
    tavDestroyRecord(client);
}

int tavHttpClientTest(const char *url, const char *uri) noexcept {
    TavHttpClient *client = tavHttpClientCreate(url);
    TavHttpResponse *response = tavHttpClientGetResponse(client, "GET", uri, nullptr, 10);
    const int result = response ? 0 : -1;
    if (response) printf("%d: '%s'\n", response->responseCode, response->body);
    tavHttpClientFreeResponse(response);
    tavHttpClientDelete(client);
    return result;
}
