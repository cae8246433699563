// One HTTP request that the caller waits for.
#ifndef TAV_HOSTS_CURLEXCHANGE_H
#define TAV_HOSTS_CURLEXCHANGE_H

#include <string>

#include "HostOptions.h"

namespace tavhost {

struct HttpAnswer {
    int status;
    std::string body;
};

// Posts JSON and waits at most `timeout` seconds. Follows no redirect. Throws HostFault when there is no answer.
HttpAnswer postJson(const std::string &url, const std::string &body, const TransportOptions &options, int timeout);

} // namespace tavhost

#endif
