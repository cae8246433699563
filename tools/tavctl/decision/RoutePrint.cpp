#include "decision/RoutePrint.h"

#include <fmt/format.h>

#include "decision/Explanation.h"
#include "decision/Request.h"
#include "support/Output.h"

namespace tavctl {

namespace {

std::string orDash(const char *text) { return text && *text ? text : "-"; }

std::string endpointText(TavTargetEndpoint *endpoint) {
    return fmt::format("{}://{}:{}", orDash(tavTargetEndpointGetProtocol(endpoint)), orDash(tavTargetEndpointGetHostName(endpoint)),
                       tavTargetEndpointGetPort(endpoint));
}

std::string actionText(TavHttpContext *ctx) {
    const TavAction action = tavHttpContextGetAction(ctx);
    const char *message = tavHttpContextGetErrorMessage(ctx);
    if (action == REDIRECT) return fmt::format("REDIRECT to {}", orDash(tavHttpContextGetRedirectURL(ctx)));
    if (action != REJECT) return actionName(action);
    const std::string status = fmt::format("REJECT with {}", tavHttpContextGetErrorCode(ctx));
    return message ? fmt::format("{}: {}", status, message) : status;
}

Colour colourOf(TavAction action) { return action == PERMIT ? Colour::Green : action == REJECT ? Colour::Red : Colour::Yellow; }

// Fields that share one title: the first line carries it.
class FieldList {
public:
    explicit FieldList(const char *title) : title_(title) {}
    void add(const std::string &text, Colour colour = Colour::Plain) {
        outField(title_, text, colour);
        title_ = "";
    }

private:
    const char *title_;
};

// ---- rules ----

void printRule(const Explanation &why) {
    if (!why.tried.empty() && why.tried.back().matched) {
        const TriedRule &matched = why.tried.back();
        const std::string text = fmt::format("#{} {} -> {}", matched.rule.order, matched.rule.expression, matched.rule.action);
        outField("rule", matched.name.empty() ? text : text + "\n" + matched.name);
    } else if (!why.mapping.workClass.empty()) {
        outField("rule", "no rule matched", Colour::Red);
    } else if (!why.mapping.module.empty()) {
        outField("rule", "none asked: the application has no default work class");
    }
}

void printTriedRules(const Explanation &why) {
    FieldList fields("rules tried");
    for (const TriedRule &tried : why.tried) {
        const char *verdict = tried.matched ? "matched" : tried.rule.parses ? "no match" : "does not parse, never matches";
        std::string text = fmt::format("#{} {}: {}", tried.rule.order, tried.rule.expression, verdict);
        for (const std::string &step : tried.steps) text += "\n  " + step;
        fields.add(text);
    }
    for (const std::string &step : why.looseSteps) fields.add("  " + step);
}

// ---- selection ----

void printAffinity(const RoutedRequest &request, const Explanation &why) {
    FieldList fields("affinity");
    if (why.affinity == Affinity::Kept) fields.add("kept to " + why.affinityText, Colour::Green);
    if (why.affinity == Affinity::Broken) fields.add("broken: " + why.affinityText, Colour::Yellow);
    if (why.affinity == Affinity::None) fields.add("the request names no session");
    if (request.endpoint()) outField("chosen by", tavHttpContextGetPerformedLoadBalancing(request.context()) ? "load" : "affinity");
}

void printSelectionSteps(const TraceStory &story) {
    FieldList sessions("sessions");
    for (const std::string &step : story.affinitySteps) sessions.add(step);
    FieldList compared("compared");
    for (const Compared &server : story.compared) compared.add(fmt::format("{}: {}", server.server, server.load));
    FieldList passedOver("passed over");
    for (const PassedOver &passed : story.passedOver) passedOver.add(fmt::format("{}: {}", passed.name, passed.reason), Colour::Yellow);
}

void printMapping(TavHttpContext *ctx) {
    const char *edition = tavHttpContextGetApplicationEditionName(ctx);
    outField("application", orDash(tavHttpContextGetApplicationName(ctx)));
    if (edition) outField("edition", *edition ? edition : "base");
    outField("web module", orDash(tavHttpContextGetModuleName(ctx)));
    outField("context root", orDash(tavHttpContextGetContextRoot(ctx)));
}

void printEndpoint(TavTargetEndpoint *endpoint) {
    const char *clone = tavTargetEndpointGetCloneId(endpoint);
    outField("endpoint", endpointText(endpoint), Colour::Bold);
    outField("server",
             fmt::format("{}{}{}", orDash(tavTargetEndpointGetServerName(endpoint)), clone ? ", clone " : "", clone ? clone : ""));
    outField("cluster", orDash(tavTargetEndpointGetClusterName(endpoint)));
}

void printHeaders(const Changes &headers) {
    FieldList fields("headers");
    for (const auto &[name, value] : headers.list())
        fields.add(value ? fmt::format("{}: {}", name, *value) : fmt::format("{} removed", name));
}

} // namespace

std::string outcomeOf(const RoutedRequest &request) {
    if (request.handled() != 1) return "not handled: " + actionText(request.context());
    TavTargetEndpoint *endpoint = request.endpoint();
    if (!endpoint) return actionText(request.context());
    return fmt::format("{} {}", orDash(tavTargetEndpointGetServerName(endpoint)), endpointText(endpoint));
}

void printDecision(const RoutedRequest &request, const RuleNames &names, bool explaining) {
    TavHttpContext *ctx = request.context();
    const Explanation why = explain(request, names);
    out("{}\n", paint(Colour::Bold, requestTitle(request.request())));
    outField("handled", request.handled() == 1 ? "yes" : request.handled() == 0 ? "no" : "error");
    outField("action", actionText(ctx), colourOf(tavHttpContextGetAction(ctx)));
    outField("host group", orDash(tavHttpContextGetMatchedVHostName(ctx)));
    if (request.handled() == 1 && tavHttpContextGetModuleName(ctx)) printMapping(ctx);
    printRule(why);
    if (explaining) printTriedRules(why);
    if (request.endpoint()) printEndpoint(request.endpoint());
    if (tavHttpContextGetModuleName(ctx)) printAffinity(request, why);
    if (explaining) printSelectionSteps(why.story);
    printHeaders(request.request().headersSet);
}

} // namespace tavctl
