// A controller under the test's command: every request, client, alarm and state change is recorded, and answers come when the test says so.
#ifndef CORE_RECORDINGTRANSPORT_H
#define CORE_RECORDINGTRANSPORT_H

#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "core/CoreFixture.h"

class RecordingTransport : public CoreFixture {
protected:
    struct Sent {
        EnvConnectorClient *client;
        std::string method, uri, body;
        int timeout;
        TavHttpResponseCallBack callback;
        TavHttpResponseContext *passback;
        bool answered = false;
    };
    struct Alarm {
        void (*fn)(void *);
        void *arg;
        int milliseconds;
    };
    enum Hostility { FAIR, ANSWERS_INSIDE, ANSWERS_INSIDE_AND_REFUSES };

    RecordingTransport() {
        self = this;
        env.http.connector.open = [](TavConnector *c) { return self->open(tavConnectorGetURL(c)); };
        env.http.connector.close = [](EnvConnectorClient *client) { self->closed.push_back(client); };
        env.http.connector.freeResponse = [](TavHttpResponse *response) {
            self->freed++;
            delete response;
        };
        env.http.connector.sendRequest = [](EnvConnectorClient *client, const char *method, const char *uri, const char *body, int timeout,
                                            TavHttpResponseCallBack callback, TavHttpResponseContext *passback) {
            return self->send({client, method, uri, body ? body : "", timeout, callback, passback});
        };
        env.alarm = [](void (*fn)(void *), void *arg, int milliseconds) {
            {
                const std::lock_guard guard(self->mutex);
                self->alarms.push_back({fn, arg, milliseconds});
            }
            if (self->alarmFiresInside) self->fire();
            return 0;
        };
        env.stateChange.tavConnectorGroup = [](TavConnectorGroup *, TavComponentState state, char *reason) {
            self->note(std::string("group ") + tavState2String(state) + ": " + reason);
        };
        env.stateChange.tavConnector = [](TavConnector *c, TavComponentState state, char *reason) {
            self->note(std::string(tavConnectorGetURL(c)) + " " + tavState2String(state) + ": " + reason);
            if (self->onConnectorState) self->onConnectorState(c, state);
        };
    }

    // Ends polling and lets pending alarms find that.
    void TearDown() override {
        hostility = FAIR;
        alarmFiresInside = false;
        onConnectorState = nullptr;
        tavStop(tav);
        fireAll();
        CoreFixture::TearDown();
        EXPECT_EQ(freed, answers);
    }

    void answerNone() override {
        for (size_t i = 0; i < sent.size(); i++)
            if (!sent[i].answered) answer(i, nullptr);
    }
    EnvConnectorClient *open(const std::string &url) {
        if (unreachable.count(url)) return nullptr;
        opened.push_back(url);
        return reinterpret_cast<EnvConnectorClient *>(opened.size());
    }

    int send(Sent request) {
        if (hostility != FAIR) {
            const int result = hostility == ANSWERS_INSIDE ? 0 : -7;
            hostility = FAIR;
            request.answered = true;
            const size_t index = sent.size();
            sent.push_back(request);
            request.callback(response(200, insideBody.c_str()), request.passback);
            return index < sent.size() ? result : -1;
        }
        sent.push_back(request);
        if (whileSending) std::exchange(whileSending, nullptr)();
        return 0;
    }

    TavHttpResponse *response(int code, const char *body) {
        answers++;
        auto *made = new TavHttpResponse{};
        made->responseCode = code;
        made->body = const_cast<char *>(body);
        return made;
    }

    // Answers the last request that was not answered yet.
    void answer(int code, const char *body) { answer(lastOpen(), response(code, body)); }
    void answerNothing() { answer(lastOpen(), nullptr); }
    size_t lastOpen() const {
        size_t index = sent.size();
        while (index > 0 && sent[index - 1].answered) index--;
        EXPECT_GT(index, 0u) << "no request waits for an answer";
        return index - 1;
    }
    void answer(size_t index, TavHttpResponse *what) {
        sent[index].answered = true;
        sent[index].callback(what, sent[index].passback);
    }
    void fire() {
        std::unique_lock guard(mutex);
        const Alarm alarm = alarms.back();
        alarms.pop_back();
        guard.unlock();
        alarm.fn(alarm.arg);
    }

    void fireAll() {
        while (!alarms.empty()) fire();
    }

    void note(const std::string &state) {
        const std::lock_guard guard(mutex);
        states.push_back(state);
    }
    std::vector<std::string> takeStates() {
        const std::lock_guard guard(mutex);
        return std::exchange(states, {});
    }

    std::vector<Sent> sent;
    std::mutex mutex; // of alarms and states: the built-in transport brings threads of its own
    std::vector<Alarm> alarms;
    std::vector<std::string> opened;
    std::vector<EnvConnectorClient *> closed;
    std::vector<std::string> states;
    std::set<std::string> unreachable;
    int freed = 0;
    int answers = 0;
    Hostility hostility = FAIR;
    std::string insideBody = "{\"version\": 1}";
    bool alarmFiresInside = false;
    void (*onConnectorState)(TavConnector *c, TavComponentState state) = nullptr;
    std::function<void()> whileSending; // the next request

private:
    static inline RecordingTransport *self;
};

#endif
