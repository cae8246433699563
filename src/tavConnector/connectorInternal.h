// What the files of the connector module share.
#ifndef TAVCONNECTOR_CONNECTORINTERNAL_H
#define TAVCONNECTOR_CONNECTORINTERNAL_H

#include "tavConnector/tavConnector.h"
#include "tavConnector/tavInstanceForConnector.h"
#include "tavUtil/tavMemory.h"

// Holds the control lock for a scope, unless the thread holds it already.
class ConnectorControlScope {
public:
    explicit ConnectorControlScope(const char *who) noexcept : obtained_(!tavHoldsControlLock()) {
        if (obtained_) tavControlLock(who);
    }
    ~ConnectorControlScope() noexcept {
        if (obtained_) tavControlUnlock();
    }
    ConnectorControlScope(const ConnectorControlScope &) = delete;
    ConnectorControlScope &operator=(const ConnectorControlScope &) = delete;

private:
    bool obtained_;
};

// Keeps the instance alive for a scope that ends after the control lock's.
class ConnectorTavRef {
public:
    ConnectorTavRef(Tav *tav, const char *reason) noexcept : tav_(tav), reason_(reason) { tavObtainRef(tav_, reason_); }
    ~ConnectorTavRef() noexcept { tavReleaseRef(tav_, reason_); }
    ConnectorTavRef(const ConnectorTavRef &) = delete;
    ConnectorTavRef &operator=(const ConnectorTavRef &) = delete;

private:
    Tav *tav_;
    const char *reason_;
};

// TRUE when the thread must not take the control lock: it holds it, or it is inside the host's sendRequest. Whoever is called back there
// queues what there is to do for the instance's own thread.
bool connectorMustDefer() noexcept;

// Text of a format; returns new, null without memory.
char *connectorFormat(const char *format, ...) noexcept __attribute__((format(printf, 1, 2)));

// Can the text go into documents and dumps? FALSE for null, for bytes that are not UTF-8, and without memory.
bool connectorIsText(const char *text) noexcept;

// ---- groups; control lock held ----
// One more connector in a row could not be used: the connector is FAILED for that reason.
void connectorGroupCountFailure(TavConnectorGroup *cg, TavConnector *c, const char *reason) noexcept;
// Polls again through the alarm after `milliseconds`, as long as the group's generation stays: with `req` (taken, and counted for `c`) the
// next poll, with null a new run. FALSE: there is no alarm to be had, and `req` is still the caller's.
bool connectorGroupSetAlarm(TavConnectorGroup *cg, int milliseconds, TavRestRequest *req, TavConnector *c) noexcept;
void connectorGroupForget(TavConnectorGroup *cg, TavConnector *c) noexcept; // takes it out of the list; it is no longer the current one

// ---- connectors ----
void connectorCloseClient(TavConnector *c) noexcept; // the poll's; control lock held
// The group's REST URI; returns new, null without memory. Any thread.
char *connectorGroupCopyRestURI(TavConnectorGroup *cg) noexcept;

// ---- requests ----
void restRequestSetBody(TavRestRequest *req, char *body) noexcept; // takes `body`, which may be null
// A poll's next request: GET with the version and the group's wait. 0 when sent; otherwise `req` is still the caller's. Control lock held.
int restRequestPollAgain(TavRestRequest *req, int64_t version) noexcept;
// Marks a request that is in no list any more. Returns the client that the caller must close after the connector's lock, or null. The lock
// must be held.
EnvConnectorClient *restRequestMarkCanceled(TavRestRequest *req) noexcept;
// Takes the request out of its connector's outstanding ones. FALSE: it was canceled.
bool restRequestLeave(TavRestRequest *req) noexcept;
// Handles a response. Takes both; `response` may be null. Control lock held.
void restRequestAnswer(TavRestRequest *req, TavHttpResponse *response) noexcept;
// Gives back everything of a request that was sent: nothing is done with its response. Takes both. Any thread.
void restRequestAbandon(TavRestRequest *req, TavHttpResponse *response) noexcept;
// Closes the client that was opened for this request, if there is one; a sender that is still at it does so itself.
void restRequestCloseOwnClient(TavRestRequest *req) noexcept;

#endif
