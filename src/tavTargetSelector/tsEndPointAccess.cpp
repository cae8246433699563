// The exported endpoint accessors. No lock: a selected request keeps what they read (see tsEndPoint.cpp), and the host may call them while
// it makes its own endpoint object under the lock.
#include "tavTargetSelector/tsInternal.h"

static const TargetServer *serverOf(const TavTargetEndpoint *endpoint) noexcept { return endpoint ? endpoint->server : nullptr; }

static const Cluster *clusterOf(const TavTargetEndpoint *endpoint) noexcept {
    const TargetServer *server = serverOf(endpoint);
    return server ? server->cluster.load() : nullptr;
}

// A field of the endpoint's server, or the default without one.
template <typename T>
static T serverField(const TavTargetEndpoint *endpoint, std::atomic<T> TargetServer::*field, T without) noexcept {
    const TargetServer *server = serverOf(endpoint);
    return server ? (server->*field).load() : without;
}

const char *tavTargetEndpointGetName(TavTargetEndpoint *endpoint) noexcept { return tsEndPointGetName(endpoint); }
TavConnector *tavTargetEndpointGetConnector(TavTargetEndpoint *endpoint) noexcept { return tsServerGetConnector(serverOf(endpoint)); }
const char *tavTargetEndpointGetServerName(TavTargetEndpoint *endpoint) noexcept { return tsServerGetName(serverOf(endpoint)); }
const char *tavTargetEndpointGetClusterName(TavTargetEndpoint *endpoint) noexcept { return tsClusterGetName(clusterOf(endpoint)); }
const char *tavTargetEndpointGetProtocol(TavTargetEndpoint *endpoint) noexcept {
    return tsIndexToProtocol(endpoint ? endpoint->protoIndex.load() : -1);
}
const char *tavTargetEndpointGetHostName(TavTargetEndpoint *endpoint) noexcept { return tsEndpointGetHost(endpoint); }
int tavTargetEndpointGetPort(TavTargetEndpoint *endpoint) noexcept { return tsEndpointGetPort(endpoint); }
const char *tavTargetEndpointGetCloneId(TavTargetEndpoint *endpoint) noexcept { return tsServerGetCloneId(serverOf(endpoint)); }
int tavTargetEndpointGetConnectTimeout(TavTargetEndpoint *endpoint) noexcept {
    return serverField(endpoint, &TargetServer::connectTimeout, 5);
}
int tavTargetEndpointGetIOTimeout(TavTargetEndpoint *endpoint) noexcept { return serverField(endpoint, &TargetServer::ioTimeout, 900); }
int tavTargetEndpointGetIOTimeoutRetry(TavTargetEndpoint *endpoint) noexcept {
    const Cluster *cluster = clusterOf(endpoint);
    return cluster ? cluster->ioTimeoutRetry.load() : -1;
}
int tavTargetEndpointGetPersistentTimeout(TavTargetEndpoint *endpoint) noexcept {
    return endpoint ? endpoint->persistentTimeout.load() : 30;
}
Boolean tavTargetEndpointGetExtendedHandshake(TavTargetEndpoint *endpoint) noexcept {
    return serverField<Boolean>(endpoint, &TargetServer::extendedHandshake, FALSE);
}
Boolean tavTargetEndpointGetWaitForContinue(TavTargetEndpoint *endpoint) noexcept {
    return serverField<Boolean>(endpoint, &TargetServer::waitForContinue, FALSE);
}
const char *tavTargetEndpointGetNamedEndpoint(TavTargetEndpoint *endpoint) noexcept {
    return endpoint ? endpoint->namedEndpoint.load() : nullptr;
}
EnvTargetEndpoint *tavTargetEndpointGetEnvTargetEndpoint(TavTargetEndpoint *endpoint) noexcept {
    return tsEndPointGetEnvEndPoint(endpoint);
}
int tavTargetEndpointGetWsIOTimeout(TavTargetEndpoint *endpoint) noexcept { return serverField(endpoint, &TargetServer::wsIoTimeout, 30); }
int tavTargetEndpointGetWsIdleTimeout(TavTargetEndpoint *endpoint) noexcept {
    return serverField(endpoint, &TargetServer::wsIdleTimeout, 900);
}
