#include "CurlTransport.h"

#include <strings.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "ConnectorClient.h"
#include "CurlOptions.h"
#include "HostFault.h"

namespace tavhost {

namespace {

constexpr size_t LARGEST_BODY = size_t{1} << 30; // bytes of a response

struct Request {
    const EnvConnectorClient *client; // to be recognised; not followed
    TavHttpResponseCallBack callback;
    TavHttpResponseContext *passback;
    CURL *easy = nullptr;
    curl_slist *headers = nullptr;
    std::string body, response;

    ~Request() {
        curl_slist_free_all(headers);
        curl_easy_cleanup(easy);
    }
};
using RequestPtr = std::unique_ptr<Request>;

struct Response : TavHttpResponse {
    std::string text;
};

size_t collect(char *data, size_t, size_t size, void *passback) {
    return takePart(static_cast<Request *>(passback)->response, data, size, LARGEST_BODY);
}

// On standard error, which is the server's error log: the library tells only that there was no response.
void tellFault(CURL *easy, CURLcode result) {
    const char *url = nullptr;
    curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &url);
    fprintf(stderr, "request to %s failed: %s\n", url ? url : "the controller", curl_easy_strerror(result));
}

// Calls back with the response, or without one when there is none.
void finish(RequestPtr request, CURLcode result) {
    long status = 0;
    if (result == CURLE_OK)
        curl_easy_getinfo(request->easy, CURLINFO_RESPONSE_CODE, &status);
    else if (result != CURLE_ABORTED_BY_CALLBACK)
        tellFault(request->easy, result);
    Response *response = status != 0 ? new (std::nothrow) Response{} : nullptr;
    if (response) {
        response->responseCode = static_cast<int>(status);
        response->text = std::move(request->response);
        response->body = response->text.data();
    }
    request->callback(response, request->passback);
}

class Transport {
public:
    explicit Transport(TransportOptions options) : options_(std::move(options)), multi_(curl_multi_init()) {
        if (!multi_) throw HostFault("libcurl cannot be started");
        thread_ = std::thread([this] { run(); });
    }
    ~Transport() {
        if (thread_.joinable()) end(); // the process ends
        endAll();                      // and what came meanwhile: clients that were given up
        curl_multi_cleanup(multi_);
    }
    Transport(const Transport &) = delete;
    Transport &operator=(const Transport &) = delete;

    // Ends every request. The last call but for those that are under way in other threads.
    void end() {
        ending_ = true;
        curl_multi_wakeup(multi_);
        thread_.join();
    }

    // Throws std::bad_alloc.
    int send(const EnvConnectorClient *client, const char *method, const char *uri, const char *body, int timeout,
             TavHttpResponseCallBack callback, TavHttpResponseContext *passback) {
        auto request = std::make_unique<Request>(Request{client, callback, passback});
        if (!(request->easy = curl_easy_init())) return -1;
        if (body) request->body = body;
        prepare(*request, client->url + uri, method, timeout);
        std::list<RequestPtr> sent;
        sent.push_back(std::move(request));
        const std::lock_guard<std::mutex> lock(mutex_);
        arrived_.splice(arrived_.end(), sent);
        curl_multi_wakeup(multi_); // should it fail: the thread looks every second
        return 0;
    }

    // Takes the client. Its requests end without a response, from the transport's thread.
    void forget(EnvConnectorClient *client) {
        const std::lock_guard<std::mutex> lock(mutex_);
        client->next = forgotten_;
        forgotten_ = client;
        curl_multi_wakeup(multi_);
    }

private:
    void prepare(Request &request, const std::string &url, const char *method, int timeout) const;
    void run();
    void takeChanges();
    void takeCompleted();
    void endAll();
    template <typename Predicate>
    void drop(Predicate predicate);

    const TransportOptions options_;
    CURLM *multi_;
    std::atomic<bool> ending_{false};
    std::mutex mutex_;
    std::list<RequestPtr> arrived_;           // guarded by mutex_
    EnvConnectorClient *forgotten_ = nullptr; // guarded by mutex_
    std::list<RequestPtr> running_;           // the thread's
    std::thread thread_;
};

void Transport::prepare(Request &request, const std::string &url, const char *method, int timeout) const {
    CURL *easy = request.easy;
    curl_easy_setopt(easy, CURLOPT_PRIVATE, &request);
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    setCurlOptions(easy, options_);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT, static_cast<long>(timeout));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &request);
    if (strcasecmp(method, "GET") == 0) return;
    request.headers = curl_slist_append(request.headers, "Content-Type: application/json");
    request.headers = curl_slist_append(request.headers, "Expect:");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, request.headers);
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.c_str());
}

void Transport::run() {
    while (!ending_) {
        takeChanges();
        int running = 0;
        curl_multi_perform(multi_, &running);
        takeCompleted();
        curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
    endAll();
}

void Transport::endAll() {
    takeChanges();
    drop([](const Request &) { return true; });
}

// Both under one lock: the requests of a forgotten client are among the running ones then.
void Transport::takeChanges() {
    std::list<RequestPtr> arrived;
    EnvConnectorClient *forgotten = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        arrived.swap(arrived_);
        std::swap(forgotten, forgotten_);
    }
    for (auto at = arrived.begin(); at != arrived.end();) {
        const auto next = std::next(at);
        if (curl_multi_add_handle(multi_, (*at)->easy) == CURLM_OK) running_.splice(running_.end(), arrived, at);
        at = next;
    }
    for (RequestPtr &refused : arrived) finish(std::move(refused), CURLE_OUT_OF_MEMORY);
    while (forgotten) {
        const std::unique_ptr<EnvConnectorClient> client(std::exchange(forgotten, forgotten->next));
        drop([&client](const Request &request) { return request.client == client.get(); });
    }
}

// Callbacks are made without the mutex: they send the next request.
template <typename Predicate>
void Transport::drop(Predicate predicate) {
    std::list<RequestPtr> dropped;
    for (auto at = running_.begin(); at != running_.end();) {
        const auto next = std::next(at);
        if (predicate(**at)) dropped.splice(dropped.end(), running_, at);
        at = next;
    }
    for (RequestPtr &request : dropped) {
        curl_multi_remove_handle(multi_, request->easy);
        finish(std::move(request), CURLE_ABORTED_BY_CALLBACK);
    }
}

void Transport::takeCompleted() {
    int left = 0;
    while (CURLMsg *message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURLcode result = message->data.result;
        Request *done = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &done);
        curl_multi_remove_handle(multi_, done->easy);
        const auto at = std::find_if(running_.begin(), running_.end(), [done](const RequestPtr &request) { return request.get() == done; });
        RequestPtr request = std::move(*at);
        running_.erase(at);
        finish(std::move(request), result);
    }
}

// Of the process. Who has got it may go on with it while it is taken away.
std::mutex transportMutex;
std::shared_ptr<Transport> transport; // guarded by transportMutex

std::shared_ptr<Transport> currentTransport() {
    const std::lock_guard<std::mutex> lock(transportMutex);
    return transport;
}

// ---- the library calls these: nothing is thrown through it ----

int sendRequest(EnvConnectorClient *client, const char *method, const char *uri, const char *body, int timeout,
                TavHttpResponseCallBack callback, TavHttpResponseContext *passback) try {
    const std::shared_ptr<Transport> current = currentTransport();
    return current ? current->send(client, method, uri, body, timeout, callback, passback) : -1;
} catch (const std::bad_alloc &) {
    return -1;
}

void closeClient(EnvConnectorClient *client) {
    if (const std::shared_ptr<Transport> current = currentTransport())
        current->forget(client);
    else
        delete client;
}

} // namespace

void useCurlTransport(EnvCallBacks &env, const TransportOptions &options) {
    startCurl();
    endCurlRequests();
    const auto started = std::make_shared<Transport>(options);
    {
        const std::lock_guard<std::mutex> lock(transportMutex);
        transport = started;
    }
    env.http.connector.open = openClient;
    env.http.connector.sendRequest = sendRequest;
    env.http.connector.freeResponse = [](TavHttpResponse *response) { delete static_cast<Response *>(response); };
    env.http.connector.close = closeClient;
}

void endCurlRequests() {
    std::shared_ptr<Transport> ended;
    {
        const std::lock_guard<std::mutex> lock(transportMutex);
        ended.swap(transport);
    }
    if (ended) ended->end();
}

} // namespace tavhost
