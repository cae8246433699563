// A TCP server on the loopback interface that plays a script: for each connection, what to answer to each request.
#ifndef EDGE_SCRIPTEDSERVER_H
#define EDGE_SCRIPTEDSERVER_H

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// The answers of one connection, in order; it is closed after the last one. An empty answer: the connection stays silent and open until the
// client closes it.
using Answers = std::vector<std::string>;

class ScriptedServer {
public:
    explicit ScriptedServer(std::vector<Answers> connections) : script_(std::move(connections)) {
        listener_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        if (bind(listener_, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener_, 8) != 0) abort();
        getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    ~ScriptedServer() {
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
    }
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    int port() const { return port_; }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    // The requests as they came, body included.
    std::vector<std::string> requests() {
        std::lock_guard guard(mutex_);
        return requests_;
    }
    int connections() {
        std::lock_guard guard(mutex_);
        return connections_;
    }

private:
    void run() {
        for (const Answers &answers : script_) {
            const int fd = accept(listener_, nullptr, nullptr);
            if (fd < 0) return;
            {
                std::lock_guard guard(mutex_);
                connections_++;
            }
            for (const std::string &answer : answers) {
                if (!readRequest(fd)) break;
                if (answer.empty()) {
                    readRequest(fd); // until the client goes
                } else {
                    send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
                }
            }
            close(fd);
        }
    }

    bool readRequest(int fd) {
        std::string text;
        size_t needed = 0;
        char buffer[4096];
        do {
            const ssize_t got = recv(fd, buffer, sizeof(buffer), 0);
            if (got < 1) return false;
            text.append(buffer, static_cast<size_t>(got));
            const size_t head = text.find("\r\n\r\n");
            if (head == std::string::npos) continue;
            const size_t length = text.find("Content-Length: ");
            needed = head + 4 + (length < head ? strtoul(text.c_str() + length + 16, nullptr, 10) : 0);
        } while (needed == 0 || text.size() < needed);
        std::lock_guard guard(mutex_);
        requests_.push_back(text);
        return true;
    }

    std::vector<Answers> script_;
    int listener_;
    int port_ = 0;
    std::mutex mutex_;
    std::vector<std::string> requests_;
    int connections_ = 0;
    std::thread thread_;
};

#endif
