// One connection of a poller, the held ones among them, and when their waits end.
#ifndef CONTROLLER_POLLER_H
#define CONTROLLER_POLLER_H

#include <chrono>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Answer.h"
#include "Document.h"

struct MHD_Connection;

namespace controller {

using Clock = std::chrono::steady_clock;

// The HTTP thread's; while it is held it is the holder's, under the state lock.
struct Poller {
    enum class Phase : uint8_t { Idle, Held, Woken };

    MHD_Connection *connection = nullptr;
    int descriptor = -1;          // its socket
    Document *document = nullptr; // that it asked for last
    int64_t version = -1;         // that it said it has
    AnswerPtr answer;             // Woken; null: the connection ends
    Clock::time_point deadline{};
    std::string server;  // the name it gives
    std::string address; // its own
    std::string body;    // of its request, as far as it has come
    size_t place = 0;    // in the list of all
    uint32_t polls = 0;
    uint16_t status = 0;
    Phase phase = Phase::Idle;
};

// Every connection, and those that wait. With the state lock held.
class Pollers {
public:
    void add(Poller *poller);
    void remove(Poller *poller);
    void hold(Poller *poller);

    using Woken = std::vector<MHD_Connection *>;
    // Take poller(s) out of the hold with this answer; the caller resumes their connections, after the lock.
    void wake(Poller *poller, AnswerPtr answer, unsigned status, Woken &woken);
    template <typename Wanted>
    std::vector<Poller *> heldThat(Wanted wanted) const {
        std::vector<Poller *> found;
        for (const auto &[deadline, poller] : held_) {
            if (wanted(*poller)) found.push_back(poller);
        }
        return found;
    }
    // The first whose wait has ended by then; null: none.
    Poller *overdue(Clock::time_point now) const { return held_.empty() || held_.begin()->first > now ? nullptr : held_.begin()->second; }
    Clock::time_point nextDeadline() const { return held_.empty() ? Clock::time_point::max() : held_.begin()->first; }
    size_t heldCount() const { return held_.size(); }
    const std::vector<Poller *> &all() const { return all_; }

private:
    std::vector<Poller *> all_;
    std::set<std::pair<Clock::time_point, Poller *>> held_;
};

} // namespace controller

#endif
