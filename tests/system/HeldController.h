// A controller on the loopback interface: answers the interest with a document, takes reports, and holds every poll until the test says how
// it goes on.
#ifndef SYSTEM_HELDCONTROLLER_H
#define SYSTEM_HELDCONTROLLER_H

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

class HeldController {
public:
    // What becomes of a held poll: TRUE keeps the connection.
    using Answer = std::function<bool(int fd)>;

    explicit HeldController(std::string document) : document_(std::move(document)) {
        open();
        port_ = portOf(listener_);
    }
    ~HeldController() { shut(); }
    HeldController(const HeldController &) = delete;
    HeldController &operator=(const HeldController &) = delete;

    std::string url(const char *host = "127.0.0.1") const { return std::string("http://") + host + ":" + std::to_string(port_); }
    int port() const { return port_; }
    // Does anyone listen there?
    static bool answers(int port) {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool connected = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        close(fd);
        return connected;
    }
    // The document that answers the next interests.
    void setDocument(const std::string &document) {
        const std::lock_guard guard(mutex_);
        document_ = document;
    }
    // Waits for a poll that nobody has answered yet; its request line.
    std::string poll() {
        std::unique_lock guard(mutex_);
        changed_.wait_for(guard, std::chrono::seconds(20), [this] { return held_ >= 0; });
        return line_;
    }
    // Waits until this many reports have been taken.
    bool reported(int count) {
        std::unique_lock guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(20), [&] { return reports_ >= count; });
    }
    // Answers the held poll.
    void answer(Answer answer) {
        const std::lock_guard guard(mutex_);
        answer_ = std::move(answer);
        held_ = -1;
        changed_.notify_all();
    }
    // Ends all connections and refuses new ones, until open().
    void shut() {
        {
            const std::lock_guard guard(mutex_);
            ended_ = true;
            if (listener_ >= 0) shutdown(listener_, SHUT_RDWR);
            for (const Connection &each : connections_) shutdown(each.fd, SHUT_RDWR);
            changed_.notify_all();
        }
        if (acceptor_.joinable()) acceptor_.join();
        for (Connection &each : connections_) {
            each.thread.join();
            close(each.fd);
        }
        connections_.clear();
        if (listener_ >= 0) close(listener_);
        listener_ = -1;
    }
    void open() {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port_));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || listen(listener_, 64) != 0) abort();
        ended_ = false;
        held_ = -1;
        acceptor_ = std::thread([this] { acceptAll(); });
    }

    static bool sendText(int fd, const std::string &text) {
        return send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }
    // Ends the connection with a reset; the descriptor stays taken.
    static bool reset(int fd) {
        const linger atOnce{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        const int other = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        dup2(other, fd);
        close(other);
        return false;
    }
    static std::string counted(const std::string &body, const char *status = "200 OK") {
        return std::string("HTTP/1.1 ") + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

private:
    struct Connection {
        int fd = -1;
        bool done = false; // guarded by mutex_
        std::thread thread;
    };

    static int portOf(int fd) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
        return ntohs(address.sin_port);
    }

    void acceptAll() {
        for (int fd; (fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            const std::lock_guard guard(mutex_);
            reap();
            if (ended_) {
                close(fd);
                return;
            }
            Connection &connection = connections_.emplace_back();
            connection.fd = fd;
            connection.thread = std::thread([this, &connection] { serve(connection); });
        }
    }

    void reap() {
        for (auto each = connections_.begin(); each != connections_.end();) {
            if (!each->done) {
                ++each;
                continue;
            }
            each->thread.join();
            close(each->fd);
            each = connections_.erase(each);
        }
    }

    void serve(Connection &connection) {
        for (std::string request; readRequest(connection.fd, request) && respond(connection.fd, request);) {
        }
        shutdown(connection.fd, SHUT_RDWR); // reap() closes it
        const std::lock_guard guard(mutex_);
        connection.done = true;
    }

    bool respond(int fd, const std::string &request) {
        std::unique_lock guard(mutex_);
        if (request[0] == 'P') { // an interest, or a report
            const std::string body = request.find("'interests'") == std::string::npos ? "{}" : document_;
            guard.unlock();
            const bool sent = sendText(fd, counted(body));
            guard.lock();
            reports_ += body == "{}";
            changed_.notify_all();
            return sent;
        }
        held_ = fd;
        answer_ = nullptr;
        line_ = request.substr(0, request.find("\r\n"));
        const int turn = ++turn_;
        changed_.notify_all();
        changed_.wait(guard, [&] { return ended_ || turn != turn_ || answer_; });
        if (!answer_ || turn != turn_) return false;
        const Answer answer = std::exchange(answer_, nullptr);
        guard.unlock();
        return answer(fd);
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

    int listener_ = -1;
    int port_ = 0;
    std::thread acceptor_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string document_;
    std::list<Connection> connections_;
    bool ended_ = false;
    int held_ = -1; // the connection whose poll waits
    int turn_ = 0;  // the latest poll is the one that counts
    int reports_ = 0;
    std::string line_;
    Answer answer_;
};

#endif
