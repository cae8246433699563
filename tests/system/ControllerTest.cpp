// A running instance with the built-in transport against a controller that does everything wrong: requests are routed by the last good
// snapshot throughout, the states are those that the host is told, and the next good answer heals everything.
#include <gmock/gmock.h>

#include <array>
#include <atomic>

#include "core/RecordingTransport.h"
#include "support/ChildProcess.h"
#include "system/HeldController.h"
#include "system/Shop.h"

namespace {

enum How { SENDS, SENDS_AND_CLOSES, RESETS, DRIPS };
enum Outcome {
    NO_RESPONSE, // the next connector
    BAD_CODE,    // likewise
    UNUSABLE,    // the same one again, after a pause
    TAKEN
};

const std::string kOk = "HTTP/1.1 200 OK\r\n";
std::string counted(const std::string &body) { return HeldController::counted(body); }
std::string chunked(const std::string &rest) { return kOk + "Transfer-Encoding: chunked\r\n\r\n" + rest; }
std::string delta(const char *version) { return std::string("{\"version\": ") + version + ", \"restVersion\": 1, \"delta\": true}"; }

const struct Row {
    const char *name;
    How how;
    std::string text;
    Outcome outcome;
    const char *version = nullptr; // that the next poll asks with
} ROWS[] = {
    {"reset", RESETS, "", NO_RESPONSE},
    {"half a head", SENDS_AND_CLOSES, kOk + "Content-Le", NO_RESPONSE},
    {"half a body", SENDS_AND_CLOSES, kOk + "Content-Length: 50\r\n\r\n{\"version\": 9", NO_RESPONSE},
    {"error", SENDS, HeldController::counted("sorry", "500 Internal Server Error"), BAD_CODE},
    {"an HTML page", SENDS, counted("<html><body>Please log in</body></html>"), UNUSABLE},
    {"empty", SENDS, counted(""), UNUSABLE},
    {"chunk line without digits", SENDS, chunked("zz\r\n"), UNUSABLE},
    {"bad UTF-8", SENDS, counted("{\"version\": 9, \"\xff\": 1}"), UNUSABLE},
    {"deep nesting", SENDS, counted(std::string(5000, '[')), UNUSABLE},
    {"wrong types", SENDS, counted("{\"version\": \"x\", \"delta\": true, \"add\": 7, \"set\": {\"objects\": \"x\"}, \"del\": []}"), TAKEN,
     "0"},
    {"nested entries", SENDS,
     counted("{\"version\": 4, \"delta\": true, \"add\": {\"objects\": " + std::string(500, '[') + std::string(500, ']') + "}}"), TAKEN,
     "4"},
    {"a version further on", SENDS, counted(delta("7000000000")), TAKEN, "7000000000"},
    {"a version back", SENDS, counted(delta("3")), TAKEN, "3"},
    {"bytes after the last chunk", SENDS, chunked("2f\r\n" + delta("5") + "\r\n0\r\n\r\nrubbish"), TAKEN, "5"},
    {"a byte at a time", DRIPS, counted(delta("6")), TAKEN, "6"},
};

class ControllerFails : public RecordingTransport {
protected:
    // With the transport that the library brings.
    ControllerFails() {
        env.http.connector = {};
        url = controller.url();
    }

    // Polls, and requests run, until the end of the test.
    void SetUp() override {
        RecordingTransport::SetUp();
        expectPoll("1");
        EXPECT_TRUE(eventually([this] { return !controller.reports().empty(); }));
        for (std::thread &visitor : visitors)
            visitor = std::thread([this] {
                for (; !ended; visits++) misses += shop::serverFor(tav, "/shop/cart").empty();
            });
    }

    void TearDown() override {
        ended = true;
        for (std::thread &visitor : visitors) visitor.join();
        EXPECT_EQ(misses, 0);
        EXPECT_GT(visits, 0);
        RecordingTransport::TearDown();
    }
    void answerNone() override {
        fireAll();
        controller.shut();
        EXPECT_TRUE(systemThreadsBackTo(threads));
    }

    void expectPoll(const std::string &version) {
        EXPECT_EQ(controller.poll(), "GET /sentinelFabric?name=tavlib&server=tavlib&vid=" + version +
                                         "&wait=" + std::to_string(tavConnectorGroupGetWaitTime(group)) + " HTTP/1.1");
    }
    // Waits until the group wants to be called again.
    int alarm() {
        const auto latest = [this] {
            const std::lock_guard guard(mutex);
            return alarms.empty() ? 0 : alarms.back().milliseconds;
        };
        eventually([&] { return latest() != 0; });
        return latest();
    }
    void expectRouted() const { EXPECT_NE(shop::serverFor(tav, "/shop/cart"), ""); }

    // The group goes FAILED for this reason of its only connector, and the next interest heals it.
    void expectFailureAndRecovery(const std::string &reason) {
        EXPECT_EQ(alarm(), 60000);
        EXPECT_THAT(takeStates(), testing::ElementsAre(url + " FAILED: " + reason, "group FAILED: failure on all connectors"));
        EXPECT_EQ(tavGetState(tav), FAILED);
        expectRouted();
        fire();
        expectPoll("1");
        EXPECT_EQ(tavGetState(tav), STARTED);
        EXPECT_THAT(takeStates(), testing::ElementsAre(url + " STARTING: starting", url + " STARTED: started", "group STARTED: started"));
    }
    std::string noResponse(const char *type) { return "no response was received from " + url + " for request type " + type; }

    const int threads = systemThreads();
    HeldController controller{shop::document(1, 1)};
    std::array<std::thread, 2> visitors;
    std::atomic<bool> ended = false;
    std::atomic<int> visits = 0, misses = 0;
};

TEST_F(ControllerFails, InEveryWayUnderRequests) {
    for (const Row &row : ROWS) {
        SCOPED_TRACE(row.name);
        takeStates();
        controller.answer([&row](int fd) {
            if (row.how == RESETS) return HeldController::reset(fd);
            if (row.how != DRIPS) return HeldController::sendText(fd, row.text) && row.how == SENDS;
            for (const char byte : row.text) {
                if (!HeldController::sendText(fd, std::string(1, byte))) return false;
                usleep(2000);
            }
            return true;
        });
        switch (row.outcome) {
            case NO_RESPONSE:
                expectFailureAndRecovery(noResponse("waitForDelta"));
                break;
            case BAD_CODE:
                expectFailureAndRecovery("HTTP response error code 500 was received from " + url + " for request type waitForDelta");
                break;
            case UNUSABLE:
                EXPECT_EQ(alarm(), 1000);
                expectRouted();
                fire();
                expectPoll("-1");
                EXPECT_THAT(takeStates(), testing::IsEmpty());
                break;
            case TAKEN:
                expectPoll(row.version);
                EXPECT_THAT(takeStates(), testing::IsEmpty());
                expectRouted();
                break;
        }
    }
}

TEST_F(ControllerFails, ByNotBeingThere) {
    controller.shut();
    EXPECT_EQ(alarm(), 60000);
    // Refused, and a name that does not resolve: one round of both.
    const std::string other = "http://no such host:80";
    tavConnectorCreate(group, other.c_str());
    takeStates();
    fire();
    EXPECT_EQ(alarm(), 60000);
    EXPECT_THAT(takeStates(), testing::ElementsAre(other + " STARTING: starting", other + " FAILED: open failed",
                                                   url + " STARTING: starting", url + " FAILED: " + noResponse("init")));
    expectRouted();
    controller.open();
    fire();
    EXPECT_EQ(alarms.size(), 0u);
    expectPoll("1");
    expectRouted();
}

TEST_F(ControllerFails, ByNotAnswering) {
    tavConnectorGroupSetWaitTime(group, 1);
    tavConnectorGroupSetMaxWaitOffset(group, 0);
    controller.answer([](int) { return false; }); // the time-out belongs to the chain: a new one
    EXPECT_EQ(alarm(), 60000);
    fire();
    takeStates();
    // Nobody answers: the poll ends after a second.
    EXPECT_EQ(alarm(), 60000);
    EXPECT_THAT(takeStates(), testing::Contains(url + " FAILED: " + noResponse("waitForDelta")));
    expectRouted();
    controller.answer(nullptr);
    tavConnectorGroupSetWaitTime(group, 300);
    fire();
    expectPoll("1");
}

// A connector that takes over may bring a delta for a document that it has not given.
TEST_F(ControllerFails, ByADeltaToNothing) {
    tavConnectorCreate(group, controller.url("localhost").c_str());
    controller.setDocument(delta("8"));
    controller.answer([](int) { return false; });
    EXPECT_EQ(alarm(), 1000);
    EXPECT_EQ(tavGetState(tav), STARTED);
    expectRouted();
    fire();
    expectPoll("-1");
    controller.answer([](int fd) { return HeldController::sendText(fd, counted(shop::document(2, 2))); });
    expectPoll("2");
    EXPECT_THAT(shop::serverFor(tav, "/shop/cart"), testing::EndsWith("-2"));
}

} // namespace
