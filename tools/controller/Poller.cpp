#include "Poller.h"

namespace controller {

void Pollers::add(Poller *poller) {
    poller->place = all_.size();
    all_.push_back(poller);
}

void Pollers::remove(Poller *poller) {
    all_[poller->place] = all_.back();
    all_[poller->place]->place = poller->place;
    all_.pop_back();
}

void Pollers::hold(Poller *poller) {
    poller->phase = Poller::Phase::Held;
    held_.emplace(poller->deadline, poller);
}

void Pollers::wake(Poller *poller, AnswerPtr answer, unsigned status, Woken &woken) {
    held_.erase({poller->deadline, poller});
    poller->answer = std::move(answer);
    poller->status = static_cast<uint16_t>(status);
    poller->phase = Poller::Phase::Woken;
    woken.push_back(poller->connection);
}

} // namespace controller
