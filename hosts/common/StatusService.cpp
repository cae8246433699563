#include "StatusService.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <thread>
#include <utility>

#include "HostFault.h"

namespace tavhost {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int QUESTIONS_WAITING = 64;
constexpr size_t LARGEST_ANSWER = 64u << 20;      // bytes of one process
constexpr std::chrono::seconds SLOWEST_READER{2}; // who takes no longer does not hold up the others
constexpr std::chrono::milliseconds PAUSE{100};   // after a failure that lasts, such as too many open files

class Descriptor {
public:
    explicit Descriptor(int opened = -1) : number(opened) {}
    Descriptor(Descriptor &&other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor() {
        if (number >= 0) close(number);
    }
    int get() const { return number; }

private:
    int number;
};

int millisecondsUntil(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 60'000));
}

// FALSE when the path is too long for a socket.
bool addressOf(const std::string &path, sockaddr_un &address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    memcpy(address.sun_path, path.c_str(), path.size());
    return true;
}

Descriptor openSocket() { return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)); }

[[noreturn]] void refuse(const std::string &path) {
    throw HostFault("the status socket '" + path + "' cannot be made: " + strerror(errno));
}

// The socket gets its name when it listens already, for a socket that nobody listens at is taken for a dead process's.
Descriptor listenAt(const std::string &path) {
    const std::string unready = path + ".new";
    sockaddr_un address;
    errno = ENAMETOOLONG;
    if (!addressOf(unready, address)) refuse(path);
    Descriptor listener = openSocket();
    unlink(unready.c_str());
    if (bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) refuse(path);
    if (chmod(unready.c_str(), 0600) != 0 || listen(listener.get(), QUESTIONS_WAITING) != 0 || rename(unready.c_str(), path.c_str()) != 0) {
        const int fault = errno;
        unlink(unready.c_str());
        errno = fault;
        refuse(path);
    }
    return listener;
}

} // namespace

// ---- what ended processes leave ----

namespace {

// Who asks holds the file shared, who ends holds it alone: a process is seen alive or among the kept, never as both or neither. Who does
// not get it in time goes on without.
class KeptFile {
public:
    KeptFile(const std::string &stem, int lock, Clock::time_point end)
        : file(open((stem + ".kept").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        while (flock(file.get(), lock | LOCK_NB) != 0 && (errno == EWOULDBLOCK || errno == EINTR) && Clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

    std::string read() const {
        struct stat status;
        if (fstat(file.get(), &status) != 0) return "";
        std::string text(static_cast<size_t>(status.st_size), '\0');
        const ssize_t count = pread(file.get(), text.data(), text.size(), 0);
        text.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return text;
    }

    // A process that dies in the middle of this leaves a text that is no answer.
    void write(const std::string &text) const {
        if (ftruncate(file.get(), 0) != 0 || pwrite(file.get(), text.data(), text.size(), 0) < 0) return;
    }

private:
    Descriptor file;
};

} // namespace

// ---- the answering side ----

struct StatusService::State {
    std::string stem, path;
    Answer answer;
    Keep keep;
    Descriptor listener, wake;
    std::thread thread;

    bool waitFor(int descriptor, short events, int milliseconds);
    void pause() { waitFor(-1, 0, static_cast<int>(PAUSE.count())); }
    void send(int client, const std::string &text);
    void serveOne();
    void serve();
    bool ended();
    void end();
    void keepLast();
};

bool StatusService::State::ended() {
    pollfd wait{wake.get(), POLLIN, 0};
    return poll(&wait, 1, 0) != 0;
}

// TRUE when the descriptor is ready, FALSE after the time or when the service ends.
bool StatusService::State::waitFor(int descriptor, short events, int milliseconds) {
    pollfd waits[] = {{wake.get(), POLLIN, 0}, {descriptor, events, 0}};
    return poll(waits, 2, milliseconds) > 0 && !waits[0].revents && waits[1].revents;
}

void StatusService::State::send(int client, const std::string &text) {
    const Clock::time_point end = Clock::now() + SLOWEST_READER;
    for (size_t sent = 0; sent < text.size();) {
        const ssize_t count = ::send(client, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count > 0) {
            sent += static_cast<size_t>(count);
            continue;
        }
        if (errno != EAGAIN && errno != EINTR) return;
        if (!waitFor(client, POLLOUT, millisecondsUntil(end))) return;
    }
}

void StatusService::State::serveOne() {
    const Descriptor client(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (client.get() < 0) {
        if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) pause();
        return;
    }
    try {
        send(client.get(), answer());
    } catch (const std::exception &) { // the end of the stream without a text says it
    }
}

void StatusService::State::serve() {
    while (!ended()) {
        if (waitFor(listener.get(), POLLIN, -1)) serveOne();
    }
}

void StatusService::State::end() {
    if (!thread.joinable()) return;
    eventfd_write(wake.get(), 1);
    thread.join();
    unlink(path.c_str());
}

// Those who ask now are still answered while this waits for them. What fails loses this process's counts and nothing else.
void StatusService::State::keepLast() {
    try {
        const KeptFile file(stem, LOCK_EX, Clock::now() + SLOWEST_READER);
        end();
        file.write(keep(file.read(), answer()));
    } catch (const std::exception &) {
        end();
    }
}

StatusService::StatusService(const std::string &stem, Answer answer, Keep keep) : state(std::make_unique<State>()) {
    state->stem = stem;
    state->path = stem + "." + std::to_string(getpid());
    state->answer = std::move(answer);
    state->keep = std::move(keep);
    state->wake = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (state->wake.get() < 0) refuse(state->path);
    state->listener = listenAt(state->path);
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // the thread has it from its creator
    try {
        state->thread = std::thread([served = state.get()] { served->serve(); });
    } catch (const std::exception &fault) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        unlink(state->path.c_str());
        throw HostFault(std::string("the status service cannot be started: ") + fault.what());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

StatusService::~StatusService() {
    if (state->keep) state->keepLast();
    state->end();
}

// ---- the asking side ----

namespace {

struct Question {
    Descriptor socket;
    StatusAnswer answer;
    bool open = true;
};

// Processes by the names of their sockets: "NAME.PID".
std::vector<pid_t> findProcesses(const std::string &folder, const std::string &name) {
    std::vector<pid_t> found;
    const std::unique_ptr<DIR, int (*)(DIR *)> listing(opendir(folder.c_str()), closedir);
    while (const dirent *entry = listing ? readdir(listing.get()) : nullptr) {
        if (strncmp(entry->d_name, name.c_str(), name.size()) != 0) continue;
        const char *digits = entry->d_name + name.size(), *end = digits + strlen(digits);
        pid_t pid = 0;
        if (const auto read = std::from_chars(digits, end, pid); read.ec == std::errc() && read.ptr == end && pid > 0) found.push_back(pid);
    }
    std::sort(found.begin(), found.end());
    return found;
}

void removeSocket(const std::string &path) {
    struct stat file;
    if (lstat(path.c_str(), &file) == 0 && S_ISSOCK(file.st_mode)) unlink(path.c_str());
}

void ask(const std::string &stem, pid_t pid, std::vector<Question> &questions) {
    const std::string path = stem + "." + std::to_string(pid);
    sockaddr_un address;
    if (!addressOf(path, address)) return;
    Question question{openSocket(), {pid, "", false}};
    if (connect(question.socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        if (errno == ECONNREFUSED) return removeSocket(path);
        if (errno == ENOENT) return;
        question.open = false; // it is there, but too busy to be asked
    }
    questions.push_back(std::move(question));
}

void readSome(Question &question) {
    char buffer[65536];
    const ssize_t count = read(question.socket.get(), buffer, sizeof buffer);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count > 0 && question.answer.text.size() + static_cast<size_t>(count) <= LARGEST_ANSWER) {
        question.answer.text.append(buffer, static_cast<size_t>(count));
        return;
    }
    question.answer.whole = count == 0;
    question.open = false;
}

void collect(std::vector<Question> &questions, Clock::time_point end) {
    std::vector<pollfd> waits(questions.size());
    for (;;) {
        const auto describe = [](const Question &question) { return pollfd{question.open ? question.socket.get() : -1, POLLIN, 0}; };
        std::transform(questions.begin(), questions.end(), waits.begin(), describe);
        if (std::none_of(waits.begin(), waits.end(), [](const pollfd &wait) { return wait.fd >= 0; })) return;
        const int left = millisecondsUntil(end), ready = poll(waits.data(), waits.size(), left);
        if (left == 0 || ready == 0 || (ready < 0 && errno != EINTR)) return;
        for (size_t i = 0; i < waits.size(); i++) {
            if (ready > 0 && waits[i].revents) readSome(questions[i]);
        }
    }
}

} // namespace

StatusAnswers askAll(const std::string &stem, std::chrono::milliseconds limit) {
    const Clock::time_point end = Clock::now() + limit;
    const KeptFile file(stem, LOCK_SH, end);
    const size_t slash = stem.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : stem.substr(0, slash + 1);
    std::vector<Question> questions;
    for (const pid_t pid : findProcesses(folder, stem.substr(slash + 1) + ".")) ask(stem, pid, questions);
    collect(questions, end);
    StatusAnswers answers{{}, file.read()};
    for (Question &question : questions) answers.processes.push_back(std::move(question.answer));
    return answers;
}

} // namespace tavhost
