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

// ---- how a request was mapped ----

struct RuleView {
    int order;
    std::string expression;
    std::string action; // in words: "permit edition 2.0"
    bool parses;
    size_t steps; // trace lines that one evaluation gives
};
struct MappingView {
    std::string module; // whose path pattern matched, before a rule chose the edition; empty: none
    std::string application;
    std::string workClass; // the default one of the application; empty: none
    std::vector<RuleView> rules;
};
MappingView mappingOf(TavHttpContext *ctx, bool withRules);
// The order that a rule of this configured name has.
int ruleOrder(const std::string &name);
// Server application record to its server's name.
std::map<const void *, std::string> serverNames(TavHttpContext *ctx);

// ---- what can never serve ----

struct ObjectProblem {
    std::string name; // of the configured object
    std::string type;
    std::string text;
};
std::vector<ObjectProblem> findUnreachable(Tav *tav);
// Why an action text of a routing rule is refused; empty: it is not.
std::string actionProblem(const std::string &action);

// ---- rules ----

struct RuleOutcome {
    bool parses = false;
    std::string message; // these three: why it does not parse
    int position = -1;
    std::string indicator;
    bool value = false;             // for the request
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
    RuleOutcome read(const std::string &expression, TavHttpContext *ctx) const;

private:
    struct Rules;
    std::unique_ptr<Rules> rules_;
};

} // namespace tavctl

#endif
