// One instance with the real trace catalogue, the group "g" with one connector, and a transport that accepts every request and answers
// none.
#ifndef CORE_COREFIXTURE_H
#define CORE_COREFIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "system/Instance.h"
#include "tav/tavRecord.h"
#include "tavDocument/tavDocument.h"
#include "tavUtil/tavTime.h"

class CoreFixture : public testing::Test, protected SystemParts {
protected:
    CoreFixture();
    ~CoreFixture() override;
    void SetUp() override;
    void TearDown() override;
    // Tells everyone who waits for the transport that there is no answer.
    virtual void answerNone() { systemAnswerNone(); }

    // Callbacks and URL may be changed here before SetUp() creates the instance.
    EnvCallBacks env;
    std::string url = "http://127.0.0.1:1"; // of the connector

    long long give(const std::string &document) { return tavHandleJsonFromRestService(document.c_str(), connector); }
    // Waits until the instance's own thread has done and freed everything, even what it was started with; returns the blocks in use. To be
    // called before blocks are counted.
    int settle();
    // The dump of mapper and selector (without what a rebuild starts anew), as text with sorted keys.
    std::string dump();
    // The stored document, as text with sorted keys; "" when there is none.
    std::string storedText() const;

    // A property of the instance or, when it knows none of that name, of the host (`value` is then kept as it is).
    void set(const char *name, const char *value) {
        if (tavPropertySet(tavGetProperties(tav), name, value, TRUE) < 0) tavPropertySet(tavGetProperties(tav), name, value, FALSE);
    }

    // From here on the instance traces what `spec` says. Its lines since then or since they were last taken: as they came, as one text, and
    // how many hold `part`.
    void traceOn(const char *spec = ":NOTICE,control.process:DEBUG");
    static std::vector<std::string> takeLines();
    static std::string takeTrace();
    static int traced(const std::string &part);
};

// {"version": version, ...} with single quotes written as double ones.
std::string quoted(std::string text);

#endif
