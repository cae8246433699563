// The REST protocol: polls, reports and GET /status on one listening socket.
//
// One thread of libmicrohttpd serves all connections. A held poll is a suspended connection: it costs its record and no thread. It is woken
// by a new version of its document, by the end of its wait (a second thread watches the clock), by a peer that hung up, or by the stop.
// Under the state lock it is decided that a poller has the current version and is held, so that no new version slips in between.
#ifndef CONTROLLER_HTTPFRONT_H
#define CONTROLLER_HTTPFRONT_H

#include <condition_variable>
#include <string>
#include <thread>

#include "DocumentStore.h"
#include "Events.h"
#include "Poller.h"
#include "Posts.h"

struct MHD_Daemon;

namespace controller {

struct FrontOptions {
    std::string listen = "127.0.0.1:9080"; // ADDRESS:PORT; port 0: any
    int longestWait = 3600;                // s
};

class HttpFront {
public:
    HttpFront(DocumentStore &store, Events &events, const FrontOptions &options); // listens; throws Fault
    ~HttpFront();                                                                 // ends every hold and connection
    HttpFront(const HttpFront &) = delete;
    HttpFront &operator=(const HttpFront &) = delete;

    const std::string &url() const { return url_; }
    // A new version of the document is there: answers who waited for it and returns how many.
    size_t wake(const std::string &documentName);

private:
    friend struct FrontCallbacks;
    struct Query;

    // ---- the HTTP thread ----
    int handle(Poller *poller, const char *path, const char *method, const char *data, size_t *size);
    int answerRequest(Poller *poller, const Query &query, const std::string &method);
    int answerPoll(Poller *poller, const Query &query);
    bool hold(Poller *poller, const Query &query);
    int answerReport(Poller *poller, const Query &query);
    int queue(Poller *poller, const AnswerPtr &answer, unsigned status);
    int queueError(Poller *poller, unsigned status, const std::string &text);
    Query readQuery(Poller *poller, const char *path) const;
    bool takeBody(Poller *poller, const char *data, size_t size);
    void dropBody(Poller *poller);
    void opened(MHD_Connection *connection, void **context);
    void closed(Poller *poller);

    // ---- the clock's thread ----
    void watchClock();
    void endWaits(Pollers::Woken &woken);
    void dropHungUp(Pollers::Woken &woken);

    std::string statusText(bool everyPoller); // takes the state lock
    void resume(const Pollers::Woken &woken);

    DocumentStore &store_;
    Events &events_;
    const FrontOptions options_;
    std::string url_;
    // Guarded by the state lock:
    Pollers pollers_;
    Posts posts_;
    bool stopping_ = false;
    std::condition_variable changed_;

    size_t bodies_ = 0; // bytes of bodies that are being read; HTTP thread
    AnswerPtr taken_;   // to a report
    MHD_Daemon *daemon_ = nullptr;
    std::thread clock_;
};

} // namespace controller

#endif
