// The controller as a process: a real library polls it, and so do thousands of plain sockets.
#include <arpa/inet.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "../support/ChildProcess.h"
#include "Tool.h"
#include "support/Json.h"
#include "tavHttpClient/tavHttpClient.h"

using tavctl::Json;
using testing::HasSubstr;

namespace {

class ControllerProcess : public ChildProcess {
public:
    explicit ControllerProcess(const std::string &directory, const std::string &listen = "127.0.0.1:0")
        : ChildProcess({TAVCTL, "controller", "--dir", directory, "--listen", listen}) {
        const std::string line = hear("listening on ");
        const size_t start = line.find("http");
        url = line.substr(start, line.find(',') - start);
    }
    ~ControllerProcess() { stop(); }
    int stop() { return end(SIGTERM); }

    std::string url;
};

const char *jsonOr(const json_t *text) { return json_is_string(text) ? json_string_value(text) : ""; }

struct Reply {
    int code = 0;
    std::string body;
    json_int_t at(const char *name) const {
        const Json json(json_loads(body.c_str(), 0, nullptr));
        return json_integer_value(json_object_get(json.get(), name));
    }
};

// As the library asks.
Reply ask(const std::string &url, const char *method, const std::string &target, const char *body = nullptr) {
    TavHttpClient *client = tavHttpClientCreate(url.c_str());
    TavHttpResponse *response = tavHttpClientGetResponse(client, method, target.c_str(), body, 30);
    const Reply reply = response ? Reply{response->responseCode, response->body} : Reply{};
    tavHttpClientFreeResponse(response);
    tavHttpClientDelete(client);
    return reply;
}

class Controller : public testing::Test {
protected:
    Controller() : file_("shop.json", shop_) {}
    std::string directory() const { return std::filesystem::path(file_.path()).parent_path(); }
    // Writes the shop with the text replaced, as an editor does: aside, then into place.
    void edit(const std::string &find, const std::string &put) {
        std::string text = shop_;
        text.replace(text.find(find), find.size(), put);
        std::ofstream(file_.path() + ".new") << text;
        std::filesystem::rename(file_.path() + ".new", file_.path());
    }

    const std::string shop_ = readText(TAV_SOURCE_DIR "/examples/shop/shop.json");
    ScratchFile file_;
};

// A library that tells what happens to it, one JSON object a line, in order.
TEST_F(Controller, aLibraryFollowsItsFileThroughEditsMistakesAndARestart) {
    auto controller = std::make_unique<ControllerProcess>(directory());
    const std::string url = controller->url, address = url.substr(7);
    ChildProcess library({TAVCTL, "watch", "--json", "--controller", url, "--group-property", "retryInterval=1", "-p", "webserverName=web1",
                          "--every", "0.2", "-X", "PUT", "--request", "http://shop.example/shop/cart"});
    std::string story, line = "-";
    for (bool decided = false, posted = false; !line.empty() && !(decided && posted);) {
        const Json event(json_loads((line = library.hear()).c_str(), 0, nullptr));
        const auto text = [&](const char *name) { return std::string(jsonOr(json_object_get(event.get(), name))); };
        EXPECT_GT(json_real_value(json_object_get(event.get(), "time")), 0) << line;
        if (text("event") == "state" && text("of") == "library") story += text("state") + " ";
        if (text("event") == "document") story += text("kind") + " ";
        if (text("event") == "decision") story += text("outcome") + " ";
        decided |= text("outcome").starts_with("REJECT with 405"); // there may be one before the document
        posted |= line.find("addRoutes") != std::string::npos;
    }
    EXPECT_THAT(story, testing::ContainsRegex("^STARTING .*STARTED .*complete .*REJECT with 405"));
    const auto held = [&] { return ask(url, "GET", "/status").at("held") == 1; };
    ASSERT_TRUE(eventually(held));
    edit("reject:405", "reject:409");
    EXPECT_THAT(controller->hear("serving shop: version"), HasSubstr("delta of"));
    EXPECT_THAT(library.hear("decision"), HasSubstr("REJECT with 409"));
    edit("reject:405", "rejct:411");
    EXPECT_THAT(controller->hear("refused"), HasSubstr("refused shop"));
    std::ofstream(directory() + "/shop.json") << "{"; // in place, and cut
    EXPECT_THAT(controller->hear("refused"), HasSubstr("shop"));
    ASSERT_TRUE(eventually(held));
    EXPECT_THAT(ask(url, "GET", "/status").body, HasSubstr("\"server\": \"web1\""));
    EXPECT_TRUE(eventually([&] { return ask(url, "GET", "/status").body.find("serverApplication/shop-edition1.0") != std::string::npos; }));
    EXPECT_EQ(controller->stop(), 0);
    edit("reject:405", "reject:410");
    controller = std::make_unique<ControllerProcess>(directory(), address);
    EXPECT_EQ(controller->url, url);
    EXPECT_THAT(library.hear("decision"), HasSubstr("REJECT with 410")) << "the version that it has is from before the restart";
    EXPECT_EQ(library.end(SIGTERM), 0);
}

TEST_F(Controller, everyRequestHasItsAnswer) {
    const ControllerProcess controller(directory());
    const int64_t version = ask(controller.url, "GET", "/shop").at("version");
    ASSERT_GT(version, 0);
    const std::string empty = fmt::format(R"({{"version":{},"restVersion":1,"delta":true}})", version);
    const struct {
        const char *method;
        std::string target;
        const char *body;
        int code;
        std::string text;
    } cases[] = {
        {"POST", "/sentinelFabric?name=s&server=s", "{'interests':\n{'objects':[", 200, "\"cp.TrustedProxyList\""},
        {"POST", "/kel/api/dynamicRouting", "", 200, "\"cp.TrustedProxyList\""},
        {"GET", fmt::format("/sentinelFabric?name=s&server=s&vid={}&wait=1", version), nullptr, 200, empty},
        {"GET", fmt::format("/sentinelFabric&vid={}&wait=1", version), nullptr, 200, empty},
        {"GET", fmt::format("/shop?vid={}", version), nullptr, 200, empty},
        {"GET", fmt::format("/shop?vid={}&wait=-5", version), nullptr, 200, empty},
        {"GET", fmt::format("/shop?vid={}&wait=60", version - 1), nullptr, 200, "\"cp.TrustedProxyList\""},
        {"GET", "/shop?vid=-1&wait=60", nullptr, 200, "\"cp.TrustedProxyList\""},
        {"GET", "/shop?vid=x&wait=60", nullptr, 200, "\"cp.TrustedProxyList\""},
        {"GET", "/shops?vid=1", nullptr, 404, "no document for /shops"},
        {"PUT", "/shop", "{}", 405, "error"},
        {"POST", "/shop?name=w", R"({"addRoutes": ["/a", "/b"], "delRoutes": ["/c"]})", 200, "{}"},
        {"POST", "/shop?name=w", R"({"healthPolicyName": "/p", "serverName": "/s", "healthPolicyTriggered": true})", 200, "{}"},
        {"POST", "/shop", R"({"addRoutes": 1})", 400, "error"},
        {"POST", "/shop", R"({"healthPolicyName": "/p")", 400, "error"},
    };
    for (const auto &each : cases) {
        const Reply reply = ask(controller.url, each.method, each.target, each.body);
        EXPECT_EQ(reply.code, each.code) << each.method << " " << each.target;
        EXPECT_THAT(reply.body, HasSubstr(each.text)) << each.method << " " << each.target;
    }
    const std::string status = ask(controller.url, "GET", "/status").body;
    for (const char *text : {"\"routes\": 1", "\"health\": 1", "\"+/a\"", "\"-/c\"", "\"policy\": \"/p\"", "\"triggered\": true"})
        EXPECT_THAT(status, HasSubstr(text));
}

TEST_F(Controller, severalDocumentsAreToldApartByTheirPaths) {
    ControllerProcess controller(directory());
    ASSERT_EQ(mkfifo((directory() + "/.pipe").c_str(), 0600), 0);
    std::filesystem::rename(directory() + "/.pipe", directory() + "/pipe.json");
    EXPECT_THAT(controller.hear("refused"), HasSubstr("pipe")) << "whoever reads a pipe waits for its writer";
    std::filesystem::copy(TAV_SOURCE_DIR "/examples/tenants/tenants.json", directory() + "/tenants.json");
    EXPECT_THAT(controller.hear("serving"), HasSubstr("tenants"));
    EXPECT_THAT(ask(controller.url, "GET", "/tenants").body, HasSubstr("/cell/hosting"));
    EXPECT_THAT(ask(controller.url, "GET", "/sentinelFabric").body, HasSubstr("shop")) << "who was there first stays the default";
    const int64_t others = ask(controller.url, "GET", "/tenants").at("version");
    EXPECT_THAT(ask(controller.url, "GET", fmt::format("/shop?vid={}&wait=60", others)).body, HasSubstr("TrustedProxyList"));
    std::filesystem::remove(file_.path());
    EXPECT_THAT(controller.hear("refused"), HasSubstr("shop"));
    EXPECT_EQ(ask(controller.url, "GET", "/shop").code, 200);
    controller.stop();
    std::filesystem::copy(directory() + "/tenants.json", file_.path());
    const ControllerProcess again(directory());
    EXPECT_EQ(ask(again.url, "GET", "/sentinelFabric").code, 404) << "of two that are there at the start neither is";
}

TEST_F(Controller, twoThousandHeldPollsAreAnsweredByOneEdit) {
    constexpr int POLLERS = 2000;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < POLLERS + 500) GTEST_SKIP() << "not enough descriptors";
    ControllerProcess controller(directory());
    const int64_t version = ask(controller.url, "GET", "/shop").at("version");
    sockaddr_in address{AF_INET, htons(static_cast<uint16_t>(std::stoi(controller.url.substr(controller.url.rfind(':') + 1)))), {}, {}};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string request = fmt::format("GET /shop?name=s&server=s&vid={}&wait=600 HTTP/1.1\r\nHost: h\r\n\r\n", version);
    std::vector<int> sockets;
    for (int i = 0; i < POLLERS; i++) {
        sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(connect(sockets.back(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << i;
        ASSERT_EQ(send(sockets.back(), request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    }
    const auto held = [&](json_int_t count) {
        return eventually([&] { return ask(controller.url, "GET", "/status").at("held") == count; });
    };
    ASSERT_TRUE(held(POLLERS));
    for (int i = 0; i < 10; i++) close(sockets[static_cast<size_t>(i)]);
    sockets.erase(sockets.begin(), sockets.begin() + 10);
    ASSERT_TRUE(held(POLLERS - 10)) << "who hung up is not waited for";
    edit("reject:405", "reject:409");
    for (const int each : sockets) {
        std::string text(4096, '\0');
        for (size_t length = 0; text.find("reject:409") == std::string::npos;) {
            const ssize_t got = recv(each, text.data() + length, text.size() - length, 0);
            ASSERT_GT(got, 0);
            length += static_cast<size_t>(got);
        }
        EXPECT_THAT(text, HasSubstr("\"delta\":true"));
        close(each);
    }
    EXPECT_EQ(controller.stop(), 0);
}

} // namespace
