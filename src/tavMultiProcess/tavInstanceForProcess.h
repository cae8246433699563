// What the daemon's and workers' loops ask of the instance. Implemented by the core.
#ifndef TAVMULTIPROCESS_TAVINSTANCEFORPROCESS_H
#define TAVMULTIPROCESS_TAVINSTANCEFORPROCESS_H

#include "tavInstance/tavInstance.h"

typedef struct TavMessage TavMessage;

void tavControlLock(const char *who) noexcept;
void tavControlUnlock() noexcept;

// All with the control lock held.
void tavServerProcessHandleMessage(Tav *tav, TavMessage *msg, int fd) noexcept;
void tavClientProcessHandleMessage(Tav *tav, TavMessage *msg) noexcept;
void tavClientProcessCleanup(Tav *tav, int fd, int pid) noexcept;

#endif
