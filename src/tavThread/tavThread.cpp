// Detached threads and alarms.
//
// A thread starts with every signal blocked, so that the host's signal handlers keep running on the host's own threads. Its start record
// belongs to the new thread once it runs, and to the creator when it never does. A handle is the thread's identifier: nothing to free.
#include "tavThread/tavThread.h"

#include <csignal>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavTime.h"

namespace {

// Blocks all signals of the calling thread for a scope; a thread created meanwhile inherits the mask.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        blocked_ = pthread_sigmask(SIG_SETMASK, &all, &before_) == 0;
    }
    ~SignalsBlocked() noexcept {
        if (blocked_) pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t before_;
    bool blocked_;
};

void *tavStartRoutineWrapper(void *arg) {
    auto *record = static_cast<tav_thread_baton_t *>(arg);
    const tav_thread_baton_t baton = *record;
    tavDestroyRecord(record);
    if (baton.env && baton.env->threadInit) baton.env->threadInit();
    baton.fn(baton.arg);
    return nullptr;
}

bool startDetached(pthread_t *thread, tav_thread_baton_t *baton) noexcept {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const SignalsBlocked blocked;
    const bool started = pthread_create(thread, &attributes, tavStartRoutineWrapper, baton) == 0;
    pthread_attr_destroy(&attributes);
    return started;
}

void runAlarm(void *arg) {
    auto *record = static_cast<TavAlarm *>(arg);
    const TavAlarm alarm = *record;
    tavDestroyRecord(record); // before the call: once the function has run, nothing of the alarm is left
    tavSleep(tavAlarmSeconds(alarm.milliseconds));
    alarm.function(alarm.arg);
}

} // namespace

TavThread *tavThreadCreate(TavRunFcn run, void *args, EnvCallBacks *env) noexcept {
    if (!run) return nullptr;
    auto *baton = tavNewRecord<tav_thread_baton_t>(run, args, env);
    if (!baton) return nullptr;
    pthread_t thread{};
    if (startDetached(&thread, baton)) return reinterpret_cast<TavThread *>(thread);
    tavDestroyRecord(baton);
    return nullptr;
}

void tavThreadDestroy(TavThread *) noexcept {}

int tavSetAlarm(void (*function)(void *), void *arg, int milliseconds, void *env) noexcept {
    if (!function) return -1;
    auto *alarm = tavNewRecord<TavAlarm>(function, arg, milliseconds);
    if (!alarm) return -1;
    if (tavThreadCreate(runAlarm, alarm, static_cast<EnvCallBacks *>(env))) return 0;
    tavDestroyRecord(alarm);
    return -1;
}
