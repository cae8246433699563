// A daemon and its workers over a real socket, in one process: instances share nothing but the control lock.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <optional>

#include "core/CoreFixture.h"
#include "support/ChildProcess.h"
#include "support/Ipc.h"
#include "system/Shop.h"
#include "tav/tavControl.h"
#include "tavProcess/tavIpc.h"

namespace {

class Processes : public CoreFixture {
protected:
    std::string path = "/tmp/tav-process-test-" + std::to_string(getpid());
    std::optional<SystemInstance> other;
    Tav *worker = nullptr; // the other's

    void SetUp() override {
        CoreFixture::SetUp();
        ASSERT_EQ(tavStop(tav), 0);
        ASSERT_EQ(tavMarkAsServerProcess(tav, path.data(), getuid()), 0);
        ASSERT_EQ(tavStart(tav, -1), 0);
    }

    void TearDown() override {
        other.reset();
        CoreFixture::TearDown();
        unlink(path.c_str());
    }

    void startWorker() {
        static std::string given;
        given = path;
        other.emplace(env, [](Tav *tav) { ASSERT_EQ(tavMarkAsClientProcess(tav, given.data()), 0); });
        worker = other->tav;
    }

    // The first group as the status tells it.
    static std::string groupOf(Tav *of) {
        json_t *status = tavStatusToJSON(of);
        const std::string group = takeText(json_incref(json_array_get(json_object_get(status, "groups"), 0)));
        json_decref(status);
        return group;
    }

    int clients() { return tavServerProcessGetClientCount(tav->serverProcess); }

    // The worker routes by the generation of the shop.
    bool workerHas(int generation) {
        return eventually([&] { return shop::serverFor(worker, "/shop/cart").ends_with("-" + std::to_string(generation)); });
    }
};

bool isClosed(int fd) {
    char buffer[4096];
    ssize_t got;
    while ((got = recv(fd, buffer, sizeof buffer, 0)) > 0) {
    }
    return got == 0;
}

void sendText(int fd, const std::string &text) {
    ASSERT_EQ(send(fd, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
}

// The type of the next frame, -1 when it does not come whole.
int nextFrame(int fd, std::string &body) {
    TavMessageHdr hdr;
    if (recv(fd, &hdr, sizeof hdr, MSG_WAITALL) != static_cast<ssize_t>(sizeof hdr) || hdr.len < 0 || hdr.pid != getpid()) return -1;
    body.resize(static_cast<size_t>(hdr.len));
    return recv(fd, body.data(), body.size(), MSG_WAITALL) == hdr.len ? hdr.type : -1;
}

TEST_F(Processes, HostileFramesCostOnlyTheirConnection) {
    give(shop::document(5));
    startWorker();
    ASSERT_TRUE(eventually([&] { return tavGetState(worker) == STARTED; }));
    const int half = ipcConnect(path);
    ASSERT_EQ(send(half, "12345", 5, 0), 5) << "half a header, then silence";

    for (const int len : {-1, INT_MIN, (1 << 30) + 1, INT_MAX}) {
        const int fd = ipcConnect(path);
        sendText(fd, ipcFrame(MT_C2S_JSON, "", len));
        EXPECT_TRUE(isClosed(fd)) << len;
        close(fd);
    }
    // Unknown types, the daemon's own types, bodies that are no JSON or no block: the message is dropped, the connection stays.
    const int odd = ipcConnect(path);
    for (int type : {MT_CONNECTED + 0, MT_S2C_END_ROUTING_INFO + 0, MT_C2S_JSON + 0, MT_CLIENT_TO_SERVER_HEALTH_TRIGGER + 0, 99})
        sendText(odd, ipcFrame(type) + ipcFrame(type, "{a}"));
    const int two = ipcConnect(path);
    std::string foreign = ipcFrame(MT_C2S_JSON);
    foreign[4]++;
    sendText(two, ipcFrame(MT_C2S_JSON) + foreign);
    EXPECT_TRUE(isClosed(two)) << "another process id on the same connection";
    close(two);
    give(shop::document(6, 6));
    EXPECT_TRUE(workerHas(6)) << "the others are served meanwhile";
    std::string body, order;
    while (order.size() < 20 && body.find("\"version\": 6,") == std::string::npos) order += std::to_string(nextFrame(odd, body));
    EXPECT_EQ(order, "123612") << "nothing was sent anew";
    EXPECT_TRUE(eventually([&] { return clients() == 3; }));
    close(half);
    close(odd);
    EXPECT_TRUE(eventually([&] { return clients() == 1; }));
}

TEST_F(Processes, AWorkerThatDoesNotReadDelaysNobodyAndMissesNothing) {
    startWorker();
    const int slow = ipcConnect(path);
    ASSERT_TRUE(eventually([&] { return clients() == 2; }));
    // The worker's own group never runs.
    ASSERT_TRUE(eventually([&] { return groupOf(worker) == groupOf(tav) && groupOf(tav).find("STARTING") != std::string::npos; }));
    constexpr int LAST = 14;
    for (int version = LAST - 3; version <= LAST; version++) {
        std::string document = shop::document(version, version);
        const size_t padding = version < LAST ? 40000 : 500000; // the last one does not fit into the socket
        document.insert(document.rfind('}'), ", \"padding\": \"" + std::string(padding, 'x') + "\"");
        ASSERT_EQ(give(document), version);
        ASSERT_TRUE(workerHas(version)) << "the other one is served";
    }
    EXPECT_TRUE(eventually([&] { return tavGetConfigVersion(worker) == LAST; }));
    // What was sent, message by message; control states come in between.
    std::string body, order;
    std::optional<TavControlScope> held(std::in_place, "test"); // the daemon's loop has to wait
    for (int seen = 0; seen < LAST + 2;) {
        const int type = nextFrame(slow, body);
        ASSERT_NE(type, -1) << order;
        if (type == MT_S2C_SET_CONTROL_STATE) continue;
        order += std::to_string(type);
        if (type != MT_S2C_ROUTING_INFO) continue;
        ASSERT_EQ(body.find('\0'), body.size() - 1);
        json_t *json = json_loads(body.c_str(), 0, nullptr);
        seen = static_cast<int>(json_integer_value(json_object_get(json, "version")));
        json_decref(json);
        if (!held || seen < LAST - 1) continue;
        // The socket has room again, but what comes now must not overtake what waits. The first brings a rebuild: it goes as a whole only.
        ASSERT_EQ(give(shop::delta(LAST, LAST + 1, shop::objects("set", shop::entry(shop::STORE, "webModule")))), LAST + 1);
        ASSERT_EQ(give(shop::document(LAST + 2, LAST + 2)), LAST + 2);
        held.reset();
    }
    EXPECT_EQ(order, "1312312312312312312");
    close(slow);
}

TEST_F(Processes, TheSocketIsTheOwnersAlone) {
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    // A path that is too long is cut; where there can be no socket the daemon does not listen, and says so.
    const std::string cut = path + std::string(107 - path.size(), 'x'), nowhere = path + "/socket";
    for (const std::string &other : {cut + "yy", nowhere}) {
        ASSERT_EQ(tavStop(tav), 0);
        tavSetUnixDomainSocketPath(tav, other.c_str());
        takeTrace();
        ASSERT_EQ(tavStart(tav, -1), 0);
        const std::string message = "failed to bind to unix domain socket at " + nowhere + ": Not a directory\n";
        EXPECT_EQ(takeTrace().find(message) != std::string::npos, other == nowhere);
    }
    ASSERT_EQ(stat(cut.c_str(), &status), 0);
    unlink(cut.c_str());
}

} // namespace
