// One process of a multi-process web server: the daemon or a worker, with the library's own transport and alarms. It is told what to do on
// standard input, a line each, and answers every line with one of its own on standard output. At the end of the input it ends at once.
//
// usage: process_member daemon|worker SOCKET CONTROLLER_URL
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>
#include <vector>

#include "system/Instance.h"
#include "system/Shop.h"
#include "tav/tavControl.h"
#include "tav/tavRecord.h"
#include "tavMultiProcess/tavMultiProcess.h"
#include "tavProcess/tavSapp.h"
#include "tavUtil/tavMemory.h"

namespace {

constexpr int FIRST_PORT = 10000; // of version 0: a decision's port tells the version that it comes from
constexpr size_t REQUEST_THREADS = 2;

struct Member {
    Tav *tav;
    bool isDaemon;
    std::vector<std::thread> threads;
    std::atomic<bool> serving{false};
    std::atomic<long> requests{0}, failed{0};
    std::mutex mutex;
    int version = -1;    // newest that a request has seen
    std::string failure; // the first decision that did not hold together

    void start(char *path, char *url);
    void visit();
    void serve();
    void pause();
    void slowRequest();
    std::string stat();
};

void Member::start(char *path, char *url) {
    EnvCallBacks env = systemCallBacks();
    env.http.connector = {};
    env.alarm = nullptr;
    const SystemParts parts = systemCreate(env, url);
    tav = parts.tav;
    tavConnectorGroupSetProperty(parts.group, "retryInterval", "1");
    if (isDaemon) {
        tavMarkAsServerProcess(tav, path, getuid());
        tavStart(tav, 0); // listens when there is a configuration to give
        return;
    }
    tavMarkAsClientProcess(tav, path);
    tavStart(tav, -1);
    while (tavGetState(tav) != STARTED) usleep(1000);
}

void Member::visit() {
    EnvHttpContext request = shop::request("/shop/x.jsp");
    const shop::Decision decision = shop::decide(tav, request);
    const int seen = decision.port - FIRST_PORT;
    requests++;
    const bool good = decision.action == PERMIT && decision.handled == 1 && decision.generation() == seen / 2 + 1;
    if (!good) failed++;
    const std::lock_guard<std::mutex> guard(mutex);
    if (!good && failure.empty()) failure = decision.text();
    if (good && seen > version) version = seen;
}

void Member::serve() {
    serving = true;
    while (threads.size() < REQUEST_THREADS)
        threads.emplace_back([this] {
            for (; serving; usleep(500)) visit();
        });
}

void Member::pause() {
    serving = false;
    for (std::thread &thread : threads) thread.join();
    threads.clear();
}

// One that takes longer than the health policy allows, on the server that the policy watches.
void Member::slowRequest() {
    EnvHttpContext request = shop::request("/admin/");
    request.protocol = "https";
    TavHttpContext *ctx = tavHttpContextObtain(tav, &request);
    shop::decisionOf(ctx);
    for (const TavHttpContextState state : {CONNECT_SUCCESS, REQUEST_SENDING, REQUEST_SENT}) tavHttpContextSetState(ctx, state, 0, nullptr);
    usleep(20000);
    for (const TavHttpContextState state : {RESPONSE_ARRIVED, RESPONSE_SENT}) tavHttpContextSetState(ctx, state, 0, nullptr);
    tavHttpContextRelease(ctx);
}

int openDescriptors() {
    int count = -1; // without the walk's own
    for (const auto &each : std::filesystem::directory_iterator("/proc/self/fd")) count += !each.path().empty();
    return count;
}

// How many routes of how many processes the daemon counts.
int registered(Tav *tav) {
    TavControlScope control("test");
    int count = 0;
    for (auto [name, entry] : TavHashRange<TavRoutingSapp>(tav->sappMap)) count += tavListGetCount(entry->pids);
    return count;
}

std::string Member::stat() {
    const std::lock_guard<std::mutex> guard(mutex);
    char text[128];
    std::snprintf(text, sizeof text, "version %d requests %ld failed %ld clients %d registered %d", version, requests.load(), failed.load(),
                  isDaemon && tav ? tavServerProcessGetClientCount(tav->serverProcess) : 0, isDaemon && tav ? registered(tav) : 0);
    return text + (failure.empty() ? "" : " failure " + failure);
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) return 2;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int blocks = tavGetMemCount(), threads = systemThreads(), descriptors = openDescriptors();
    Member member{};
    member.isDaemon = strcmp(argv[1], "daemon") == 0;
    for (std::string line; std::getline(std::cin, line);) {
        if (line == "start") member.start(argv[2], argv[3]);
        if (line == "serve") member.serve();
        if (line == "pause") member.pause();
        if (line == "slow") member.slowRequest();
        if (line == "end") {
            member.pause();
            tavDestroy(member.tav);
            member.tav = nullptr;
            systemThreadsBackTo(threads);
            trDestroy();
            std::cout << "left " << tavGetMemCount() - blocks << " threads " << systemThreads() - threads << " descriptors "
                      << openDescriptors() - descriptors << std::endl;
            return 0;
        }
        std::cout << (line == "stat" ? member.stat() : "done") << std::endl;
    }
    std::_Exit(0);
}
