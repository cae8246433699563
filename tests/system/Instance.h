// An instance for whole-library tests: the real catalogue, the group "g" with one connector, host endpoint objects that are counted, and a
// transport that keeps what it is asked to send until somebody answers. Safe to use from several threads.
#ifndef SYSTEM_INSTANCE_H
#define SYSTEM_INSTANCE_H

#include <jansson.h>

#include <string>

#include <tav/tav.h>

#include "support/FakeHost.h"

// The callback table that SystemInstance uses.
EnvCallBacks systemCallBacks();
// Answers every request that the transport holds and is not a poll: a report of routes or health is taken (status 200).
void systemAnswerReports();
// Answers the poll that the transport holds; FALSE when there is none. How many polls it holds.
bool systemAnswerPoll(int code, const std::string &body);
int systemPolls();
// Lets the alarms ring that were set by now.
void systemRing();
// Tells everyone who still waits for an answer that there is none, and lets the alarms ring that were set by then.
void systemAnswerNone();
// Host endpoint objects that were made and not yet deleted.
int systemHostEndpoints();
// The text of `json`, with sorted keys; takes it. And that of the instance's mapper and selector.
std::string takeText(json_t *json);
std::string systemDump(Tav *tav);
// The process's threads; and waits until there are no more than `count`, FALSE when that takes longer than a minute.
int systemThreads();
bool systemThreadsBackTo(int count);

// The path of the real trace catalogue.
inline char systemCatalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";

struct SystemParts {
    Tav *tav = nullptr; // null when it could not be created
    TavConnectorGroup *group = nullptr;
    TavConnector *connector = nullptr;
};
// An instance that was not started, with the group "g" and its connector.
SystemParts systemCreate(const EnvCallBacks &env = systemCallBacks(), const std::string &url = "http://127.0.0.1:1");
// Waits until what the instance's own thread has to do is done, and answers the reports that came of it. Returns the blocks in use, but for
// the last work, which that thread frees a moment later. Waits until there are no more than `count`; FALSE when that does not happen.
int systemSettle(Tav *tav);
bool systemBlocksBackTo(int count);

class SystemInstance : public SystemParts {
public:
    // `beforeStart` gets the instance with its group.
    explicit SystemInstance(const EnvCallBacks &env = systemCallBacks(), void (*beforeStart)(Tav *tav) = nullptr);
    ~SystemInstance(); // destroys the instance and answers what was pending
    SystemInstance(const SystemInstance &) = delete;
    SystemInstance &operator=(const SystemInstance &) = delete;

    long long give(const std::string &document) const { return tavHandleJsonFromRestService(document.c_str(), connector); }
    void settle() const { systemSettle(tav); }
    std::string dump() const { return systemDump(tav); }
};

#endif
