// What the daemon's and the worker's loop share: the start on a thread of its own, the stop that wakes it and waits.
//
// States: not running -> STARTING (start, under the control lock) -> STARTED (the loop, unless a stop came first) -> STOPPING (stop) -> not
// running (the loop's last step). The loop's thread holds an instance reference.
#ifndef TAVMULTIPROCESS_PROCESSLOOP_H
#define TAVMULTIPROCESS_PROCESSLOOP_H

#include "tavMultiProcess.h"

Boolean processInit(TavProcess *process, Tav *tav) noexcept; // FALSE without memory or descriptors
void processFini(TavProcess *process) noexcept;
// Starts run(owner) on a library thread. -1 when it runs already or the thread did not start. Control lock held.
int processStart(TavProcess *process, void (*run)(void *owner), void *owner) noexcept;
// First and last step of the loop. processBegin returns false when a stop came before.
bool processBegin(TavProcess *process) noexcept;
void processEnd(TavProcess *process) noexcept;
bool processIsStopping(const TavProcess *process) noexcept;
// Sets STOPPING, wakes the loop and waits for its end with the control lock released; on the loop's own thread it only sets the state.
void processStop(TavProcess *process) noexcept;
// Makes the next processWait return.
void processWake(TavProcess *process) noexcept;

struct pollfd;
// Waits without the control lock until a descriptor is ready, the loop is woken or the time is over (ms; -1: no limit). fds[0] is the
// wake-up's place. Returns what poll gives; an interrupted wait goes on.
int processWait(TavProcess *process, struct pollfd *fds, unsigned long count, int timeout) noexcept;

#endif
