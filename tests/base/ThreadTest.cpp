#include "tavThread/tavThread.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <future>
#include <string>

#include "base/FailEachAllocation.h"

namespace {

// What a started thread saw.
struct Seen {
    std::promise<void> done;
    pthread_t self{};
    bool signalsBlocked = false;
    std::string order;
};

thread_local std::string initialised;
void initThread() { initialised = "init "; }

void look(void *arg) {
    auto *seen = static_cast<Seen *>(arg);
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    seen->signalsBlocked = sigismember(&mask, SIGTERM) && sigismember(&mask, SIGCHLD) && sigismember(&mask, SIGPIPE);
    seen->order = initialised + "run";
    seen->self = pthread_self();
    std::promise<void> done = std::move(seen->done); // `seen` may end as soon as the waiter knows
    done.set_value();
}

} // namespace

TEST(Thread, RunsDetachedWithSignalsBlockedAfterTheHostsInit) {
    EnvCallBacks withInit{}, withoutInit{};
    withInit.threadInit = initThread;
    const std::pair<EnvCallBacks *, const char *> cases[] = {{nullptr, "run"}, {&withoutInit, "run"}, {&withInit, "init run"}};
    sigset_t before, after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    for (const auto &[env, order] : cases) {
        Seen seen;
        const std::future<void> done = seen.done.get_future();
        TavThread *thread = tavThreadCreate(look, &seen, env);
        done.wait();
        EXPECT_EQ(thread, reinterpret_cast<TavThread *>(seen.self));
        EXPECT_TRUE(seen.signalsBlocked);
        EXPECT_EQ(seen.order, order);
        tavThreadDestroy(thread);
    }
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int sig = 1; sig < NSIG; sig++) EXPECT_EQ(sigismember(&before, sig), sigismember(&after, sig)) << "the creator's mask is restored";
}

TEST(Thread, AlarmsRoundUpToSecondsAndNeverSleepBackwards) {
    const std::pair<int, int> cases[] = {{0, 0}, {1, 1}, {999, 1}, {1000, 1}, {1001, 2}, {-1, 0}, {INT_MIN, 0}, {INT_MAX, 2147484}};
    for (const auto &[milliseconds, seconds] : cases) EXPECT_EQ(tavAlarmSeconds(milliseconds), seconds) << milliseconds;
    Seen seen;
    const std::future<void> done = seen.done.get_future();
    ASSERT_EQ(tavSetAlarm(look, &seen, -5, nullptr), 0);
    done.wait();
}
