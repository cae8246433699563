#include "core/CoreFixture.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "tavRule/tavRule.h"
#include "tavUtil/tavMemory.h"

namespace {

std::mutex traceMutex;
std::vector<std::string> traceLines;

int keepTrace(const TrContext *ctx, va_list args) {
    const char *format = trContextGetFormat(ctx);
    if (!format) return 0;
    char line[4096];
    std::vsnprintf(line, sizeof line, format, args);
    const std::lock_guard<std::mutex> guard(traceMutex);
    traceLines.emplace_back(line);
    return 0;
}

int ownersBefore;

} // namespace

CoreFixture::CoreFixture() : env(systemCallBacks()) { env.trace.printf = keepTrace; }

CoreFixture::~CoreFixture() = default;

void CoreFixture::SetUp() {
    trDestroy(); // what other instances left behind
    ownersBefore = tavGetMemCount();
    static_cast<SystemParts &>(*this) = systemCreate(env, url);
    ASSERT_EQ(tavStart(tav, -1), 0);
    takeTrace();
}

// Late answers find that nobody waits for them, and everything has gone back.
void CoreFixture::TearDown() {
    tavDestroy(tav);
    answerNone();
    trDestroy();
    takeTrace();
    EXPECT_EQ(tavGetMemCount(), ownersBefore);
}

int CoreFixture::settle() {
    const int blocks = systemSettle(tav);
    EXPECT_TRUE(systemBlocksBackTo(blocks));
    return blocks;
}

std::string CoreFixture::dump() { return systemDump(tav) + "\nrules " + std::to_string(tavRulesGetCount(tav->requestTraceRules)); }

std::string CoreFixture::storedText() const { return takeText(json_incref(connector->json)); }

void CoreFixture::traceOn(const char *spec) {
    tavSetTraceSpec(tav, spec);
    takeLines();
}

std::vector<std::string> CoreFixture::takeLines() {
    const std::lock_guard<std::mutex> guard(traceMutex);
    return std::exchange(traceLines, {});
}

std::string CoreFixture::takeTrace() {
    std::string text;
    for (const std::string &line : takeLines()) text += line + (line.ends_with('\n') ? "" : "\n");
    return text;
}

int CoreFixture::traced(const std::string &part) {
    const std::lock_guard<std::mutex> guard(traceMutex);
    const auto has = [&](const std::string &line) { return line.find(part) != std::string::npos; };
    return static_cast<int>(std::count_if(traceLines.begin(), traceLines.end(), has));
}

std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}
