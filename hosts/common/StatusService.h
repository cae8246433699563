// How the processes of one host tell each other what they know.
//
// Every process listens on a Unix socket of its own. To connect is the question; the answer is a text and the end of the stream. Who wants
// to know about all processes asks every socket there is. What a process has counted must not be lost with it: its last answer goes to a
// file that the processes share, at the moment at which its socket goes for those who ask.
#ifndef TAV_HOSTS_STATUSSERVICE_H
#define TAV_HOSTS_STATUSSERVICE_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tavhost {

// Answers from one thread, which takes no signals, until it is destroyed; no thread and no socket stay behind.
class StatusService {
public:
    using Answer = std::function<std::string()>;
    using Keep = std::function<std::string(const std::string &kept, const std::string &last)>; // what is kept from now on

    // Listens at "STEM.PID", for this user only. `answer` is called on the service's thread, for one question at a time, and once more
    // when the service ends; what it throws is an answer that was not given. With `keep` the last one is added to the file "STEM.kept".
    // Throws HostFault. After the fork.
    StatusService(const std::string &stem, Answer answer, Keep keep = nullptr);
    ~StatusService();
    StatusService(const StatusService &) = delete;
    StatusService &operator=(const StatusService &) = delete;

private:
    struct State;
    std::unique_ptr<State> state;
};

struct StatusAnswer {
    pid_t pid;
    std::string text; // what came before the end of the stream
    bool whole;       // the stream ended in time
};

struct StatusAnswers {
    std::vector<StatusAnswer> processes;
    std::string kept; // of processes that ended
};

// Asks every process at once and waits at most so long for all. Sockets that nobody listens at are removed.
StatusAnswers askAll(const std::string &stem, std::chrono::milliseconds limit);

} // namespace tavhost

#endif
