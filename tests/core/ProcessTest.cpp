// A daemon and its workers over a real socket, in one process: instances share nothing but the control lock.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <functional>

#include "core/CoreFixture.h"
#include "tav/tavControl.h"
#include "tavConnector/tavConnector.h"
#include "tavProcess/tavIpc.h"
#include "tavProcess/tavSapp.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// Waits for what another thread brings about; the bound only ends a broken run.
bool eventually(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        usleep(2000);
    }
    return true;
}

std::string serverDocument(int version, const char *state) {
    return quoted("{'version': " + std::to_string(version) +
                  R"(, 'restVersion': 1, 'add': {'objects': [{'name': '/cell/c', 'type': 'cell', 'objects': [
 {'name': '/cell/c/node/n', 'type': 'node', 'objects': [
  {'name': '/cell/c/node/n/server/s', 'type': 'server', 'props': {'state': 'STARTED', 'weight': 1}, 'objects': [
   {'name': '/cell/c/node/n/server/s/serverApplication/app', 'type': 'serverApplication', 'props': {'state': ')" +
                  state + "'}}]}]}]}]}}");
}

class Processes : public CoreFixture {
protected:
    std::string path = "/tmp/tav-process-test-" + std::to_string(getpid());
    Tav *worker = nullptr;

    void SetUp() override {
        CoreFixture::SetUp();
        ASSERT_EQ(tavStop(tav), 0);
        ASSERT_EQ(tavMarkAsServerProcess(tav, path.data(), getuid()), 0);
        ASSERT_EQ(tavStart(tav, -1), 0);
    }

    void TearDown() override {
        if (worker) tavDestroy(worker);
        CoreFixture::TearDown();
        unlink(path.c_str());
    }

    void startWorker() {
        static char catalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";
        worker = tavCreate(&env, nullptr, catalogue);
        ASSERT_NE(worker, nullptr);
        ASSERT_NE(tavConnectorCreate(tavConnectorGroupCreate(worker, "g"), "http://127.0.0.1:1"), nullptr);
        ASSERT_EQ(tavMarkAsClientProcess(worker, path.data()), 0);
        ASSERT_EQ(tavStart(worker, -1), 0);
    }

    int clients() { return tavServerProcessGetClientCount(tav->serverProcess); }

    // The state of server application "app" as the worker's current snapshot has it; "" when it has none.
    std::string workerState() {
        TavRoutingInfo *ri = tavRoutingInfoObtain(worker);
        std::string state;
        tsForEachServerApplication(
            ri->targetSelector,
            [](const TsVisit *visit, void *passback) {
                if (visit->sapp) *static_cast<std::string *>(passback) = visit->sapp->state;
            },
            &state);
        tavRoutingInfoRelease(ri);
        return state;
    }

    // How often the daemon told the controller of added and of deleted routes.
    std::pair<int, int> routeReports() {
        TavControlScope control("test");
        std::pair<int, int> count{0, 0};
        for (const Pending &request : pending()) {
            count.first += request.body.find("addRoutes") != std::string::npos;
            count.second += request.body.find("delRoutes") != std::string::npos;
        }
        return count;
    }
};

TEST_F(Processes, AWorkerGetsTheWholeThenDeltas) {
    EXPECT_EQ(give(serverDocument(5, "STOPPED")), 5);
    startWorker();
    ASSERT_TRUE(eventually([&] { return tavGetState(worker) == STARTED; }));
    EXPECT_EQ(clients(), 1);
    EXPECT_EQ(workerState(), "STOPPED");
    EXPECT_EQ(give(quoted("{'version': 6, 'restVersion': 1, 'delta': true, 'set': {'objects': [{'type': 'serverApplication', "
                          "'name': '/cell/c/node/n/server/s/serverApplication/app', 'props': {'state': 'AFFINITY'}}]}}")),
              6);
    EXPECT_TRUE(eventually([&] { return workerState() == "AFFINITY"; }));
    EXPECT_EQ(give(serverDocument(7, "QUIESCED")), 7) << "a complete document replaces the worker's snapshot";
    EXPECT_TRUE(eventually([&] { return workerState() == "QUIESCED"; }));
    char *dump = tavToJSONString(worker);
    EXPECT_THAT(dump, HasSubstr("\"connectorGroups\"")) << "the daemon's control state";
    tavMemFree(worker, dump);
}

TEST_F(Processes, TheControllerHearsOfTheFirstAndTheLastProcess) {
    give(serverDocument(5, "STARTED"));
    startWorker();
    ASSERT_TRUE(eventually([&] { return routeReports().first == 1; }));
    Tav *first = worker;
    startWorker();
    ASSERT_TRUE(eventually([&] { return tavGetState(worker) == STARTED && clients() == 2; }));
    {
        TavControlScope control("test");
        EXPECT_NE(tavHashGet(tav->sappMap, "/cell/c/node/n/server/s/serverApplication/app"), nullptr);
    }
    // A complete document starts anew: what the workers route to by it is told again.
    give(serverDocument(6, "STARTED"));
    ASSERT_TRUE(eventually([&] { return routeReports().first == 2; }));
    tavDestroy(first);
    ASSERT_TRUE(eventually([&] { return clients() == 1; }));
    tavDestroy(worker);
    worker = nullptr;
    // Both workers are one process here, so its routes end with the first connection that is lost.
    EXPECT_TRUE(eventually([&] { return clients() == 0 && routeReports().second >= 1; }));
    EXPECT_EQ(routeReports().first, 2);
    give(serverDocument(7, "STARTED"));
    TavControlScope control("test");
    EXPECT_EQ(tavHashGet(tav->sappMap, "/cell/c/node/n/server/s/serverApplication/app"), nullptr);
}

TEST_F(Processes, AWorkerComesBackToANewDaemon) {
    give(serverDocument(5, "STARTED"));
    startWorker();
    ASSERT_TRUE(eventually([&] { return tavGetState(worker) == STARTED; }));
    EXPECT_EQ(tavServerProcessTerminate(tav), 0);
    EXPECT_EQ(tavGetState(tav), STOPPED);
    EXPECT_EQ(clients(), 0);
    EXPECT_EQ(workerState(), "STARTED") << "requests go on with what was there";
    EXPECT_EQ(tavStart(tav, -1), 0);
    EXPECT_TRUE(eventually([&] { return clients() == 1; }));
    give(serverDocument(6, "AFFINITY"));
    EXPECT_TRUE(eventually([&] { return workerState() == "AFFINITY"; }));
}

int rawClient(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof address), 0);
    return fd;
}

bool isClosed(int fd) {
    char buffer[4096];
    ssize_t got;
    while ((got = recv(fd, buffer, sizeof buffer, 0)) > 0) {
    }
    return got == 0;
}

TEST_F(Processes, HostileFramesCostOnlyTheirConnection) {
    give(serverDocument(5, "STARTED"));
    startWorker();
    ASSERT_TRUE(eventually([&] { return tavGetState(worker) == STARTED; }));
    const int half = rawClient(path);
    ASSERT_EQ(send(half, "12345", 5, 0), 5) << "half a header, then silence";

    const TavMessageHdr bad[] = {{MT_C2S_JSON, 1, -1}, {MT_C2S_JSON, 1, 0x7fffffff}};
    for (const TavMessageHdr &hdr : bad) {
        const int fd = rawClient(path);
        ASSERT_EQ(send(fd, &hdr, sizeof hdr, 0), static_cast<ssize_t>(sizeof hdr));
        EXPECT_TRUE(isClosed(fd)) << hdr.len;
        close(fd);
    }
    // Unknown types, the daemon's own types, bodies that are no JSON or no block: the message is dropped, the connection stays.
    const int odd = rawClient(path);
    for (int type : {MT_CONNECTED + 0, MT_S2C_END_ROUTING_INFO + 0, MT_C2S_JSON + 0, MT_CLIENT_TO_SERVER_HEALTH_TRIGGER + 0, 99}) {
        char frame[sizeof(TavMessageHdr) + 3] = {};
        const TavMessageHdr hdr = {type, 4711, 3};
        memcpy(frame, &hdr, sizeof hdr);
        memcpy(frame + sizeof hdr, "{a}", 3);
        ASSERT_EQ(send(odd, frame, sizeof frame, 0), static_cast<ssize_t>(sizeof frame));
    }
    give(serverDocument(6, "AFFINITY"));
    EXPECT_TRUE(eventually([&] { return workerState() == "AFFINITY"; })) << "the others are served meanwhile";
    EXPECT_TRUE(eventually([&] { return clients() == 3; }));
    close(half);
    close(odd);
    EXPECT_TRUE(eventually([&] { return clients() == 1; }));
}

TEST_F(Processes, TheSocketIsTheOwnersAlone) {
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, 0700u);
}

} // namespace
