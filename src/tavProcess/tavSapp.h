// The daemon's map of server applications: which worker processes route to each. The control lock guards it.
#ifndef TAV_TAVSAPP_H
#define TAV_TAVSAPP_H

#include <jansson.h>

#include "tav/tavRecord.h"
#include "tavHash/tavHash.h"
#include "tavList/tavList.h"

typedef struct TavRoutingSapp {
    char *sapp;              // the server application's name
    TavConnector *connector; // counted; through which it was registered
    TavList *pids;           // of the processes that route to it
} TavRoutingSapp;

TavRoutingSapp *tavRoutingSappCreate(const char *sapp, TavConnector *connector) noexcept; // returns new, null without memory
void tavRoutingSappDestroy(void *sapp) noexcept;                                          // null ignored
Boolean tavRoutingSappAddUniq(TavRoutingSapp *sapp, int pid) noexcept;                    // TRUE when it was not there
Boolean tavRoutingSappFindAndRemove(TavRoutingSapp *sapp, int pid) noexcept;              // TRUE when it was there
void tavSappMapDelete(TavHashMap *map) noexcept;                                          // null ignored

// Process `pid` routes (add) or no longer routes to the server applications named in the array; null or another type: nothing.
void sappMapProcessing(Tav *tav, json_t *names, int pid, TavConnector *connector, Boolean add) noexcept;
// The process is gone: it routes to nothing any more.
void c2sClientProcessCleanup(Tav *tav, int pid) noexcept;
// Forgets everything that was registered through the connector.
void c2sResetInfo(Tav *tav, TavConnector *connector) noexcept;
// The same for every connector: with the snapshot all their routing information has been replaced. The workers report anew what they route
// to by their next snapshot.
void c2sResetAllInfo(Tav *tav) noexcept;

#endif
