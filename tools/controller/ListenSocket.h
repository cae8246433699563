// The controller's listening socket.
#ifndef CONTROLLER_LISTENSOCKET_H
#define CONTROLLER_LISTENSOCKET_H

#include <sys/socket.h>

#include <string>

namespace controller {

// A socket that listens at "ADDRESS:PORT" (numbers; "[::1]:80" for IPv6; port 0: any that is free), and the URL that leads to it. Throws
// Fault.
struct ListenSocket {
    int descriptor;
    std::string url;
};
ListenSocket listenAt(const std::string &address);
// "127.0.0.1:4711"
std::string addressText(const sockaddr *address);

} // namespace controller

#endif
