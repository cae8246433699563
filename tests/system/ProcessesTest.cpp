// A daemon and eight workers as processes of their own, a controller in this one; daemon and workers are killed, the controller is
// restarted. TAV_PROCESS_ROUNDS sets how often.
#include <gtest/gtest.h>
#include <jansson.h>
#include <unistd.h>

#include <map>
#include <memory>

#include "support/ChildProcess.h"
#include "system/HeldController.h"
#include "system/Shop.h"

namespace {

constexpr size_t WORKERS = 8;

// Every version of the shop as a complete document, or as what leads to it from the one before. Its transports listen at a port that tells
// the version.
std::string documentOf(int version, bool whole) {
    const int generation = version / 2 + 1;
    const auto moved = [](const std::string &server) { return shop::entry(server + "/transport/http", "transport", "'port': 9080"); };
    std::string text = whole ? shop::document(generation, version)
                             : shop::delta(generation, version, shop::objects("set", moved(shop::S1) + ", " + moved(shop::S2)));
    for (size_t at = 0; (at = text.find("9080", at)) != std::string::npos;) text.replace(at, 4, std::to_string(10000 + version));
    return text;
}

// How often each report came: "add ROUTE", "del ROUTE", "true SERVER", "false SERVER".
using Reports = std::map<std::string, int>;

Reports readReports(const std::vector<std::string> &bodies) {
    Reports reports;
    for (const std::string &body : bodies) {
        json_t *json = json_loads(body.c_str(), 0, nullptr);
        for (const char *key : {"addRoutes", "delRoutes"}) {
            const json_t *routes = json_object_get(json, key);
            for (size_t i = 0; i < json_array_size(routes); i++)
                reports[std::string(key, 3) + " " + json_string_value(json_array_get(routes, i))]++;
        }
        const char *server = json_string_value(json_object_get(json, "serverName"));
        if (server) reports[std::string(json_is_true(json_object_get(json, "healthPolicyTriggered")) ? "true " : "false ") + server]++;
        json_decref(json);
    }
    return reports;
}

// A child that is told what to do.
class Child : public ChildProcess {
public:
    Child(const char *role, const std::string &path, const std::string &url) : ChildProcess({TAV_PROCESS_MEMBER, role, path, url}) {}
    std::string ask(const std::string &line) {
        EXPECT_TRUE(tell(line));
        return hear();
    }
    // A number of the "stat" answer.
    long long stat(const std::string &name) {
        const std::string text = " " + ask("stat");
        const size_t at = text.find(" " + name + " ");
        EXPECT_NE(at, std::string::npos) << name << " in" << text;
        return at == std::string::npos ? -1 : strtoll(text.c_str() + at + name.size() + 2, nullptr, 10);
    }
};

using ChildPtr = std::unique_ptr<Child>;

class RealProcesses : public testing::Test {
protected:
    std::string path = "/tmp/tav-processes-" + std::to_string(getpid());
    int version = 2;
    HeldController controller{documentOf(2, true)};
    ChildPtr daemon;
    std::vector<ChildPtr> workers;

    void TearDown() override { unlink(path.c_str()); }

    // Brings out the next version; odd ones come as a delta to a daemon that polls.
    void publish(bool polled = true) {
        version++;
        controller.setDocument(documentOf(version, true));
        if (!polled) return;
        controller.poll();
        controller.answer(
            [next = documentOf(version, version % 2 == 0)](int fd) { return HeldController::sendText(fd, HeldController::counted(next)); });
    }
    ChildPtr spawn(const char *role) {
        auto child = std::make_unique<Child>(role, path, controller.url());
        child->tell("start");
        return child;
    }
    // Returns when the daemon listens.
    void startDaemon() {
        daemon = spawn("daemon");
        EXPECT_EQ(daemon->hear(), "done");
    }
    void startWorkers() {
        while (workers.size() < WORKERS) workers.push_back(spawn("worker"));
        for (const ChildPtr &worker : workers) ASSERT_EQ(worker->hear(), "done");
    }
    void tellAll(const char *line) {
        for (const ChildPtr &worker : workers) worker->tell(line);
        for (const ChildPtr &worker : workers) EXPECT_EQ(worker->hear(), "done");
    }
    void expectVersionEverywhere() {
        for (const ChildPtr &worker : workers)
            ASSERT_TRUE(eventually([&] { return worker->stat("version") == version; })) << version << ": " << worker->ask("stat");
    }
    bool hears(const Reports &expected) {
        return eventually([&] { return readReports(controller.reports()) == expected; });
    }
    // Each ends by itself: with nothing kept, and nothing for a sanitizer to say.
    void endAll() {
        workers.push_back(std::move(daemon));
        for (const ChildPtr &child : workers) {
            EXPECT_EQ(child->ask("end"), "left 0 threads 0 descriptors 0");
            EXPECT_EQ(child->end(0), 0);
        }
        workers.clear();
    }
    // One round: a daemon that dies, a worker that dies, now and then a controller that does.
    void round(int number) {
        daemon->end(SIGKILL);
        controller.answer([](int) { return false; });
        publish(false); // while nobody is there to pass it on
        startDaemon();
        expectVersionEverywhere();
        publish();
        expectVersionEverywhere();
        // No request of the process has failed or seen half a configuration.
        ChildPtr &worker = workers[static_cast<size_t>(number) % WORKERS];
        EXPECT_EQ(worker->stat("failed"), 0) << worker->ask("stat");
        worker->end(SIGKILL);
        worker = spawn("worker");
        ASSERT_EQ(worker->hear(), "done");
        worker->ask("serve");
        if (number % 3 != 0) return;
        controller.shut();
        controller.open();
        publish(false);
        expectVersionEverywhere();
        publish();
        expectVersionEverywhere();
    }
};

// The report of a kind on every route of a generation.
Reports onEveryRoute(const std::string &kind, int generation) {
    Reports reports;
    for (const std::string &route : {shop::S1 + "/serverApplication/shop-edition@", shop::S1 + "/serverApplication/admin@",
                                     shop::S2 + "/serverApplication/shop-edition@", shop::S2 + "/serverApplication/shop-editionB@"})
        reports[shop::fill(kind + " " + route, generation)] = 1;
    return reports;
}

TEST_F(RealProcesses, TheControllerHearsOfTheFirstAndTheLast) {
    Reports expected = onEveryRoute("add", 2);
    // A report that is still under way when the configuration changes counts for the new one.
    const auto everyWorkersRoutes = static_cast<long long>(WORKERS * expected.size());
    const auto allRegister = [&] { return eventually([&] { return daemon->stat("registered") == everyWorkersRoutes; }); };
    startDaemon();
    startWorkers();
    EXPECT_TRUE(hears(expected));
    ASSERT_TRUE(allRegister());
    publish(); // a delta
    publish(); // routes of other names, and no more of the old ones
    expected.merge(onEveryRoute("add", 3));
    EXPECT_TRUE(hears(expected));
    ASSERT_TRUE(allRegister());
    tellAll("serve");
    expectVersionEverywhere();
    tellAll("slow");
    expected[shop::fill("true " + shop::S1, 3)] = 1;
    EXPECT_TRUE(hears(expected));
    while (workers.size() > 1) {
        workers.pop_back();
        const auto left = static_cast<long long>(workers.size());
        ASSERT_TRUE(eventually([&] { return daemon->stat("clients") == left; }));
    }
    EXPECT_EQ(readReports(controller.reports()), expected) << "one is left";
    workers.clear();
    expected.merge(onEveryRoute("del", 3));
    expected[shop::fill("false " + shop::S1, 3)] = 1;
    EXPECT_TRUE(hears(expected)) << testing::PrintToString(controller.reports());
    endAll();
}

TEST_F(RealProcesses, RequestsGoOnWhoeverDies) {
    const char *wanted = getenv("TAV_PROCESS_ROUNDS");
    const int rounds = wanted ? atoi(wanted) : 3;
    startDaemon();
    startWorkers();
    tellAll("serve");
    expectVersionEverywhere();
    for (int number = 1; number <= rounds; number++) {
        SCOPED_TRACE(number);
        round(number);
        if (HasFatalFailure()) return;
    }
    for (const ChildPtr &worker : workers) EXPECT_EQ(worker->stat("failed"), 0) << worker->ask("stat");
    endAll();
}

} // namespace
