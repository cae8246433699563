#include "DocumentCheck.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/Fault.h"

namespace controller {

namespace {

constexpr const char *NEVER_USED = "unused";

bool blocks(const tavctl::Finding &finding, bool strict) { return !finding.note && (strict || finding.kind != NEVER_USED); }

Complaint complaintOf(const tavctl::Finding &finding, const std::string &path, bool strict) {
    const std::string line = finding.line > 0 ? fmt::format("{}:{}", path, finding.line) : path;
    return {fmt::format("{}: {}", line, finding.pointer.empty() ? "/" : finding.pointer), finding.kind, finding.text,
            blocks(finding, strict)};
}

} // namespace

bool anyBlocks(const std::vector<Complaint> &complaints) {
    return std::any_of(complaints.begin(), complaints.end(), [](const Complaint &complaint) { return complaint.blocks; });
}

std::vector<Complaint> DocumentCheck::whole(const std::string &text) {
    std::vector<Complaint> complaints;
    check_.reset(); // its memory first
    auto check = std::make_unique<tavctl::Check>();
    try {
        check->addText(path_, text);
        check->finish();
    } catch (const tavctl::Fault &unreadable) {
        return {{path_, "document", unreadable.what(), true}};
    }
    for (const tavctl::Finding &finding : check->findings()) {
        if (!finding.note) complaints.push_back(complaintOf(finding, path_, strict_));
    }
    if (anyBlocks(complaints)) return complaints;
    check->forget();
    check_ = std::move(check);
    return complaints;
}

bool DocumentCheck::takes(const std::string &delta) {
    check_->addText(path_, delta);
    if (strict_) check_->finish();
    const auto &findings = check_->findings();
    const bool clean =
        std::none_of(findings.begin(), findings.end(), [this](const tavctl::Finding &finding) { return blocks(finding, strict_); });
    check_->forget();
    if (!clean) check_.reset();
    return clean;
}

} // namespace controller
