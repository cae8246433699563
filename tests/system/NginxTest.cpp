// The built-in client, and an instance with it, against a web server as it is installed.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "system/HeldController.h"
#include "system/Instance.h"
#include "system/Shop.h"
#include "tavHttpClient/tavHttpClient.h"

namespace {

constexpr char PROGRAM[] = "/usr/sbin/nginx";

// "@" is the port. A POST to a file is refused by the server; for the interest it gives the document all the same.
constexpr char CONFIGURATION[] = R"(daemon off; master_process off; pid nginx.pid; error_log error.log;
events {}
http {
  access_log off; keepalive_requests 1000000; client_body_temp_path body; proxy_temp_path proxy; fastcgi_temp_path fastcgi; uwsgi_temp_path uwsgi; scgi_temp_path scgi;
  types { text/html html; }
  server {
    listen 127.0.0.1:@; root .;
    location = /chunked.html { ssi on; }
    location = /closing.html { keepalive_timeout 0; }
    location = /empty { return 200 ""; }
    location = /sentinelFabric { rewrite ^ /document.json last; }
    location = /document.json { error_page 405 =200 /document.json; }
  }
})";

class Nginx : public testing::Test {
protected:
    void SetUp() override {
        if (access(PROGRAM, X_OK) != 0)
            GTEST_SKIP() << PROGRAM << " is missing: install the package nginx-light, or run ./dev deps as root";
        char name[] = "/tmp/tav-nginx-test-XXXXXX";
        prefix = mkdtemp(name);
        for (const char *file : {"counted.html", "chunked.html", "closing.html"}) write(file, page);
        write("document.json", shop::document(1, 1));
        for (int attempt = 0; attempt < 5 && !starts(); attempt++) {
        }
        ASSERT_GT(pid, 0) << "see " << prefix << "/error.log";
    }
    void TearDown() override {
        stop();
        if (!prefix.empty() && !HasFailure()) std::filesystem::remove_all(prefix);
    }

    void write(const std::string &file, const std::string &text) { std::ofstream(prefix + "/" + file) << text; }
    void stop() {
        if (pid <= 0) return;
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
        pid = 0;
    }

    // With a port that is free now, and with luck still is when the server takes it.
    bool starts() {
        {
            const HeldController taken("");
            port = taken.port();
        }
        std::string configuration = CONFIGURATION;
        configuration.replace(configuration.find('@'), 1, std::to_string(port));
        write("nginx.conf", configuration);
        const std::string prefixSlash = prefix + "/";
        const char *arguments[] = {PROGRAM, "-p", prefixSlash.c_str(), "-c", "nginx.conf", "-e", "error.log", nullptr};
        if (posix_spawn(&pid, PROGRAM, nullptr, nullptr, const_cast<char **>(arguments), environ) != 0) return false;
        while (waitpid(pid, nullptr, WNOHANG) == 0) {
            if (std::filesystem::exists(prefix + "/nginx.pid")) return true; // written once it listens
            usleep(5000);
        }
        pid = 0;
        return false;
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port); }

    const std::string page = [] {
        std::string text;
        while (text.size() < 100000) text += "<p>line " + std::to_string(text.size()) + "</p>\n";
        return text;
    }();
    std::string prefix;
    pid_t pid = 0;
    int port = 0;
};

TEST_F(Nginx, GivesEveryKindOfResponse) {
    const std::unique_ptr<TavHttpClient, void (*)(TavHttpClient *) noexcept> client(tavHttpClientCreate(url().c_str()),
                                                                                    tavHttpClientDelete);
    const auto ask = [&](const char *method, const char *uri, const char *body, std::string *answer) {
        const std::unique_ptr<TavHttpResponse, void (*)(TavHttpResponse *) noexcept> response(
            tavHttpClientGetResponse(client.get(), method, uri, body, 20), tavHttpClientFreeResponse);
        *answer = response ? response->body : "";
        return response ? response->responseCode : -1;
    };
    const struct {
        const char *method, *uri, *body;
        int code;
        bool whole; // the body is the page
    } rows[] = {
        {"GET", "/counted.html", nullptr, 200, true},
        {"GET", "/chunked.html", nullptr, 200, true},
        {"GET", "/counted.html", nullptr, 200, true},
        {"GET", "/empty", nullptr, 200, false},
        {"GET", "/missing", nullptr, 404, false},
        {"POST", "/counted.html", "{}", 405, false},
        {"GET", "/chunked.html", nullptr, 200, true},
        {"GET", "/closing.html", nullptr, 200, true},
        // It says "close" in lower case, so the end shows as a failure of the next request; the one after it connects again.
        {"GET", "/counted.html", nullptr, -1, false},
        {"GET", "/counted.html", nullptr, 200, true},
    };
    int connected = -1;
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + row.uri);
        std::string answer;
        EXPECT_EQ(ask(row.method, row.uri, row.body, &answer), row.code);
        EXPECT_EQ(answer == page, row.whole);
        EXPECT_TRUE(connected < 0 || row.code < 0 || client->fd == connected) << "one connection for all";
        connected = client->fd;
    }
}

TEST_F(Nginx, FeedsAnInstance) {
    EnvCallBacks env = systemCallBacks();
    env.http.connector = {};
    const auto [tav, group, connector] = systemCreate(env, url());
    EXPECT_EQ(tavStart(tav, 0), 0);
    EXPECT_EQ(tavGetState(tav), STARTED);
    EXPECT_NE(shop::serverFor(tav, "/shop/cart"), "");
    stop(); // the server goes, the routes stay
    while (tavConnectorGroupGetState(group) != FAILED) usleep(1000);
    EXPECT_NE(shop::serverFor(tav, "/shop/cart"), "");
    tavDestroy(tav);
    systemAnswerNone();
}

} // namespace
