#include "engine/Inside.h"

#include <fmt/format.h>

#include "TraceRecording.h"
#include "tav/tavControl.h"
#include "tavDocument/tavDocument.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavRule/tavRule.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavTime.h"
#include "tr/tr.h"

namespace tavctl {

// ---- documents ----

long long applyObserved(TavConnector *connector, const std::string &document, std::vector<DocumentFinding> &findings) {
    const auto add = [](void *passback, const char *pointer, const char *kind, const char *text) {
        static_cast<std::vector<DocumentFinding> *>(passback)->push_back({pointer, kind, text});
    };
    const DocumentObserver observer = {add, &findings};
    return tavHandleJsonObserved(document.c_str(), connector, &observer);
}

json_t *storedDocument(TavConnector *connector) { return tavConnectorGetJSON(connector); }

long long appliedVersion(Tav *tav) {
    const TavControlScope control("appliedVersion");
    return tavGetConfigVersion(tav);
}

// ---- requests ----

void traceInFull(TavHttpContext *ctx) {
    TrContext *trCtx = tavHttpContextGetTrContext(ctx);
    if (TrSpec *spec = trSpecCreate(trContextGetMgr(trCtx), tavhost::EXPLAIN_TRACE_SPEC)) trContextSetSpec(trCtx, spec);
}

int ruleOrder(const std::string &name) { return ruleNameToSortOrder(name.c_str()); }

// ---- what can never serve ----

namespace {

std::string orEmpty(const char *text) { return text ? text : ""; }

class Snapshot {
public:
    explicit Snapshot(Tav *tav) : ri_(tavRoutingInfoObtain(tav)) {}
    ~Snapshot() { tavRoutingInfoRelease(ri_); }
    Snapshot(const Snapshot &) = delete;
    Snapshot &operator=(const Snapshot &) = delete;
    RequestMapper *mapper() const { return tavRoutingInfoGetRequestMapper(ri_); }
    TargetSelector *selector() const { return tavRoutingInfoGetTargetSelector(ri_); }

private:
    TavRoutingInfo *ri_;
};

struct ServerVerdict {
    bool canBeChosen = false;
    std::string reason; // of the first server application
};
using ServerVerdicts = std::map<std::string, ServerVerdict>;

// Why the server application is never chosen; empty: it can be. A server in a connect back-off is not a matter of the configuration.
std::string reasonForNever(const TsVisit *visit) {
    if (!visit->sapp) return "it has no server application";
    if (!visit->virtualCluster) return fmt::format("no web module is served by its server application {}", visit->sapp->name);
    const TavTime now = tavGetCurrentTime();
    const char *balance = tsServerApplicationReason(visit->sapp, now, FALSE);
    const bool keepsSessions = !tsServerApplicationReason(visit->sapp, now, TRUE) && tsServerGetCloneId(visit->server);
    if (balance && !keepsSessions) return balance;
    if (visit->server->maxConnections == 0) return "its maxConnections is 0";
    const char *http = tsServerTransportReason(visit->server, 0);
    return http && tsServerTransportReason(visit->server, 1) ? http : "";
}

bool servesNoApplications(const TsVisit *visit) {
    const TavServerType type = tsServerGetType(visit->server);
    return !visit->sapp &&
           (type == TAVSERVERTYPE_WEB_SERVER || type == TAVSERVERTYPE_NODE_AGENT || type == TAVSERVERTYPE_DEPLOYMENT_MANAGER);
}

void judge(const TsVisit *visit, void *passback) {
    if (servesNoApplications(visit)) return;
    ServerVerdict &verdict = (*static_cast<ServerVerdicts *>(passback))[orEmpty(tsServerGetName(visit->server))];
    const std::string reason = reasonForNever(visit);
    if (reason.empty()) verdict.canBeChosen = true;
    if (verdict.reason.empty()) verdict.reason = reason;
}

void findServers(TargetSelector *selector, std::vector<ObjectProblem> &problems) {
    ServerVerdicts verdicts;
    tsForEachServerApplication(selector, judge, &verdicts);
    for (const auto &[name, verdict] : verdicts) {
        if (!verdict.canBeChosen) problems.push_back({name, "server", "the server can never be chosen: " + verdict.reason});
    }
}

// Permits of an edition that no application has.
void findPermits(const WebRouteWorkClass *workClass, std::vector<ObjectProblem> &problems) {
    tavRulesLockObtain(workClass->rules, "tavctl");
    for (const TavRule *rule : TavListRange<TavRule>(workClass->rules->rules)) {
        const auto *action = static_cast<const Action *>(tavRuleGetObject(rule));
        if (actionGetType(action) != PERMIT || getApplicationByEdition(workClass->application->root, actionGetEdition(action))) continue;
        problems.push_back({workClass->name, "webRouteWorkClass",
                            fmt::format("rule #{} {} permits edition \"{}\", which no application has: its requests are rejected with 500",
                                        tavRuleGetOrder(rule), orEmpty(rule->expressionString), orEmpty(actionGetEdition(action)))});
    }
    tavRulesLockRelease(workClass->rules);
}

void findWorkClasses(const Application *application, std::vector<ObjectProblem> &problems) {
    for (const WebRouteWorkClass *workClass : TavListRange<WebRouteWorkClass>(application->webRouteWorkClasses)) {
        if (workClass != application->defaultWebRouteWorkClass)
            problems.push_back({workClass->name, "webRouteWorkClass",
                                "its rules are never evaluated: only the last work class of an application whose name ends with "
                                "\"Default_HTTP_WC\" is"});
        else if (tavRulesGetCount(workClass->rules) == 0)
            problems.push_back({workClass->name, "webRouteWorkClass", "the work class has no rule: every request is rejected with 500"});
        else
            findPermits(workClass, problems);
    }
}

void findModules(const Application *application, TargetSelector *selector, std::vector<ObjectProblem> &problems) {
    if (tavListIsEmpty(application->webModules))
        problems.push_back({application->name, "application", "the application has no web module: no request can reach it"});
    for (const WebModule *module : TavListRange<WebModule>(application->webModules)) {
        const VirtualCluster *cluster = tsFindVirtualCluster(selector, module->name);
        if (!cluster || !cluster->cluster)
            problems.push_back(
                {module->name, "webModule", "no cluster serves the web module: its requests are rejected with 500 \"no cluster\""});
        else if (tavListIsEmpty(cluster->sappList))
            problems.push_back(
                {module->name, "webModule", "no server application is linked to the web module: its requests are rejected with 503"});
        if (tavListIsEmpty(module->uris))
            problems.push_back({module->name, "webModule", "the web module has no uri: no request can reach it"});
    }
}

std::vector<const Application *> applicationsOf(RequestMapper *mapper) {
    std::vector<const Application *> applications;
    const TavLockGuard guard(mapper->lock, "tavctl");
    for (auto [name, root] : TavHashRange<ApplicationRoot>(mapper->appRoots)) {
        for (const Application *application : TavListRange<Application>(root->applications)) applications.push_back(application);
    }
    return applications;
}

void findGroups(const URLMatcher *matcher, std::vector<ObjectProblem> &problems) {
    for (const VHostMatcher *group : TavListRange<VHostMatcher>(matcher->vhostMatcherList)) {
        if (!group->any && group->noOfvhosts == 0 && group->noOfhosts == 0 && group->noOfports == 0)
            problems.push_back(
                {orEmpty(getVHostMatcherName(group)), "vHostGroup", "the virtual-host group has no host: no request selects it"});
    }
}

} // namespace

std::vector<ObjectProblem> findUnreachable(Tav *tav) {
    std::vector<ObjectProblem> problems;
    const Snapshot snapshot(tav);
    if (!snapshot.mapper() || !snapshot.selector()) return problems;
    for (const Application *application : applicationsOf(snapshot.mapper())) {
        findModules(application, snapshot.selector(), problems);
        findWorkClasses(application, problems);
    }
    findGroups(rmGetURLMatcher(snapshot.mapper()), problems);
    findServers(snapshot.selector(), problems);
    return problems;
}

bool forwardsWith(const char *protocol) { return tsProtocolToIndex(protocol) >= 0; }

std::string actionProblem(const std::string &text) {
    Action *action = actionCreate(text.c_str());
    const bool good = action != nullptr;
    const int code = actionGetRejectErrorCode(action);
    const bool rejects = actionGetType(action) == REJECT;
    actionDelete(action);
    if (!good) return "no action: write permit:APPLICATION, permitsticky:APPLICATION, reject:STATUS or redirect:URL";
    return rejects && (code < 100 || code > 999) ? fmt::format("the action rejects with {}, which is no HTTP status", code) : "";
}

} // namespace tavctl
