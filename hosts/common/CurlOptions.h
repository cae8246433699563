// What every use of libcurl here has in common.
#ifndef TAV_HOSTS_CURLOPTIONS_H
#define TAV_HOSTS_CURLOPTIONS_H

#include <curl/curl.h>

#include "HostOptions.h"

namespace tavhost {

// Once in a process. Throws HostFault.
void startCurl();
// Protocols, TLS, proxy and the time to connect; no signals.
void setCurlOptions(CURL *easy, const TransportOptions &options);

} // namespace tavhost

#endif
