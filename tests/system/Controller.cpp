#include "system/Controller.h"

#include <arpa/inet.h>
#include <jansson.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "system/Shop.h"

namespace {

// A document's transports listen at a port that tells its version.
std::string withPort(std::string text, int version) {
    for (size_t at = 0; (at = text.find("9080", at)) != std::string::npos;) text.replace(at, 4, std::to_string(10000 + version));
    return text;
}

bool receive(int fd, std::string &text) {
    char buffer[16384];
    const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
    if (got > 0) text.append(buffer, static_cast<size_t>(got));
    return got > 0;
}

bool readRequest(int fd, std::string &head, std::string &body) {
    std::string text;
    size_t end;
    while ((end = text.find("\r\n\r\n")) == std::string::npos)
        if (!receive(fd, text)) return false;
    head = text.substr(0, end + 4);
    const size_t length = head.find("Content-Length: ");
    const size_t size = length == std::string::npos ? 0 : strtoul(head.c_str() + length + 16, nullptr, 10);
    body = text.substr(end + 4);
    while (body.size() < size)
        if (!receive(fd, body)) return false;
    return true;
}

} // namespace

Controller::Controller(int version) : version_(version) { open(); }
Controller::~Controller() { close(); }

void Controller::open() {
    closing_ = false;
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port_));
    socklen_t size = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener_, 64) != 0) abort();
    getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size);
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept(); });
}

void Controller::close() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        closing_ = true;
        shutdown(listener_, SHUT_RDWR);
        for (const int fd : connections_) shutdown(fd, SHUT_RDWR);
        changed_.notify_all();
    }
    acceptor_.join();
    for (std::thread &thread : threads_) thread.join();
    threads_.clear();
    ::close(listener_);
}

void Controller::accept() {
    for (int fd; (fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (closing_) {
            ::close(fd);
            return;
        }
        connections_.push_back(fd);
        threads_.emplace_back([this, fd] { converse(fd); });
    }
}

void Controller::converse(int fd) {
    std::string head, body;
    while (readRequest(fd, head, body)) {
        std::string text;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            text = answer(head, body, lock);
            if (closing_) break;
        }
        const std::string response = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(text.size()) + "\r\n\r\n" + text;
        for (size_t sent = 0; sent < response.size();) {
            const ssize_t more = send(fd, response.data() + sent, response.size() - sent, MSG_NOSIGNAL);
            if (more < 1) break;
            sent += static_cast<size_t>(more);
        }
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    connections_.remove(fd);
    ::close(fd);
}

std::string Controller::answer(const std::string &head, const std::string &body, std::unique_lock<std::mutex> &lock) {
    if (body.find("Routes\"") != std::string::npos || body.find("healthPolicyName") != std::string::npos) {
        note(body);
        return "{}";
    }
    const size_t vid = head.find("&vid=");
    const long long known = vid == std::string::npos ? -1 : strtoll(head.c_str() + vid + 5, nullptr, 10);
    changed_.wait(lock, [&] { return closing_ || version_ > known; });
    return documentFor(version_, known);
}

std::string Controller::documentFor(int version, long long known) const {
    const int generation = version / 2 + 1;
    if (version % 2 == 0 || known != version - 1) return withPort(shop::document(generation, version), version);
    const std::string port = "'port': 9080";
    return withPort(shop::delta(generation, version,
                                shop::objects("set", shop::entry(shop::S1 + "/transport/http", "transport", port) + ", " +
                                                         shop::entry(shop::S2 + "/transport/http", "transport", port))),
                    version);
}

void Controller::note(const std::string &body) {
    json_t *json = json_loads(body.c_str(), 0, nullptr);
    for (const char *key : {"addRoutes", "delRoutes"}) {
        const json_t *routes = json_object_get(json, key);
        for (size_t i = 0; i < json_array_size(routes); i++)
            reports_[std::string(key, 3) + " " + json_string_value(json_array_get(routes, i))]++;
    }
    const char *server = json_string_value(json_object_get(json, "serverName"));
    if (server) reports_[std::string(json_is_true(json_object_get(json, "healthPolicyTriggered")) ? "true " : "false ") + server]++;
    json_decref(json);
}

int Controller::publish() {
    const std::lock_guard<std::mutex> guard(mutex_);
    changed_.notify_all();
    return ++version_;
}

void Controller::restart() {
    close();
    open();
}

std::map<std::string, int> Controller::reports() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return reports_;
}

void Controller::clearReports() {
    const std::lock_guard<std::mutex> guard(mutex_);
    reports_.clear();
}
