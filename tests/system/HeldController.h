// A controller on the loopback interface: answers the interest with a document, takes reports, and holds every poll until the test says how
// it goes on.
#ifndef SYSTEM_HELDCONTROLLER_H
#define SYSTEM_HELDCONTROLLER_H

#include <functional>
#include <vector>

#include "support/LoopbackServer.h"

class HeldController : public LoopbackServer {
public:
    // What becomes of a held poll: TRUE keeps the connection.
    using Answer = std::function<bool(int fd)>;

    explicit HeldController(std::string document) : document_(std::move(document)) { open(); }
    ~HeldController() override { shut(); }

    // The document that answers the next interests.
    void setDocument(const std::string &document) {
        const std::lock_guard guard(mutex_);
        document_ = document;
    }
    // Waits for a poll that nobody has answered yet; its request line.
    std::string poll() {
        std::unique_lock guard(mutex_);
        changed_.wait_for(guard, std::chrono::seconds(20), [this] { return held_; });
        return line_;
    }
    // The bodies of the reports since the last clearing.
    std::vector<std::string> reports() {
        const std::lock_guard guard(mutex_);
        return reports_;
    }
    void clearReports() {
        const std::lock_guard guard(mutex_);
        reports_.clear();
    }
    // Answers the held poll.
    void answer(Answer answer) {
        const std::lock_guard guard(mutex_);
        answer_ = std::move(answer);
        held_ = false;
        changed_.notify_all();
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

private:
    bool respond(int fd, const std::string &request) override {
        std::unique_lock guard(mutex_);
        if (request[0] == 'P') { // an interest, or a report
            const bool interest = request.find("'interests'") != std::string::npos;
            if (!interest) reports_.push_back(request.substr(request.find("\r\n\r\n")));
            const std::string body = interest ? document_ : "{}";
            guard.unlock();
            return sendText(fd, counted(body));
        }
        held_ = true;
        answer_ = nullptr;
        line_ = request.substr(0, request.find("\r\n"));
        const int turn = ++turn_;
        changed_.notify_all();
        changed_.wait(guard, [&] { return ended_ || turn != turn_ || answer_; });
        if (ended_) held_ = false; // nobody waits for it after the next open()
        if (!answer_ || turn != turn_) return false;
        const Answer answer = std::exchange(answer_, nullptr);
        guard.unlock();
        return answer(fd);
    }

    std::string document_;
    bool held_ = false;
    int turn_ = 0; // the latest poll is the one that counts
    std::vector<std::string> reports_;
    std::string line_;
    Answer answer_;
};

#endif
