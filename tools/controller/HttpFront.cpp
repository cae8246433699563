#include "HttpFront.h"

#include <fmt/format.h>
#include <microhttpd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ListenSocket.h"
#include "support/Fault.h"

namespace controller {

namespace {

constexpr size_t CONNECTION_MEMORY = 4096;     // bytes; a request's head and its answer's
constexpr size_t LARGEST_BODY = 64 << 20;      // a report of every route after a large document
constexpr size_t LARGEST_BODIES = 256 << 20;   // that are read at a time
constexpr unsigned FIRST_REQUEST_TIMEOUT = 30; // s; later ones may take as long as they like: reports come seldom
constexpr std::chrono::seconds HANG_UP_INTERVAL{5};
constexpr unsigned SPARE_DESCRIPTORS = 64;

// Every connection needs a descriptor: as many as the system lets us have.
unsigned connectionLimit() {
    rlimit limit{1024, 1024};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        getrlimit(RLIMIT_NOFILE, &limit);
    }
    return static_cast<unsigned>(std::clamp<rlim_t>(limit.rlim_cur, 2 * SPARE_DESCRIPTORS, 1 << 20)) - SPARE_DESCRIPTORS;
}

std::string errorBody(const std::string &text) {
    tavctl::Json json(json_object());
    json_object_set_new(json.get(), "error", tavctl::jsonText(text.c_str()));
    return tavctl::jsonLine(json.get());
}

using BytesPtr = std::shared_ptr<const AnswerBytes>;

// One response for every poller that gets the answer; it keeps the bytes as long as one of them is being sent.
MHD_Response *responseOf(Answer &answer) {
    if (answer.made) return static_cast<MHD_Response *>(answer.made.get());
    MHD_IoVec pieces[3];
    unsigned count = 0;
    for (const std::string_view piece : answer.bytes->pieces) {
        if (!piece.empty()) pieces[count++] = {piece.data(), piece.size()};
    }
    auto *owner = new BytesPtr(answer.bytes);
    MHD_Response *response = MHD_create_response_from_iovec(
        pieces, count, [](void *bytes) { delete static_cast<BytesPtr *>(bytes); }, owner);
    if (!response) {
        delete owner;
        return nullptr;
    }
    MHD_add_response_header(response, "Content-Type", "application/json");
    answer.made = std::shared_ptr<void>(response, [](void *made) { MHD_destroy_response(static_cast<MHD_Response *>(made)); });
    return response;
}

} // namespace

// What a request asks for. The library puts "&vid=..." behind its path even if that has no "?".
struct HttpFront::Query {
    std::string path;
    std::string server;
    std::optional<int64_t> vid;
    int wait = 0;
    bool everyPoller = false;

    void take(std::string_view key, const char *value) {
        if (!value) value = "";
        if (key == "vid") vid = std::strtoll(value, nullptr, 10);
        if (key == "wait") wait = static_cast<int>(std::clamp<long long>(std::strtoll(value, nullptr, 10), 0, INT32_MAX));
        if (key == "name") server = value;
        if (key == "pollers") everyPoller = std::strcmp(value, "all") == 0;
    }
};

// ---- libmicrohttpd calls these ----

struct FrontCallbacks {
    static MHD_Result handle(void *front, MHD_Connection *connection, const char *url, const char *method, const char *, const char *data,
                             size_t *size, void **context) {
        const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        auto *poller = info ? static_cast<Poller *>(info->socket_context) : nullptr;
        if (!poller) return MHD_NO;
        if (!*context) {
            *context = poller; // the head alone; the body comes next
            return MHD_YES;
        }
        try {
            return static_cast<HttpFront *>(front)->handle(poller, url, method, data, size) ? MHD_YES : MHD_NO;
        } catch (const std::bad_alloc &) {
            return MHD_NO;
        }
    }
    static void completed(void *front, MHD_Connection *, void **context, MHD_RequestTerminationCode) {
        if (auto *poller = static_cast<Poller *>(*context)) static_cast<HttpFront *>(front)->dropBody(poller);
        *context = nullptr;
    }
    static void connected(void *front, MHD_Connection *connection, void **context, MHD_ConnectionNotificationCode code) {
        if (code == MHD_CONNECTION_NOTIFY_STARTED)
            static_cast<HttpFront *>(front)->opened(connection, context);
        else if (*context)
            static_cast<HttpFront *>(front)->closed(static_cast<Poller *>(*context));
    }
};

HttpFront::HttpFront(DocumentStore &store, Events &events, const FrontOptions &options)
    : store_(store), events_(events), options_(options), taken_(makeAnswer("{}")) {
    const ListenSocket socket = listenAt(options.listen);
    url_ = socket.url;
    daemon_ = MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ITC, 0, nullptr, nullptr,
                               FrontCallbacks::handle, this, MHD_OPTION_LISTEN_SOCKET, socket.descriptor, MHD_OPTION_NOTIFY_COMPLETED,
                               FrontCallbacks::completed, this, MHD_OPTION_NOTIFY_CONNECTION, FrontCallbacks::connected, this,
                               MHD_OPTION_CONNECTION_LIMIT, connectionLimit(), MHD_OPTION_CONNECTION_MEMORY_LIMIT, CONNECTION_MEMORY,
                               MHD_OPTION_CONNECTION_TIMEOUT, FIRST_REQUEST_TIMEOUT, MHD_OPTION_END);
    if (!daemon_) throw tavctl::Fault("the HTTP service could not be started");
    clock_ = std::thread([this] { watchClock(); });
}

HttpFront::~HttpFront() {
    Pollers::Woken woken;
    {
        const std::lock_guard<std::mutex> guard(store_.lock());
        stopping_ = true;
        const AnswerPtr stopped = makeAnswer(errorBody("the controller is stopping"));
        for (Poller *poller : pollers_.heldThat([](const Poller &) { return true; }))
            pollers_.wake(poller, stopped, MHD_HTTP_SERVICE_UNAVAILABLE, woken);
    }
    changed_.notify_all();
    clock_.join();
    resume(woken);
    MHD_stop_daemon(daemon_);
}

// ---- connections ----

void HttpFront::opened(MHD_Connection *connection, void **context) {
    auto *poller = new (std::nothrow) Poller;
    *context = poller;
    if (!poller) return;
    poller->connection = connection;
    if (const auto *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)) poller->descriptor = info->connect_fd;
    if (const auto *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS))
        poller->address = addressText(info->client_addr);
    const std::lock_guard<std::mutex> guard(store_.lock());
    pollers_.add(poller);
}

void HttpFront::closed(Poller *poller) {
    dropBody(poller);
    const std::lock_guard<std::mutex> guard(store_.lock());
    pollers_.remove(poller);
    delete poller;
}

bool HttpFront::takeBody(Poller *poller, const char *data, size_t size) {
    if (poller->body.size() + size > LARGEST_BODY || bodies_ + size > LARGEST_BODIES) return false;
    poller->body.append(data, size);
    bodies_ += size;
    return true;
}

void HttpFront::dropBody(Poller *poller) {
    bodies_ -= poller->body.size();
    std::string().swap(poller->body);
}

// ---- requests ----

HttpFront::Query HttpFront::readQuery(Poller *poller, const char *path) const {
    Query query;
    const std::string_view text = path;
    size_t at = text.find('&');
    query.path = text.substr(0, at);
    while (at < text.size()) {
        const size_t end = text.find('&', at + 1), equals = text.find('=', at);
        const std::string_view pair = text.substr(at + 1, end - at - 1);
        if (equals < end && equals != std::string_view::npos)
            query.take(pair.substr(0, equals - at - 1), std::string(pair.substr(equals - at)).c_str());
        at = end;
    }
    MHD_get_connection_values(
        poller->connection, MHD_GET_ARGUMENT_KIND,
        [](void *taker, MHD_ValueKind, const char *key, const char *value) {
            static_cast<Query *>(taker)->take(key, value);
            return MHD_YES;
        },
        &query);
    return query;
}

int HttpFront::handle(Poller *poller, const char *path, const char *method, const char *data, size_t *size) {
    if (poller->phase == Poller::Phase::Woken) {
        poller->phase = Poller::Phase::Idle;
        const AnswerPtr answer = std::move(poller->answer);
        return answer ? queue(poller, answer, poller->status) : MHD_NO;
    }
    if (*size) {
        const size_t length = std::exchange(*size, 0);
        return takeBody(poller, data, length) ? MHD_YES : MHD_NO;
    }
    MHD_set_connection_option(poller->connection, MHD_CONNECTION_OPTION_TIMEOUT, 0U);
    return answerRequest(poller, readQuery(poller, path), method);
}

int HttpFront::answerRequest(Poller *poller, const Query &query, const std::string &method) {
    if (method == "GET" && query.path == "/status") return queue(poller, makeAnswer(statusText(query.everyPoller)), MHD_HTTP_OK);
    if (method == "GET") return answerPoll(poller, query);
    if (method != "POST") return queueError(poller, MHD_HTTP_METHOD_NOT_ALLOWED, "polls are GET, reports are POST");
    // What begins with a brace and a double quote is JSON; the interests are written with single quotes. An empty body asks like them.
    const size_t start = poller->body.find_first_not_of(" \t\r\n{");
    if (start == std::string::npos || poller->body[start] == '\'') return answerPoll(poller, query);
    return answerReport(poller, query);
}

// Is the poller to wait? Then it does: its connection is suspended. With the state lock held.
bool HttpFront::hold(Poller *poller, const Query &query) {
    if (query.wait < 1 || stopping_ || query.vid != poller->document->version()) return false;
    poller->deadline = Clock::now() + std::chrono::seconds(std::min(query.wait, options_.longestWait));
    MHD_suspend_connection(poller->connection);
    const bool soonest = poller->deadline < pollers_.nextDeadline();
    pollers_.hold(poller);
    if (soonest) changed_.notify_all();
    return true;
}

int HttpFront::answerPoll(Poller *poller, const Query &query) {
    std::unique_lock<std::mutex> guard(store_.lock());
    Document *document = store_.find(query.path);
    if (!document || !document->isGood()) {
        guard.unlock();
        return document ? queueError(poller, MHD_HTTP_SERVICE_UNAVAILABLE, "the document has no good version yet")
                        : queueError(poller, MHD_HTTP_NOT_FOUND, fmt::format("no document for {}", query.path));
    }
    poller->document = document;
    poller->version = query.vid.value_or(-1);
    poller->polls++;
    if (poller->server != query.server) poller->server = query.server;
    if (hold(poller, query)) return MHD_YES;
    const bool current = query.vid == document->version();
    const AnswerPtr answer = !query.vid ? document->whole() : current ? document->nothingNew() : document->since(*query.vid);
    guard.unlock();
    return queue(poller, answer, MHD_HTTP_OK);
}

int HttpFront::answerReport(Poller *poller, const Query &query) {
    std::optional<Post> post = parsePost(poller->body);
    dropBody(poller);
    if (!post) return queueError(poller, MHD_HTTP_BAD_REQUEST, "neither interests, a routing change nor a health trigger");
    post->address = poller->address;
    post->server = query.server;
    post->document = query.path;
    events_.tell(Events::Weight::Detail, post->text(), post->toJson());
    {
        const std::lock_guard<std::mutex> guard(store_.lock());
        posts_.add(std::move(*post));
    }
    return queue(poller, taken_, MHD_HTTP_OK);
}

int HttpFront::queue(Poller *poller, const AnswerPtr &answer, unsigned status) {
    MHD_Response *response = responseOf(*answer);
    return response ? MHD_queue_response(poller->connection, status, response) : MHD_NO;
}

int HttpFront::queueError(Poller *poller, unsigned status, const std::string &text) {
    return queue(poller, makeAnswer(errorBody(text)), status);
}

// ---- the end of a hold ----

void HttpFront::resume(const Pollers::Woken &woken) {
    for (MHD_Connection *connection : woken) MHD_resume_connection(connection);
}

size_t HttpFront::wake(const std::string &documentName) {
    Pollers::Woken woken;
    {
        const std::lock_guard<std::mutex> guard(store_.lock());
        const auto document = store_.documents().find(documentName);
        if (document == store_.documents().end()) return 0;
        Document *changed = document->second.get();
        const auto waits = [changed](const Poller &poller) { return poller.document == changed && poller.version != changed->version(); };
        for (Poller *poller : pollers_.heldThat(waits)) pollers_.wake(poller, changed->since(poller->version), MHD_HTTP_OK, woken);
    }
    resume(woken);
    return woken.size();
}

void HttpFront::endWaits(Pollers::Woken &woken) {
    while (Poller *poller = pollers_.overdue(Clock::now())) pollers_.wake(poller, poller->document->nothingNew(), MHD_HTTP_OK, woken);
}

// A suspended connection is not watched, so its end shows only here.
void HttpFront::dropHungUp(Pollers::Woken &woken) {
    const auto hungUp = [](const Poller &poller) {
        char byte;
        const ssize_t count = recv(poller.descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
    };
    for (Poller *poller : pollers_.heldThat(hungUp)) pollers_.wake(poller, nullptr, 0, woken);
}

void HttpFront::watchClock() {
    std::unique_lock<std::mutex> guard(store_.lock());
    Clock::time_point nextLook = Clock::now() + HANG_UP_INTERVAL;
    while (!stopping_) {
        changed_.wait_until(guard, std::min(nextLook, pollers_.nextDeadline()));
        Pollers::Woken woken;
        endWaits(woken);
        if (Clock::now() >= nextLook) {
            dropHungUp(woken);
            nextLook = Clock::now() + HANG_UP_INTERVAL;
        }
        if (woken.empty()) continue;
        guard.unlock();
        resume(woken);
        guard.lock();
    }
}

} // namespace controller
