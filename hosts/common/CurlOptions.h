// What every use of libcurl here has in common.
#ifndef TAV_HOSTS_CURLOPTIONS_H
#define TAV_HOSTS_CURLOPTIONS_H

#include <curl/curl.h>

#include <string>

#include "HostOptions.h"

namespace tavhost {

// Once in a process. Throws HostFault.
void startCurl();
// "http://host:port"; libcurl takes "host:port", too.
bool isProxyUrl(const std::string &text);
// "http://host:port" or https, a path behind it.
bool isControllerUrl(const std::string &text);
// Protocols, TLS, proxy and the time to connect; no signals.
void setCurlOptions(CURL *easy, const TransportOptions &options);
// For a write function: appends a part of a body. 0, which ends the request: the body would grow over `largest` bytes, or finds no memory.
size_t takePart(std::string &body, const char *data, size_t size, size_t largest) noexcept;

} // namespace tavhost

#endif
