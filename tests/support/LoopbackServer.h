// An HTTP server on the loopback interface with a thread for each connection; what it answers is the derived class's matter.
#ifndef SUPPORT_LOOPBACKSERVER_H
#define SUPPORT_LOOPBACKSERVER_H

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <list>
#include <mutex>
#include <string>
#include <thread>

class LoopbackServer {
public:
    LoopbackServer(const LoopbackServer &) = delete;
    LoopbackServer &operator=(const LoopbackServer &) = delete;
    virtual ~LoopbackServer() = default;

    int port() const { return ntohs(address_.sin_port); }
    std::string url(const char *host = "127.0.0.1") const { return std::string("http://") + host + ":" + std::to_string(port()); }
    // Listens, at the same port every time.
    void open() {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        socklen_t size = sizeof address_;
        auto *name = reinterpret_cast<sockaddr *>(&address_);
        if (bind(listener_, name, size) != 0 || listen(listener_, 64) != 0 || getsockname(listener_, name, &size) != 0) abort();
        ended_ = false;
        acceptor_ = std::thread([this] { accept(); });
    }
    // Ends all connections and refuses new ones, until open().
    void shut() {
        if (!acceptor_.joinable()) return;
        std::unique_lock guard(mutex_);
        ended_ = true;
        shutdown(listener_, SHUT_RDWR);
        for (const int fd : fds_) shutdown(fd, SHUT_RDWR);
        changed_.notify_all();
        guard.unlock();
        acceptor_.join();
        guard.lock();
        changed_.wait(guard, [this] { return fds_.empty(); });
        close(listener_);
    }
    static bool sendText(int fd, const std::string &text) {
        return send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }
    static std::string counted(const std::string &body, const char *status = "200 OK") {
        return std::string("HTTP/1.1 ") + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

protected:
    // The derived class's destructor calls shut().
    // The last thing that a derived constructor does is open(): connections call what it overrides.
    LoopbackServer() {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    // Answers one request, head and body; FALSE ends the connection. Gives up waiting when `ended_` is set.
    virtual bool respond(int fd, const std::string &request) = 0;

    std::mutex mutex_;
    std::condition_variable changed_; // and everything below it is guarded by mutex_
    bool ended_ = false;
    int connections_ = 0; // that ever were

private:
    void accept() {
        for (int fd; (fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            const std::lock_guard guard(mutex_);
            if (ended_) {
                close(fd);
                return;
            }
            connections_++;
            fds_.push_back(fd);
            std::thread([this, fd] {
                for (std::string request; readRequest(fd, request) && respond(fd, request);) {
                }
                const std::lock_guard end(mutex_);
                close(fd);
                fds_.remove(fd);
                changed_.notify_all();
            }).detach();
        }
    }
    static bool readRequest(int fd, std::string &text) {
        char buffer[4096];
        size_t needed = 0;
        for (text.clear(); needed == 0 || text.size() < needed;) {
            const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
            if (got < 1) return false;
            text.append(buffer, static_cast<size_t>(got));
            const size_t head = text.find("\r\n\r\n"), length = text.find("Content-Length: ");
            if (head != std::string::npos) needed = head + 4 + (length < head ? strtoul(&text[length + 16], nullptr, 10) : 0);
        }
        return true;
    }

    sockaddr_in address_{};
    int listener_ = -1;
    std::list<int> fds_;
    std::thread acceptor_;
};

#endif
