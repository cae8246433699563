// The built-in client against real sockets.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/FailEachAllocation.h"
#include "support/LoopbackServer.h"
#include "tavHttpClient/tavHttpClient.h"

namespace {

// Plays a script: for each connection, what to answer to each request; the last one ends it. An empty answer leaves the client waiting.
class ScriptedServer : public LoopbackServer {
public:
    explicit ScriptedServer(std::vector<std::vector<std::string>> script) {
        for (auto &answers : script)
            for (auto &answer : answers) script_.emplace_back(answer, answer.empty() || &answer != &answers.back());
        open();
    }
    ~ScriptedServer() override { shut(); }
    // The requests as they came, body included.
    std::vector<std::string> requests() {
        const std::lock_guard guard(mutex_);
        return requests_;
    }
    int connections() {
        const std::lock_guard guard(mutex_);
        return connections_;
    }

private:
    bool respond(int fd, const std::string &request) override {
        const std::lock_guard guard(mutex_);
        requests_.push_back(request);
        const auto &[text, goesOn] = script_.at(requests_.size() - 1);
        return sendText(fd, text) && goesOn;
    }
    std::vector<std::pair<std::string, bool>> script_;
    std::vector<std::string> requests_;
};

using ClientPtr = std::unique_ptr<TavHttpClient, decltype([](TavHttpClient *client) { tavHttpClientDelete(client); })>;
using ResponsePtr = std::unique_ptr<TavHttpResponse, decltype([](TavHttpResponse *response) { tavHttpClientFreeResponse(response); })>;

// Standard output while `action` runs: the client says there what went wrong.
template <typename Action>
std::string printed(Action action) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    action();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

ResponsePtr get(TavHttpClient *client, const char *uri = "/x", const char *body = nullptr, int timeout = 60) {
    return ResponsePtr(tavHttpClientGetResponse(client, body ? "POST" : "GET", uri, body, timeout));
}

const std::string kOk = "HTTP/1.1 200 OK\r\n", kBadLength = "bad response: Content-Length response header value: ";
std::string counted(const std::string &body) { return LoopbackServer::counted(body); }
std::string chunked(const std::string &rest) { return kOk + "Transfer-Encoding: chunked\r\n\r\n" + rest; }

} // namespace

TEST(HttpClient, ReadsOrRefusesOneResponse) {
    const std::string big(100000, 'b');
    const std::string fits = "X-Long: " + std::string(2048 - 10, 'x'); // with its line end exactly the buffer
    const struct {
        const char *name;
        std::string answer, body;
        int code; // kept open unless told
        bool closed;
    } good[] = {
        {"counted, larger than the buffer", counted(big), big, 200},
        {"empty body", counted(""), "", 200},
        {"other status", "HTTP/1.1 404 Not Found\r\nContent-Length: 1\r\n\r\nx", "x", 404},
        {"status without a number", "HTTP/1.1\r\nContent-Length: 1\r\n\r\nx", "x", 0},
        {"status of letters", "HTTP/1.1 abc\r\nContent-Length: 1\r\n\r\nx", "x", 0},
        {"headers end with the stream", kOk + "Content-Length: 0", "", 200},
        {"chunked", chunked("5\r\nhello\r\n6;name=value\r\n world\r\n0\r\n\r\n"), "hello world", 200},
        {"chunk across the buffer", chunked("186A0\r\n" + big + "\r\n0\r\n"), big, 200},
        {"no chunks", chunked("0\r\n\r\n"), "", 200},
        {"a chunk line without digits ends the body", chunked("3\r\nabc\r\nzz\r\nmore"), "abc", 200},
        {"chunked beats a length", kOk + "Content-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", "abc", 200},
        {"a length beats an unknown coding", kOk + "Transfer-Encoding: Chunked\r\nContent-Length: 2\r\n\r\nab", "ab", 200},
        {"Close", kOk + "Connection: Close\r\nContent-Length: 1\r\n\r\nx", "x", 200, true},
        {"close", kOk + "Connection: close\r\nContent-Length: 1\r\n\r\nx", "x", 200},
        {"a line that just fits", kOk + fits + "\r\nContent-Length: 1\r\n\r\nx", "x", 200},
    };
    for (const auto &c : good) {
        SCOPED_TRACE(c.name);
        ScriptedServer server({{c.answer}});
        ClientPtr client(tavHttpClientCreate(server.url().c_str()));
        ResponsePtr response = get(client.get());
        ASSERT_TRUE(response);
        EXPECT_EQ(client->fd < 0, c.closed);
        EXPECT_EQ(response->responseCode, c.code);
        EXPECT_EQ(response->body, c.body);
    }
    const std::pair<std::string, std::string> bad[] = {
        {kOk + fits + "x\r\nContent-Length: 1\r\n\r\nx", ""}, // just does not fit
        {kOk + "Content-Length: 0\r\n" + fits + "xxx", ""},
        {kOk + "Content-Length 1\r\n\r\nx", ""},
        {kOk + "Content-Length: 12a\r\n\r\n" + std::string(12, 'x'), kBadLength + "12a\n"},
        {kOk + "Content-Length:1\r\n\r\nx", kBadLength + "\n"},
        {kOk + "Content-Length:\r\n\r\nx", kBadLength + "\n"},
        {kOk + "Content-Length: -1\r\n\r\n", kBadLength + "-1\n"},
        {kOk + "Content-Length: 1073741825\r\n\r\n", kBadLength + "1073741825\n"},
        {kOk + "Content-Length: 18446744073709551617\r\n\r\nx", kBadLength + "18446744073709551617\n"}, // wraps to 1
        {kOk + "content-length: 1\r\n\r\nx", "No Content-Length header or chunked encoding found\n"},
        {kOk + "Content-Length: 5\r\n\r\nabc", "Didn't read entire body: 3 bytes of 5 read: 'abc'\n"},
        {chunked("-5\r\nhello\r\n"), "bad response: invalid chunk size: -5\n"},
        {chunked("80000000\r\n"), "bad response: invalid chunk size: 80000000\n"},
        {chunked("1\r\na\r\n40000000\r\n"), "bad response: invalid chunk size: 40000000\n"}, // together over the limit
        {chunked("5\r\nabc"), ""},
        {chunked("3\r\nabc\r\n"), "no chunk found; unexpected EOF"},
        {"\r\n" + counted("x"), ""}, // an empty line first on a new connection
    };
    for (const auto &[answer, out] : bad) {
        ScriptedServer server({{answer}});
        ClientPtr client(tavHttpClientCreate(server.url().c_str()));
        EXPECT_EQ(printed([&] { EXPECT_FALSE(get(client.get())); }), out) << answer;
        EXPECT_EQ(client->fd, -1) << answer;
    }
}

TEST(HttpClient, WritesRequests) {
    ScriptedServer server({{counted("1"), counted("2")}, {counted("3")}});
    ClientPtr client(tavHttpClientCreate((server.url() + "/ignored").c_str()));
    EXPECT_TRUE(get(client.get(), "/path?a=b c"));
    EXPECT_TRUE(get(client.get(), "/path", "{\"k\": 1}"));
    const std::string withBody =
        "POST /path HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\nAccept: application/json\r\n"
        "Content-Length: 8\r\n\r\n{\"k\": 1}";
    EXPECT_EQ(server.requests(),
              (std::vector<std::string>{"GET /path?a=b c HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: application/json\r\n\r\n", withBody}));
    EXPECT_EQ(server.connections(), 1);
    EXPECT_EQ(printed([&] { EXPECT_EQ(tavHttpClientTest(server.url().c_str(), "/"), 0); }), "200: '3'\n");
    const size_t overhead = strlen("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: application/json\r\n\r\n");
    for (const std::string &uri : {"/" + std::string(2049 - overhead, 'u'), std::string("/a\r\nX: y"), std::string("/tab\t")}) {
        EXPECT_FALSE(get(client.get(), uri.c_str()));
        EXPECT_EQ(server.requests().size(), 3u);
    }
}

TEST(HttpClient, KeepsTheConnectionUntilAFailure) {
    // The first connection ends after a complete response; that shows as a failure of the next request, and the one after it reconnects.
    ScriptedServer server({{counted("1")}, {chunked("1\r\nx\r\n0\r\n\r\n"), "\r\n\r\n" + counted("2")}});
    ClientPtr client(tavHttpClientCreate(server.url().c_str()));
    EXPECT_TRUE(get(client.get()));
    EXPECT_FALSE(get(client.get()));
    EXPECT_EQ(client->fd, -1);
    EXPECT_EQ(client->timeoutInSecs, -1); // the next socket has no time-out yet
    EXPECT_TRUE(get(client.get(), "/x", nullptr, 30));
    EXPECT_EQ(client->timeoutInSecs, 30);
    // A late line end of the last chunk is no status line.
    ResponsePtr second = get(client.get());
    ASSERT_TRUE(second);
    EXPECT_STREQ(second->body, "2");
    EXPECT_EQ(server.connections(), 2);
}

TEST(HttpClient, ATimeoutIsTheEndOfTheStream) {
    ScriptedServer server({{kOk + "Content-Length: 5\r\n\r\nab", ""}});
    ClientPtr client(tavHttpClientCreate(server.url().c_str()));
    // The server waits for another request; only the client's time-out ends the read.
    EXPECT_EQ(printed([&] { EXPECT_FALSE(get(client.get(), "/x", nullptr, 1)); }), "Didn't read entire body: 2 bytes of 5 read: 'ab'\n");
    EXPECT_EQ(client->fd, -1);
}

TEST(HttpClient, CloseEndsARunningRequest) {
    ScriptedServer server({{""}, {counted("x")}});
    ClientPtr client(tavHttpClientCreate(server.url().c_str()));
    std::thread poll([&] { EXPECT_FALSE(get(client.get(), "/poll", nullptr, 3600)); });
    while (server.requests().empty()) std::this_thread::yield();
    tavHttpClientClose(client.get());
    poll.join();
    EXPECT_EQ(client->fd, -1);
    // One that was announced does not begin any more, and the next one is as good as new.
    tavHttpClientAnnounce(client.get());
    tavHttpClientClose(client.get());
    EXPECT_FALSE(get(client.get()));
    tavHttpClientAnnounce(client.get());
    tavHttpClientRetract(client.get());
    EXPECT_TRUE(get(client.get()));
    EXPECT_EQ(server.connections(), 2);
}

TEST(HttpClient, RefusesWhatItCannotReach) {
    for (const char *url : {static_cast<const char *>(nullptr), "", "127.0.0.1:80", "http://127.0.0.1:", "http://127.0.0.1:0",
                            "http://127.0.0.1:65536", "http://127.0.0.1:8x", "ftp://127.0.0.1"}) {
        EXPECT_EQ(tavHttpClientCreate(url), nullptr) << (url ? url : "null");
    }
    EXPECT_EQ(printed([] { EXPECT_EQ(tavHttpClientTest("http://no such host:80/x", "/x"), -1); }),
              "unable to resolve hostname 'no such host' of 'http://no such host:80/x'\n");
    ClientPtr https(tavHttpClientCreate("https://127.0.0.1"));
    ASSERT_TRUE(https);
    EXPECT_EQ(ntohs(https->dst.sin_port), 443);
    int port;
    {
        ScriptedServer gone({});
        port = gone.port();
    }
    ClientPtr client(tavHttpClientCreate(("http://127.0.0.1:" + std::to_string(port)).c_str()));
    EXPECT_EQ(printed([&] { EXPECT_FALSE(get(client.get())); }),
              "connect failed to 127.0.0.1:" + std::to_string(port) + ": " + std::to_string(ECONNREFUSED) + "\n");
    EXPECT_EQ(client->fd, -1);
}

TEST(HttpClient, SurvivesEveryFailedAllocation) {
    failEachAllocation([](auto failed) {
        ScriptedServer server({{chunked("3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n")}});
        ClientPtr client(tavHttpClientCreate(server.url().c_str()));
        ResponsePtr response = client ? get(client.get()) : nullptr;
        EXPECT_EQ(response == nullptr, failed());
    });
}
