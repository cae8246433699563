// Host endpoint objects shared by all endpoints of one name, across snapshots. The interface is in tavInstance/tavInstance.h.
#ifndef TAV_TAVENDPOINTREF_H
#define TAV_TAVENDPOINTREF_H

#include <atomic>

#include "tavInstance/tavInstance.h"

struct _EndPointRef {
    std::atomic<int> refcnt; // falls to 0, and is joined by name, only under the instance's endpoint-reference lock
    char *key;               // the endpoint's name
    EnvCallBacks *cb;
    EnvTargetEndpoint *endPoint;
    Boolean detached; // the map does not lead here any more
};

// By endpoint: the host's object with one more holder, or null when the host gives none; and one holder less.
EnvTargetEndpoint *envTargetEndPointObtainRef(Tav *tav, TavTargetEndpoint *endpoint) noexcept;
void envTargetEndPointReleaseRef(Tav *tav, TavTargetEndpoint *endpoint) noexcept;

#endif
