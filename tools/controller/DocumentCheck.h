// `tavctl check` for documents that live: the whole file once, then each delta against an instance of the library that has all before it.
#ifndef CONTROLLER_DOCUMENTCHECK_H
#define CONTROLLER_DOCUMENTCHECK_H

#include <memory>
#include <string>
#include <vector>

#include "check/Check.h"

namespace controller {

struct Complaint {
    std::string place; // "file:line: /json/pointer", as far as they are known
    std::string kind;
    std::string text;
    bool blocks = false; // the document is not served
};

class DocumentCheck {
public:
    // Strict: what is never used blocks as well.
    DocumentCheck(std::string path, bool strict) : path_(std::move(path)), strict_(strict) {}

    // Checks a complete document in an instance of its own. Empty: nothing to say.
    std::vector<Complaint> whole(const std::string &text);
    // Has it the last document that was good?
    bool ready() const { return check_ != nullptr; }
    void forget() { check_.reset(); }
    // Applies a delta to that. FALSE: the library took not all of it, and the instance is gone.
    bool takes(const std::string &delta);

private:
    std::string path_;
    bool strict_;
    std::unique_ptr<tavctl::Check> check_;
};

bool anyBlocks(const std::vector<Complaint> &complaints);

} // namespace controller

#endif
