// Object handlers of work classes, rule sets and rules.
//
// A rule has one of two parents. Under a work class it is an edition rule: the work class owns it once it is inserted. Under a rule set
// (of a server) it is a request-trace rule: the instance's one set of trace rules holds it while its snapshot is current, and it is freed
// here. So a rule set remembers its rules; a snapshot remembers its rule sets and lets their rules join and leave the instance's set as a
// whole, when it becomes and ceases to be the current one. A rule that comes to a snapshot in use joins at once.
//
// All of it happens under the control lock, but for a snapshot whose last request ends: by then its trace rules have left.
#include "tav/tavRecord.h"
#include "tavHandlers.h"
#include "tavObjectMap.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavRule/tavRule.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

typedef struct RuleObject RuleObject;

// Both lists keep the order of the document: an element is appended at the tail, which `last` of the owner (of the first element) names.
struct TavTraceRuleSet {
    TavRoutingInfo *ri; // borrowed
    Boolean active;     // its rules are in the instance's set
    RuleObject *first;
    RuleObject *last;
    TavTraceRuleSet *next;
    TavTraceRuleSet *prev; // of the first one: the last
};

struct RuleObject {
    TavRule *rule;        // null: it left with its rule set or its snapshot
    Tav *tav;             // borrowed
    TavTraceRuleSet *set; // null: an edition rule, or the set is gone
    RuleObject *next;
    RuleObject *prev;
    Boolean ready; // initialised
};

namespace {

RuleObject *ruleOf(Object *object) noexcept { return static_cast<RuleObject *>(object); }

void appendRule(TavTraceRuleSet *set, RuleObject *rule) noexcept {
    rule->set = set;
    rule->prev = set->last;
    (set->last ? set->last->next : set->first) = rule;
    set->last = rule;
}

void unlinkRule(RuleObject *rule) noexcept {
    TavTraceRuleSet *set = rule->set;
    if (!set) return;
    (rule->prev ? rule->prev->next : set->first) = rule->next;
    (rule->next ? rule->next->prev : set->last) = rule->prev;
    rule->set = nullptr;
}

void appendSet(TavTraceRuleSet *set) noexcept {
    TavTraceRuleSet *&head = set->ri->traceRuleSets;
    if (!head) {
        head = set->prev = set;
        return;
    }
    set->prev = head->prev;
    head->prev->next = set;
    head->prev = set;
}

void unlinkSet(TavTraceRuleSet *set) noexcept {
    TavTraceRuleSet *&head = set->ri->traceRuleSets;
    TavTraceRuleSet *last = head->prev;
    if (set == head) {
        head = set->next;
    } else {
        set->prev->next = set->next;
    }
    if (set->next) {
        set->next->prev = set->prev;
    } else if (head) {
        last = set->prev;
    }
    if (head) head->prev = last;
}

// The rule's text, for the administrator.
const char *ruleText(const RuleObject *object) noexcept { return tavOrNull(object->rule->expressionString); }

Boolean joinTraceRules(RuleObject *object) noexcept {
    if (!object->ready || !object->rule || object->rule->inserted) return TRUE;
    if (!tavRulesInsertRule(object->tav->requestTraceRules, object->rule)) return FALSE;
    TR_LOG(object->tav->trCtx, object->tav->requestTraceSpecAdded, ruleText(object));
    return TRUE;
}

void freeTraceRule(RuleObject *object) noexcept {
    if (!object->rule) return;
    if (object->rule->inserted) TR_LOG(object->tav->trCtx, object->tav->requestTraceSpecRemoved, ruleText(object));
    tavRuleFree(object->rule);
    object->rule = nullptr;
}

void leaveTraceRules(TavTraceRuleSet *set) noexcept {
    for (RuleObject *object = set->first; object; object = object->next) {
        if (object->rule && object->rule->inserted) tavRulesRemoveRule(object->tav->requestTraceRules, object->rule);
    }
    set->active = FALSE;
}

Boolean activateSet(TavTraceRuleSet *set) noexcept {
    if (set->active) return TRUE;
    for (RuleObject *object = set->first; object; object = object->next) {
        if (!joinTraceRules(object)) return FALSE;
    }
    set->active = TRUE;
    return TRUE;
}

TavRule *newTraceRule(Tav *tav, const char *name) noexcept {
    TavRule *rule = tavRuleCreate(tav->requestTraceRules);
    if (rule && tavRuleSetType(rule, TAVRULETYPE_REQUESTTRACE) && tavRuleSetOrder(rule, ruleNameToSortOrder(tavPathToName(name))))
        return rule;
    tavRuleFree(rule);
    return nullptr;
}

Boolean setTraceAction(RuleObject *object, const char *value) noexcept {
    TrSpec *spec = trSpecCreate(object->tav->trMgr, value);
    if (!spec) return FALSE;
    if (tavRuleSetObject(object->rule, spec)) return TRUE;
    trSpecRefRelease(spec);
    return FALSE;
}

Boolean setEditionAction(RuleObject *object, const char *name, const char *value) noexcept {
    const Boolean taken = rmEditionRoutingRuleSetPropStr(object->rule, name, value);
    if (!taken || !tavRuleGetObject(object->rule)) TR_LOG(object->tav->trCtx, object->tav->invalidAction, value);
    return taken;
}

WebRouteWorkClass *workClassOf(Object *wrapper) noexcept {
    return static_cast<WebRouteWorkClass *>(tavRuleParentWrapperGetObject(static_cast<TavRuleParentWrapper *>(wrapper)));
}

} // namespace

// ---- work classes ----

Object *tavWebRouteWorkClassCreate(void *application, const char *name, TavConnector *) noexcept {
    WebRouteWorkClass *workClass = rmWebRouteWorkClassCreate(static_cast<Application *>(application), name);
    if (!workClass) return nullptr;
    TavRuleParentWrapper *wrapper = tavRuleParentWrapperCreate(workClass, TAVRULEPARENTTYPE_WEBROUTEWORKCLASS);
    if (!wrapper) rmWebRouteWorkClassDelete(workClass);
    return wrapper;
}

Boolean tavWebRouteWorkClassSetPropStr(Object *workClass, const char *name, const char *value) noexcept {
    return rmWebRouteWorkClassSetPropStr(workClassOf(workClass), name, value);
}

Boolean tavWebRouteWorkClassSetPropInt(Object *workClass, const char *name, int value) noexcept {
    return rmWebRouteWorkClassSetPropInt(workClassOf(workClass), name, value);
}

Boolean tavWebRouteWorkClassSetPropBool(Object *workClass, const char *name, tav_boolean value) noexcept {
    return rmWebRouteWorkClassSetPropBool(workClassOf(workClass), name, value);
}

Boolean tavWebRouteWorkClassInit(Object *workClass) noexcept { return rmWebRouteWorkClassInit(workClassOf(workClass)); }

void tavWebRouteWorkClassDelete(Object *wrapper) noexcept {
    rmWebRouteWorkClassDelete(workClassOf(wrapper));
    tavWebRouteWorkClassRelease(wrapper);
}

void tavWebRouteWorkClassRelease(Object *wrapper) noexcept { tavRuleParentWrapperDestroy(static_cast<TavRuleParentWrapper *>(wrapper)); }

// ---- rule sets ----

Object *tavRuleSetCreateFromJSON(void *server, const char *, TavConnector *) noexcept {
    auto *set = tavNewRecord<TavTraceRuleSet>();
    TavRuleParentWrapper *wrapper = set ? tavRuleParentWrapperCreate(set, TAVRULEPARENTTYPE_SFTRACESPEC) : nullptr;
    if (!wrapper) {
        tavDestroyRecord(set);
        return nullptr;
    }
    set->ri = tsGetRoutingInfo(static_cast<TargetServer *>(server)->selector);
    set->active = tavRoutingInfoIsPublished(set->ri);
    appendSet(set);
    return wrapper;
}

void tavRuleSetDelete(Object *wrapper) noexcept {
    auto *set = static_cast<TavTraceRuleSet *>(tavRuleParentWrapperDestroy(static_cast<TavRuleParentWrapper *>(wrapper)));
    while (RuleObject *object = set->first) {
        unlinkRule(object);
        freeTraceRule(object);
    }
    unlinkSet(set);
    tavDestroyRecord(set);
}

Boolean tavTraceRulesActivate(TavRoutingInfo *ri) noexcept {
    for (TavTraceRuleSet *set = ri->traceRuleSets; set; set = set->next) {
        if (activateSet(set)) continue;
        for (TavTraceRuleSet *done = ri->traceRuleSets; done; done = done->next) leaveTraceRules(done);
        return FALSE;
    }
    return TRUE;
}

void tavTraceRulesDeactivate(TavRoutingInfo *ri) noexcept {
    for (TavTraceRuleSet *set = ri ? ri->traceRuleSets : nullptr; set; set = set->next) {
        for (RuleObject *object = set->first; object; object = object->next) freeTraceRule(object);
        set->active = FALSE;
    }
}

// ---- rules ----

Object *tavRuleCreateFromJson(void *parent, const char *name, TavConnector *connector) noexcept {
    auto *wrapper = static_cast<TavRuleParentWrapper *>(parent);
    Tav *tav = connector->tav;
    auto *object = tavNewRecord<RuleObject>();
    if (!object) return nullptr;
    const bool traces = tavRuleParentWrapperGetType(wrapper) == TAVRULEPARENTTYPE_SFTRACESPEC;
    object->tav = tav;
    object->rule = traces ? newTraceRule(tav, name) : rmEditionRoutingRuleCreate(workClassOf(wrapper), name);
    if (!object->rule) {
        tavDestroyRecord(object);
        return nullptr;
    }
    if (traces) appendRule(static_cast<TavTraceRuleSet *>(tavRuleParentWrapperGetObject(wrapper)), object);
    return object;
}

Boolean tavRuleSetPropStr(Object *object, const char *name, const char *value) noexcept {
    RuleObject *rule = ruleOf(object);
    if (!rule->rule) return FALSE;
    if (tavStrEquals(name, "expression")) return tavRuleSetExpr(rule->rule, value);
    if (!tavStrEquals(name, "action")) return FALSE;
    return rule->set ? setTraceAction(rule, value) : setEditionAction(rule, name, value);
}

Boolean tavRuleInit(Object *object) noexcept {
    RuleObject *rule = ruleOf(object);
    rule->ready = TRUE;
    if (!rule->set) return rmEditionRoutingRuleInit(rule->rule);
    return rule->set->active ? joinTraceRules(rule) : TRUE;
}

void tavRuleDelete(Object *object) noexcept {
    RuleObject *rule = ruleOf(object);
    if (rule->set) {
        unlinkRule(rule);
        freeTraceRule(rule);
    } else {
        rmEditionRoutingRuleDelete(rule->rule);
    }
    tavDestroyRecord(rule);
}

void tavRuleRelease(Object *object) noexcept {
    RuleObject *rule = ruleOf(object);
    if (rule->set || (rule->rule && !rule->rule->inserted)) {
        tavRuleDelete(object);
    } else {
        tavDestroyRecord(rule);
    }
}
