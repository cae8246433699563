// A daemon and eight workers as processes of their own, a controller in this one; daemon and workers are killed, the controller is
// restarted. TAV_PROCESS_ROUNDS sets how often.
#include <gmock/gmock.h>
#include <jansson.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>

#include "support/ChildProcess.h"
#include "support/LoopbackServer.h"
#include "system/Shop.h"

namespace {

using testing::HasSubstr;

constexpr size_t WORKERS = 8;

// A controller with a script of versions: every version of the shop comes as a complete document, the odd ones also as a delta for who has
// the one before. Long polls wait until there is something newer.
class Controller : public LoopbackServer {
public:
    Controller() { open(); }
    ~Controller() override { shut(); }
    int publish() { // the next version
        const std::lock_guard guard(mutex_);
        changed_.notify_all();
        return ++version_;
    }
    // How often each report came since the last clearing: "add ROUTE", "del ROUTE", "true SERVER", "false SERVER".
    std::map<std::string, int> reports() {
        const std::lock_guard guard(mutex_);
        return reports_;
    }
    void clearReports() {
        const std::lock_guard guard(mutex_);
        reports_.clear();
    }

private:
    bool respond(int fd, const std::string &request) override {
        std::unique_lock guard(mutex_);
        std::string text = "{}";
        if (request.find("Routes\"") != std::string::npos || request.find("healthPolicyName") != std::string::npos) {
            note(request.substr(request.find("\r\n\r\n")));
        } else {
            const size_t vid = request.find("&vid=");
            const long long known = vid == std::string::npos ? -1 : strtoll(request.c_str() + vid + 5, nullptr, 10);
            changed_.wait(guard, [&] { return ended_ || version_ > known; });
            text = documentFor(known);
        }
        if (ended_) return false;
        guard.unlock();
        return sendText(fd, counted(text));
    }
    // Its transports listen at a port that tells the version.
    std::string documentFor(long long known) const {
        const int generation = version_ / 2 + 1;
        const auto moved = [](const std::string &server) { return shop::entry(server + "/transport/http", "transport", "'port': 9080"); };
        std::string text = version_ % 2 == 0 || known != version_ - 1
                               ? shop::document(generation, version_)
                               : shop::delta(generation, version_, shop::objects("set", moved(shop::S1) + ", " + moved(shop::S2)));
        for (size_t at = 0; (at = text.find("9080", at)) != std::string::npos;) text.replace(at, 4, std::to_string(10000 + version_));
        return text;
    }
    void note(const std::string &body) {
        json_t *json = json_loads(body.c_str(), 0, nullptr);
        for (const char *key : {"addRoutes", "delRoutes"}) {
            const json_t *routes = json_object_get(json, key);
            for (size_t i = 0; i < json_array_size(routes); i++)
                reports_[std::string(key, 3) + " " + json_string_value(json_array_get(routes, i))]++;
        }
        const char *server = json_string_value(json_object_get(json, "serverName"));
        if (server) reports_[std::string(json_is_true(json_object_get(json, "healthPolicyTriggered")) ? "true " : "false ") + server]++;
        json_decref(json);
    }

    int version_ = 2;
    std::map<std::string, int> reports_;
};

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
    Controller controller;
    ChildPtr daemon;
    std::vector<ChildPtr> workers;
    long lag = 0; // the longest, in microseconds
    long long requests = 0;

    void TearDown() override { unlink(path.c_str()); }

    ChildPtr spawn(const char *role) { return std::make_unique<Child>(role, path, controller.url()); }
    // Returns when the daemon listens, in microseconds.
    long long startDaemon() {
        daemon = spawn("daemon");
        const std::string done = daemon->ask("start");
        EXPECT_THAT(done, HasSubstr("done "));
        return strtoll(done.c_str() + 5, nullptr, 10);
    }
    void startWorkers() {
        while (workers.size() < WORKERS) workers.push_back(spawn("worker"));
        for (const ChildPtr &worker : workers) worker->tell("start");
        for (const ChildPtr &worker : workers) ASSERT_THAT(worker->hear(), HasSubstr("done "));
    }
    void tellAll(const char *line) {
        for (const ChildPtr &worker : workers) worker->tell(line);
        for (const ChildPtr &worker : workers) EXPECT_THAT(worker->hear(), HasSubstr("done "));
    }
    void expectVersionEverywhere(int version) {
        for (const ChildPtr &worker : workers)
            ASSERT_TRUE(eventually([&] { return worker->stat("version") == version; })) << version << ": " << worker->ask("stat");
    }
    // No request of the process has failed or seen half a configuration.
    void audit(Child &worker) {
        EXPECT_EQ(worker.stat("failed"), 0) << worker.ask("stat");
        requests += worker.stat("requests");
    }
    void restartWorker(size_t index) {
        audit(*workers[index]);
        workers[index]->end(SIGKILL);
        workers[index] = spawn("worker");
        ASSERT_THAT(workers[index]->ask("start"), HasSubstr("done "));
        workers[index]->ask("serve");
    }
    // Each ends by itself: with nothing kept, and nothing for a sanitizer to say.
    void endAll() {
        workers.push_back(std::move(daemon));
        for (const ChildPtr &child : workers) {
            EXPECT_EQ(child->ask("end"), "left 0 threads 0");
            EXPECT_EQ(child->end(0), 0);
        }
        workers.clear();
    }
    // One round: a daemon that dies, a worker that dies, now and then a controller that does.
    void round(int number) {
        daemon->end(SIGKILL);
        int version = controller.publish(); // while nobody is there to pass it on
        controller.clearReports();
        const long long back = startDaemon();
        expectVersionEverywhere(version);
        for (const ChildPtr &worker : workers) lag = std::max(lag, static_cast<long>(worker->stat("seenAt") - back));
        version = controller.publish();
        expectVersionEverywhere(version);
        restartWorker(static_cast<size_t>(number) % WORKERS);
        if (number % 3 == 0) {
            controller.shut();
            controller.open();
            version = controller.publish();
            expectVersionEverywhere(version);
            expectVersionEverywhere(controller.publish());
        }
    }
};

// The report of a kind on every route of a generation.
std::map<std::string, int> onEveryRoute(const std::string &kind, int generation) {
    std::map<std::string, int> reports;
    for (const std::string &route : {shop::S1 + "/serverApplication/shop-edition@", shop::S1 + "/serverApplication/admin@",
                                     shop::S2 + "/serverApplication/shop-edition@", shop::S2 + "/serverApplication/shop-editionB@"})
        reports[shop::fill(kind + " " + route, generation)] = 1;
    return reports;
}

TEST_F(RealProcesses, TheControllerHearsOfTheFirstAndTheLast) {
    std::map<std::string, int> expected = onEveryRoute("add", 2);
    // A report that is still under way when the configuration changes counts for the new one.
    const auto everyWorkersRoutes = static_cast<long long>(WORKERS * expected.size());
    const auto hears = [&] { return eventually([&] { return controller.reports() == expected; }); };
    const auto allRegister = [&] { return eventually([&] { return daemon->stat("registered") == everyWorkersRoutes; }); };
    startDaemon();
    startWorkers();
    EXPECT_TRUE(hears()) << testing::PrintToString(controller.reports());
    ASSERT_TRUE(allRegister());
    controller.publish(); // a delta
    controller.publish(); // routes of other names, and no more of the old ones
    expected.merge(onEveryRoute("add", 3));
    EXPECT_TRUE(hears()) << testing::PrintToString(controller.reports());
    ASSERT_TRUE(allRegister());
    tellAll("serve");
    expectVersionEverywhere(4);
    tellAll("slow");
    expected[shop::fill("true " + shop::S1, 3)] = 1;
    EXPECT_TRUE(hears()) << testing::PrintToString(controller.reports());
    while (workers.size() > 1) {
        workers.pop_back();
        const auto left = static_cast<long long>(workers.size());
        ASSERT_TRUE(eventually([&] { return daemon->stat("clients") == left; }));
    }
    EXPECT_EQ(controller.reports(), expected) << "one is left";
    workers.clear();
    expected.merge(onEveryRoute("del", 3));
    expected[shop::fill("false " + shop::S1, 3)] = 1;
    EXPECT_TRUE(hears()) << testing::PrintToString(controller.reports());
    endAll();
}

TEST_F(RealProcesses, RequestsGoOnWhoeverDies) {
    const char *wanted = getenv("TAV_PROCESS_ROUNDS");
    const int rounds = wanted ? atoi(wanted) : 3;
    startDaemon();
    startWorkers();
    tellAll("serve");
    expectVersionEverywhere(2);
    round(1);
    tellAll("pause");
    std::vector<std::vector<long long>> before;
    for (const ChildPtr &worker : workers) before.push_back({worker->stat("descriptors"), worker->stat("threads"), worker->stat("blocks")});
    tellAll("serve");
    for (int number = 2; number <= rounds; number++) {
        SCOPED_TRACE(number);
        round(number);
        if (HasFatalFailure()) return;
    }
    tellAll("pause");
    for (size_t i = 0; i < workers.size(); i++) {
        audit(*workers[i]);
        EXPECT_LE(workers[i]->stat("descriptors"), before[i][0]);
        EXPECT_LE(workers[i]->stat("threads"), before[i][1]);
        EXPECT_LE(workers[i]->stat("blocks"), before[i][2] + 100);
    }
    printf("%d rounds, %lld requests; the last worker had the newest version %.2f s after the daemon was back\n", rounds, requests,
           static_cast<double>(lag) / 1e6);
    endAll();
}

} // namespace
