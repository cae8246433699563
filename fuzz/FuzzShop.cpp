#include "FuzzShop.h"

#include <unistd.h>

#include <memory>

#include "FuzzTarget.h"
#include "support/Ipc.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavInstance/tavInstance.h"
#include "tavUtil/tavTime.h"

namespace {

TavTime now = 1000000; // ms; moves on between inputs only

TavTime fuzzClock() { return now; }

std::unique_ptr<FuzzShop> instance;

} // namespace

FuzzShop::FuzzShop() {
    FUZZ_CHECK(tav && connector);
    tavSetClock(fuzzClock);
    tavHttpContextSetRolloutSleep([](int) {});
    reset();
}

FuzzShop::~FuzzShop() {
    tavSetClock(nullptr);
    tavHttpContextSetRolloutSleep(nullptr);
}

FuzzShop &FuzzShop::get() {
    if (!instance) instance.reset(new FuzzShop);
    now += 5000;
    return *instance;
}

void FuzzShop::drop() {
    instance.reset();
    FuzzProcess::drop();
}

void FuzzShop::reset() {
    FUZZ_CHECK(give(shop::document(1)) == 1);
    settle(); // what the document replaced is freed on the instance's own thread
}

// ---- processes ----

namespace {

std::unique_ptr<FuzzProcess> daemonProcess, workerProcess;

const std::string ROUTE = "/cell/c/node/n1/server/s1-1/serverApplication/shop-edition1";
const char URL[] = "http://127.0.0.1:1";

// A document of the connector, or nearly.
std::string connectorDocument(FuzzInput &input, const std::string &members) {
    std::string text = "{";
    if (input.pick(8)) text += "\"connectorGroupName\": \"g\", ";
    if (input.pick(8)) text += std::string("\"connectorURL\": \"") + URL + "\", ";
    return text + members + "}";
}

std::string body(FuzzInput &input) {
    switch (input.pick(8)) {
        case 0:
            return "";
        case 1:
            return input.line();
        case 2:
            return connectorDocument(input, input.line());
        case 3:
            return connectorDocument(input, std::string(input.pick(2) ? "\"add" : "\"del") + "Routes\": [\"" + ROUTE + "\", \"" +
                                                input.take(input.pick(4)) + "\", 1]");
        case 4:
            return triggerBlock(input.pick(2), "/cell/c/healthPolicy/slow", "/cell/c/node/n1/server/s1-1", input.pick(4) ? "g" : "h", URL);
        case 5: {
            std::string block = triggerBlock(input.pick(2), "p", "s", "g", URL);
            const std::string other = input.take(4);
            const size_t at = input.pick(static_cast<unsigned>(block.size() - 4));
            return block.replace(at, other.size(), other);
        }
        case 6:
            return connectorDocument(input, shop::document(1 + static_cast<int>(input.pick(2))).substr(1));
        default:
            return connectorDocument(
                input, shop::delta(1, 2, shop::objects("set", shop::entry(shop::S1, "server", "'weight': " + input.line()))).substr(1));
    }
}

} // namespace

std::string fuzzFrames(FuzzInput &input) {
    std::string frames;
    if (input.pick(256) == 'R') return input.rest();
    while (!input.empty() && frames.size() < 100000) {
        const int type = static_cast<int>(input.pick(10)) - 1;
        std::string content = body(input);
        if (input.pick(4)) content.push_back('\0');
        constexpr int WRONG[] = {1, -1, -1000000, 0x40000000};
        const unsigned wrong = input.pick(64);
        frames += ipcFrame(type, content, wrong < 4 ? WRONG[wrong] : 0);
    }
    return frames;
}

std::string FuzzProcess::path() { return "/tmp/tav-fuzz-" + std::to_string(getpid()); }

FuzzProcess::FuzzProcess(void (*mark)(Tav *tav)) : SystemInstance(systemCallBacks(), mark) { FUZZ_CHECK(tav && connector); }

FuzzProcess::~FuzzProcess() { unlink(path().c_str()); }

FuzzProcess &FuzzProcess::daemon() {
    if (daemonProcess) return *daemonProcess;
    daemonProcess.reset(new FuzzProcess([](Tav *tav) { tavMarkAsServerProcess(tav, path().data(), getuid()); }));
    FUZZ_CHECK(daemonProcess->give(shop::document(1)) == 1);
    daemonProcess->settle();
    return *daemonProcess;
}

FuzzProcess &FuzzProcess::worker() {
    if (!workerProcess) workerProcess.reset(new FuzzProcess([](Tav *tav) { tavMarkAsClientProcess(tav, (path() + "-none").data()); }));
    return *workerProcess;
}

void FuzzProcess::drop() {
    daemonProcess.reset();
    workerProcess.reset();
}
