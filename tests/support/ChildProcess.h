// Processes of their own that are told lines and answer in lines; and a look again and again at what others bring about.
#ifndef SUPPORT_CHILDPROCESS_H
#define SUPPORT_CHILDPROCESS_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

constexpr int PATIENCE = 60000; // ms; only ends a broken run

template <typename Condition>
bool eventually(Condition condition) {
    for (int i = 0; i < PATIENCE / 5; i++) {
        if (condition()) return true;
        poll(nullptr, 0, 5);
    }
    return false;
}

class ChildProcess {
public:
    explicit ChildProcess(std::vector<std::string> command) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) abort();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        std::vector<char *> arguments;
        for (std::string &each : command) arguments.push_back(each.data());
        arguments.push_back(nullptr);
        if (posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        to_ = in[1];
        from_ = out[0];
    }
    ~ChildProcess() {
        end(SIGKILL);
        close(to_);
        close(from_);
    }
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    bool tell(const std::string &line) {
        const std::string text = line + "\n";
        return write(to_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }
    // The next line; empty when none comes.
    std::string hear() {
        size_t end;
        while ((end = heard_.find('\n')) == std::string::npos) {
            pollfd fd{from_, POLLIN, 0};
            char buffer[1024];
            const ssize_t got = poll(&fd, 1, PATIENCE) == 1 ? read(from_, buffer, sizeof buffer) : 0;
            if (got < 1) return "";
            heard_.append(buffer, static_cast<size_t>(got));
        }
        const std::string line = heard_.substr(0, end);
        heard_.erase(0, end + 1);
        return line;
    }
    // The next line that holds the text; empty when none comes.
    std::string hear(const std::string &text) {
        std::string line = hear();
        while (!line.empty() && line.find(text) == std::string::npos) line = hear();
        return line;
    }
    // Sends the signal, 0 for none, and waits: the exit status, -1 when a signal ended it or it had ended before.
    int end(int signal) {
        if (pid_ < 0) return -1;
        if (signal) kill(pid_, signal);
        int status = -1;
        waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_ = -1;
    int to_, from_;
    std::string heard_;
};

#endif
