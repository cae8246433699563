#include "ListenSocket.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "support/Fault.h"

namespace controller {

namespace {

constexpr int BACKLOG = 4096; // a restart brings every poller back at once

bool isPort(std::string_view text) {
    uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size();
}

addrinfo *resolve(const std::string &text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || !isPort(std::string_view(text).substr(colon + 1)))
        throw tavctl::Fault(fmt::format("listen address '{}': write ADDRESS:PORT, with a port from 0 to 65535", text));
    std::string host = text.substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    if (getaddrinfo(host.empty() ? nullptr : host.c_str(), text.c_str() + colon + 1, &hints, &found) != 0)
        throw tavctl::Fault(fmt::format("listen address '{}': write the address in numbers, like 127.0.0.1:9080 or [::1]:9080", text));
    return found;
}

bool bindAndListen(int descriptor, const addrinfo *address) {
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    // Connections inherit it: a peer whose machine went is noticed some time.
    setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    return bind(descriptor, address->ai_addr, address->ai_addrlen) == 0 && listen(descriptor, BACKLOG) == 0;
}

} // namespace

std::string addressText(const sockaddr *address) {
    char host[NI_MAXHOST], port[NI_MAXSERV];
    const socklen_t length = address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    if (getnameinfo(address, length, host, sizeof host, port, sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0) return "?";
    return address->sa_family == AF_INET6 ? fmt::format("[{}]:{}", host, port) : fmt::format("{}:{}", host, port);
}

ListenSocket listenAt(const std::string &text) {
    addrinfo *address = resolve(text);
    const int descriptor = socket(address->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const bool listening = descriptor >= 0 && bindAndListen(descriptor, address);
    const int error = errno;
    freeaddrinfo(address);
    if (!listening) {
        if (descriptor >= 0) close(descriptor);
        throw tavctl::Fault(fmt::format("{}: {}", text, std::strerror(error)));
    }
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    getsockname(descriptor, reinterpret_cast<sockaddr *>(&bound), &length);
    return {descriptor, "http://" + addressText(reinterpret_cast<sockaddr *>(&bound))};
}

} // namespace controller
