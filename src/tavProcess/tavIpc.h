// What the instance sends and handles over the daemon's socket.
#ifndef TAV_TAVIPC_H
#define TAV_TAVIPC_H

#include <jansson.h>

#include "tav/tavRecord.h"
#include "tavMultiProcess/tavMultiProcess.h"

// All with the control lock held; nothing happens without the process object.

// Begin, every connector's stored document, end: to one client's socket, or to all (-1).
void sendAllRoutingInfoToClient(Tav *tav, int fd) noexcept;
// One message whose body is the document's text with its NUL: to one client, or to all (-1). Null json: nothing is sent. Who misses it for
// want of memory is dropped, and gets everything when it connects again.
void tavIpcSendJson(Tav *tav, TavMessageType type, json_t *json, int fd) noexcept;

void tavServerProcessHandleMessage(Tav *tav, TavMessage *msg, int fd) noexcept;
void tavClientProcessHandleMessage(Tav *tav, TavMessage *msg) noexcept;
// What the daemon sent could not be taken whole. Half of it must not serve requests: the worker connects anew and gets everything again.
void tavWorkerStartOver(Tav *tav) noexcept;
// A client process went away: its health reporter id is its socket, its routes are its pid's (0: it never sent one).
void tavClientProcessCleanup(Tav *tav, int fd, int pid) noexcept;

#endif
