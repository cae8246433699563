// Detached threads and one-shot alarms.
#ifndef TAVTHREAD_TAVTHREAD_H
#define TAVTHREAD_TAVTHREAD_H

#include <pthread.h>

#include <tav/env.h>

// The thread's identifier; opaque. A handle is the identifier itself, so nothing needs to be freed.
typedef struct _TavThread TavThread;
typedef void (*TavRunFcn)(void *arg);

typedef struct tav_thread_baton_t {
    TavRunFcn fn;
    void *arg;
    EnvCallBacks *env; // may be null
} tav_thread_baton_t;

// Starts run(args) on a detached thread with all signals blocked; env->threadInit (when set) runs first. Null when it did not start: the
// caller then still owns `args`. `env` must stay valid until the thread has begun: hold a reference on its owner.
TavThread *tavThreadCreate(TavRunFcn run, void *args, EnvCallBacks *env) noexcept;
void tavThreadDestroy(TavThread *thread) noexcept; // does nothing: threads end by themselves

typedef struct TavAlarm {
    void (*function)(void *);
    void *arg;
    int milliseconds;
} TavAlarm;

// Whole seconds that an alarm of so many milliseconds sleeps.
constexpr int tavAlarmSeconds(int milliseconds) noexcept {
    return milliseconds <= 0 ? 0 : static_cast<int>((static_cast<long long>(milliseconds) + 999) / 1000);
}

// Calls function(arg) once on a thread of its own after `milliseconds` rounded up to whole seconds (below 0: 0). `env` as above (may be
// null). 0; -1 when the thread could not be started.
int tavSetAlarm(void (*function)(void *), void *arg, int milliseconds, void *env) noexcept;

#endif
