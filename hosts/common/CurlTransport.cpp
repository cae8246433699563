#include "CurlTransport.h"

#include <strings.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "CurlOptions.h"
#include "HostInstance.h"

struct EnvConnectorClient {
    std::string url;
};

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
    auto *request = static_cast<Request *>(passback);
    if (size > LARGEST_BODY - request->response.size()) return 0;
    request->response.append(data, size);
    return size;
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
    Response *response = nullptr;
    if (status != 0) {
        response = new Response{};
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
        ending_ = true;
        curl_multi_wakeup(multi_);
        thread_.join();
        endAll(); // and what the thread's own end brought: clients that were given up
        curl_multi_cleanup(multi_);
    }
    Transport(const Transport &) = delete;
    Transport &operator=(const Transport &) = delete;

    int send(const EnvConnectorClient *client, const char *method, const char *uri, const char *body, int timeout,
             TavHttpResponseCallBack callback, TavHttpResponseContext *passback) {
        auto request = std::make_unique<Request>(Request{client, callback, passback});
        if (!(request->easy = curl_easy_init())) return -1;
        if (body) request->body = body;
        prepare(*request, client->url + uri, method, timeout);
        const std::lock_guard<std::mutex> lock(mutex_);
        arrived_.push_back(std::move(request));
        curl_multi_wakeup(multi_); // should it fail: the thread looks every second
        return 0;
    }

    // The client's requests end without a response, from the transport's thread.
    void forget(const EnvConnectorClient *client) {
        const std::lock_guard<std::mutex> lock(mutex_);
        forgotten_.push_back(client);
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
    std::vector<RequestPtr> arrived_;                   // guarded by mutex_
    std::vector<const EnvConnectorClient *> forgotten_; // guarded by mutex_
    std::list<RequestPtr> running_;                     // the thread's
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
    std::vector<RequestPtr> arrived;
    std::vector<const EnvConnectorClient *> forgotten;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        arrived.swap(arrived_);
        forgotten.swap(forgotten_);
    }
    for (RequestPtr &request : arrived) {
        curl_multi_add_handle(multi_, request->easy);
        running_.push_back(std::move(request));
    }
    for (const EnvConnectorClient *client : forgotten) {
        drop([client](const Request &request) { return request.client == client; });
        delete client;
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

std::unique_ptr<Transport> transport; // of the process; replaced while no instance runs

int sendRequest(EnvConnectorClient *client, const char *method, const char *uri, const char *body, int timeout,
                TavHttpResponseCallBack callback, TavHttpResponseContext *passback) {
    return transport ? transport->send(client, method, uri, body, timeout, callback, passback) : -1;
}

void closeClient(EnvConnectorClient *client) {
    if (transport)
        transport->forget(client);
    else
        delete client;
}

} // namespace

void useCurlTransport(EnvCallBacks &env, const TransportOptions &options) {
    startCurl();
    transport = std::make_unique<Transport>(options);
    env.http.connector.open = [](TavConnector *connector) { return new EnvConnectorClient{tavConnectorGetURL(connector)}; };
    env.http.connector.sendRequest = sendRequest;
    env.http.connector.freeResponse = [](TavHttpResponse *response) { delete static_cast<Response *>(response); };
    env.http.connector.close = closeClient;
}

void endCurlRequests() { transport.reset(); }

} // namespace tavhost
