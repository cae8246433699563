// The way to controllers on libcurl: TLS with client certificates, proxies, time-outs.
//
// One thread drives all requests of the process; the library's callbacks come on it.
#ifndef TAV_HOSTS_CURLTRANSPORT_H
#define TAV_HOSTS_CURLTRANSPORT_H

#include <tav/env.h>

#include "HostOptions.h"

namespace tavhost {

// Sets the four callbacks and starts the thread. Throws HostFault. After the fork, once in a process.
void useCurlTransport(EnvCallBacks &env, const TransportOptions &options);
// Ends every request without a response and joins the thread. After tavStop(), before tavDestroy(). Does nothing without a transport.
void endCurlRequests();

} // namespace tavhost

#endif
