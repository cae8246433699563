#include "engine/TraceLog.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace tavctl {

namespace {

bool startsWith(std::string_view text, std::string_view start, std::string_view *rest = nullptr) {
    if (!text.starts_with(start)) return false;
    if (rest) *rest = text.substr(start.size());
    return true;
}

// "[0x5581]uri" becomes "uri": addresses differ from run to run.
std::string withoutAddresses(std::string_view text) {
    std::string result(text);
    for (size_t start = 0; (start = result.find('[', start)) != std::string::npos;) {
        const size_t end = result.find(']', start);
        if (end == std::string::npos) break;
        const std::string inside = result.substr(start + 1, end - start - 1);
        if (inside == "(nil)" || inside.starts_with("0x"))
            result.erase(start, end - start + 1);
        else
            start = end;
    }
    return result;
}

// The line that ends the evaluation of a set: "tavRule: Rule #10 (uri = '/a') matches context 0x5581"
bool endsRules(std::string_view text) { return startsWith(text, "tavRule: Rule #") || startsWith(text, "tavRule: No rule found"); }

bool readAffinity(std::string_view text, TraceStory &story) {
    std::string_view rest;
    if (startsWith(text, "tsSelect: keeping affinity to ", &rest)) {
        story.affinityKept = std::string(rest.substr(0, rest.find(" ; cluster is:")));
    } else if (startsWith(text, "tsSelect: Breaking affinity for the request ") ||
               startsWith(text, "getAffinitySappFromSid: a routable sapp was not found")) {
        return true; // the request tells why
    } else if (startsWith(text, "getSessionIdFromUrl: ")) {
        if (startsWith(text, "getSessionIdFromUrl: session id='") && !text.ends_with("='null'"))
            story.affinitySteps.push_back("in the path: " + std::string(text.substr(text.find(": ") + 2)));
    } else if (startsWith(text, "getAffinity")) {
        story.affinitySteps.push_back(std::string(text.substr(text.find(": ") + 2)));
    } else {
        return false;
    }
    return true;
}

bool readRollout(std::string_view text, TraceStory &story) {
    std::string_view rest;
    if (!startsWith(text, "would wait for rollout ", &rest)) return false;
    story.rollout = "would wait for that " + std::string(rest);
    return true;
}

bool readBalance(std::string_view text, TraceStory &story) {
    std::string_view rest;
    if (startsWith(text, "wlor: skipping server application='", &rest)) {
        PassedOver passed{};
        const size_t address = rest.find("' (");
        passed.name = std::string(rest.substr(0, address));
        if (address != std::string_view::npos)
            passed.address = std::string(rest.substr(address + 3, rest.find(')', address) - address - 3));
        const size_t reason = rest.find(", reason=");
        if (reason != std::string_view::npos) passed.reason = std::string(rest.substr(reason + 9));
        story.passedOver.push_back(std::move(passed));
        return true;
    }
    if (!startsWith(text, "wlor: comparing server='", &rest)) return startsWith(text, "wlor: ");
    const size_t end = rest.find("', ");
    if (end == std::string_view::npos) return true;
    story.compared.push_back({std::string(rest.substr(0, end)), std::string(rest.substr(end + 3))});
    return true;
}

} // namespace

int traceHook(const TrContext *ctx, va_list args) {
    tavhost::recordTrace(ctx, args);
    return 0;
}

std::vector<std::string> evaluationSteps(const TraceLines &lines) {
    std::vector<std::string> steps;
    for (const TraceLine &line : lines) steps.push_back(withoutAddresses(line.text));
    return steps;
}

TraceStory traceStory(const TraceLines &lines) {
    TraceStory story;
    std::vector<std::string> steps; // they come before the line that tells which rule matched
    for (const TraceLine &line : lines) {
        if (endsRules(line.text)) {
            story.ruleSteps = std::move(steps);
            steps.clear();
        } else if (readBalance(line.text, story) || readAffinity(line.text, story) || readRollout(line.text, story)) {
            steps.clear();
        } else {
            steps.push_back(withoutAddresses(line.text));
        }
    }
    return story;
}

} // namespace tavctl
