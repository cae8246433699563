// Messages between the daemon and its workers over a Unix-domain stream socket.
#ifndef TAVMULTIPROCESS_TAVMULTIPROCESS_H
#define TAVMULTIPROCESS_TAVMULTIPROCESS_H

#include <atomic>
#include <cstdint>

#include "tavInstance/tavInstance.h"
#include "tavList/tavList.h"
#include "tavLock/tavLock.h"

typedef enum TavMessageType : int32_t {
    MT_CONNECTED = 0,
    MT_S2C_BEGIN_ROUTING_INFO = 1,
    MT_S2C_ROUTING_INFO = 2,
    MT_S2C_END_ROUTING_INFO = 3,
    MT_S2C_ROUTING_INFO_DELTA = 4,
    MT_C2S_JSON = 5,
    MT_S2C_SET_CONTROL_STATE = 6,
    MT_CLIENT_TO_SERVER_HEALTH_TRIGGER = 7
} TavMessageType;

// Sent first, 12 bytes in the machine's byte order.
typedef struct TavMessageHdr {
    int32_t type;
    int32_t pid; // filled in by every send
    int32_t len; // bytes of body that follow
} TavMessageHdr;

typedef struct TavMessage {
    TavMessageHdr hdr;
    void *body; // owned; null when len is 0
} TavMessage;

typedef enum TavProcessState { PS_STARTING = 0, PS_STARTED = 1, PS_STOPPING = 2 } TavProcessState;
inline constexpr int PS_NOT_RUNNING = 3;

typedef struct TavProcess {
    Tav *tav; // borrowed; the loop's thread holds a reference of its own
    TavLock *socketWriteLock;
    std::atomic<int> state; // TavProcessState or PS_NOT_RUNNING
    TrContext *trCtx;
    TrRecord *debugIPC;
    // private
    int wakeFd; // eventfd that ends every wait of the loop
    std::atomic<bool> loopIsHere;
    pthread_t loopThread; // valid while loopIsHere
} TavProcess;

typedef struct TavServerProcess {
    TavProcess process;
    int listenerSocket;
    TavList *clientSocketList; // per-client records in accept order
    TavLock *clientSocketListLock;
    // private
    TrRecord *badPathRec;
} TavServerProcess;

typedef struct TavClientProcess {
    TavProcess process;
    int socket; // -1 when none; changed and used only under socketWriteLock
    // private
    bool outOfStep; // a message could not be applied: what follows is of no use. The loop's own; control lock
} TavClientProcess;

// A message ready to be sent, counted; see ipcStream.h.
typedef struct IpcFrame IpcFrame;

TavServerProcess *tavServerProcessCreate(Tav *tav) noexcept; // returns new
int tavServerProcessStart(TavServerProcess *sp) noexcept;
int tavServerProcessSendMessage(TavServerProcess *sp, TavMessage *msg, int fd) noexcept; // takes the write lock
int tavServerProcessBroadcastMessage(TavServerProcess *sp, TavMessage *msg) noexcept;    // takes the client-list lock; always 0
// The same to one client (`fd`) or to all (-1), for a message that is sent more than once. Borrows the frame. Null, for want of memory:
// who misses a message is dropped, and gets everything when it connects again.
int tavServerProcessSendFrame(TavServerProcess *sp, IpcFrame *frame, int fd) noexcept;
int tavServerProcessGetClientCount(TavServerProcess *sp) noexcept;
// Both wait for the loop with the control lock released; the stop lock must not be held. Control lock held.
void tavServerProcessHalt(TavServerProcess *sp) noexcept;
void tavServerProcessStop(TavServerProcess *sp) noexcept;
// A loop that still runs is stopped first, as above; without one no lock is needed.
void tavServerProcessDelete(TavServerProcess *sp) noexcept;

TavClientProcess *tavClientProcessCreate(Tav *tav) noexcept; // returns new
int tavClientProcessStart(TavClientProcess *cp) noexcept;
int tavClientProcessSendMessage(TavClientProcess *cp, TavMessage *msg) noexcept; // takes the write lock
// Begins anew: what the daemon sent could not be applied. The loop drops the connection and gets everything again. Control lock held.
void tavClientProcessStartOver(TavClientProcess *cp) noexcept;
void tavClientProcessStop(TavClientProcess *cp) noexcept; // as tavServerProcessStop
void tavClientProcessDelete(TavClientProcess *cp) noexcept;

#endif
