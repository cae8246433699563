// Everything in documents that the library would refuse, skip or never use.
#ifndef TAVCTL_CHECK_H
#define TAVCTL_CHECK_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "check/DocumentIndex.h"
#include "engine/Engine.h"
#include "engine/Inside.h"

namespace tavctl {

struct Finding {
    size_t file = 0;     // index of the document
    std::string pointer; // JSON pointer into it
    int line = 0;        // 0: unknown
    std::string kind;    // "document", "object", "property", "relationship", "rule" or "unused"
    std::string text;
    std::string expression, indicator; // of a rule that does not parse
    bool note = false;                 // known and harmless: not counted
};

class Check {
public:
    Check();

    // The first document is complete, the others are deltas. Throws Fault when the file cannot be read.
    void addFile(const std::string &path);
    // The same of a text that was read already; `path` is what findings call it.
    void addText(const std::string &path, std::string text);
    // When all files are in: adds what the whole never uses and the lines, and sorts.
    void finish();

    // The documents stay applied; what was found and where it stood is dropped. Memory stays bounded however many deltas follow.
    void forget();

    const std::vector<std::string> &files() const { return paths_; }
    const std::vector<Finding> &findings() const { return findings_; }
    size_t count() const; // without notes

private:
    struct Place {
        size_t file;
        std::string pointer;
    };
    struct LinkRule;

    size_t current() const { return paths_.size() - 1; }
    void addEntry(const ObjectEntry &entry);
    void addTransport(const ObjectEntry &entry);
    void addRule(const ObjectEntry &entry);
    void addExpression(const ObjectEntry &entry);
    void addRefused(const std::vector<DocumentFinding> &refused);
    void addUnlinked();
    void addUnused(const std::string &name, const std::string &text);
    void add(Finding finding); // once; not where a rule's own finding stands already
    void addLines();

    Engine engine_;
    RuleReader reader_;
    std::vector<std::string> paths_, texts_;
    std::vector<Finding> findings_;
    std::set<std::string> seen_;
    std::set<std::string> explained_;     // places of properties that a finding of kind "rule" tells about
    std::set<std::string> harmless_;      // places of properties that the library asks for and ignores
    std::map<std::string, Place> places_; // objects by full name
};

} // namespace tavctl

#endif
