// The tool's view of the library's own records: what the public interface does not tell. Only Inside.cpp and InsideRule.cpp include the
// library's inner headers.
#ifndef TAVCTL_INSIDE_H
#define TAVCTL_INSIDE_H

#include <jansson.h>
#include <tav/tav.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/Engine.h"

namespace tavctl {

// tavHandleJsonFromRestService() that also tells what was not taken.
long long applyObserved(TavConnector *connector, const std::string &document, std::vector<DocumentFinding> &findings);
// The document that the connector holds, deltas merged; borrowed until the next one, may be null.
json_t *storedDocument(TavConnector *connector);
// tavGetConfigVersion(), once a document that has arrived is applied. Takes the library's control lock.
long long appliedVersion(Tav *tav);

// From here on the request tells everything that traceStory() reads, whatever the configuration asks to be traced.
void traceInFull(TavHttpContext *ctx);

// The order that a rule of this configured name has.
int ruleOrder(const std::string &name);

// ---- what can never serve ----

struct ObjectProblem {
    std::string name; // of the configured object
    std::string type;
    std::string text;
};
std::vector<ObjectProblem> findUnreachable(Tav *tav);
// Are there requests that go over a transport of this protocol? It may be null.
bool forwardsWith(const char *protocol);
// Why an action text of a routing rule is refused; empty: it is not.
std::string actionProblem(const std::string &action);

// ---- rules ----

struct RuleOutcome {
    bool parses = false;
    std::string message; // these three: why it does not parse
    int position = -1;
    std::string indicator;
    bool value = false; // for the request
    // Only when asked for:
    std::vector<std::string> tree;  // one line a node, indented
    std::vector<std::string> steps; // what each operator found
};

// Parses and evaluates expressions in the instance's language.
class RuleReader {
public:
    explicit RuleReader(Tav *tav); // throws Fault
    ~RuleReader();
    RuleReader(const RuleReader &) = delete;
    RuleReader &operator=(const RuleReader &) = delete;

    // `ctx` may be null: parsed only.
    RuleOutcome read(const std::string &expression, TavHttpContext *ctx, bool explained) const;

private:
    struct Rules;
    std::unique_ptr<Rules> rules_;
};

} // namespace tavctl

#endif
