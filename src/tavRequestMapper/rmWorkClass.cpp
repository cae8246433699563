// Work classes and the edition routing rules in them.
#include "tavRequestMapper/rmInternal.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

// ---- work classes ----

void workClassFree(WebRouteWorkClass *workClass) noexcept {
    if (!workClass) return;
    tavRulesFree(workClass->rules);
    tavFree(workClass->name);
    tavDestroyRecord(workClass);
}

WebRouteWorkClass *rmWebRouteWorkClassCreate(Application *application, const char *name) noexcept {
    if (!application || !name) return nullptr;
    auto *workClass = tavNewRecord<WebRouteWorkClass>();
    if (!workClass) return nullptr;
    Tav *tav = tavRoutingInfoGetTav(rmApplicationGetRoutingInfo(application));
    workClass->application = application;
    workClass->name = tavStrdup(name);
    workClass->rules = tavRulesCreate(tav ? tavGetHttpLanguage(tav) : nullptr, tav);
    if (workClass->name && workClass->rules) {
        tavRulesSetType(workClass->rules, TAVRULESTYPE_WEBROUTEWORKCLASS);
        workClass->ele = tavListAddTail(application->newWorkClasses, workClass);
        if (workClass->ele) return workClass;
    }
    workClassFree(workClass);
    return nullptr;
}

Boolean rmWebRouteWorkClassSetPropStr(WebRouteWorkClass *, const char *, const char *) noexcept { return FALSE; }
Boolean rmWebRouteWorkClassSetPropInt(WebRouteWorkClass *, const char *, int) noexcept { return FALSE; }
Boolean rmWebRouteWorkClassSetPropBool(WebRouteWorkClass *, const char *, Boolean) noexcept { return FALSE; }

Boolean rmWebRouteWorkClassInit(WebRouteWorkClass *workClass) noexcept {
    if (!workClass || workClass->initialised) return FALSE;
    Application *application = workClass->application;
    TavListEle *ele = tavListAddTail(application->webRouteWorkClasses, workClass);
    if (!ele) return FALSE;
    tavListRemove(application->newWorkClasses, workClass->ele);
    workClass->ele = ele;
    workClass->initialised = TRUE;
    if (tavEndsWith(workClass->name, "Default_HTTP_WC")) application->defaultWebRouteWorkClass = workClass;
    return TRUE;
}

void rmWebRouteWorkClassDelete(WebRouteWorkClass *workClass) noexcept {
    if (!workClass) return;
    Application *application = workClass->application;
    if (application->defaultWebRouteWorkClass == workClass) application->defaultWebRouteWorkClass = nullptr;
    tavListRemove(workClass->initialised ? application->webRouteWorkClasses : application->newWorkClasses, workClass->ele);
    workClassFree(workClass);
}

// ---- web patterns: the configuration may carry them, routing does not use them ----

void *rmWebPatternCreate(void *, const char *) noexcept { return nullptr; }
Boolean rmWebPatternSetPropStr(void *, const char *, const char *) noexcept { return FALSE; }
Boolean rmWebPatternSetPropInt(void *, const char *, int) noexcept { return FALSE; }
Boolean rmWebPatternSetPropBool(void *, const char *, Boolean) noexcept { return FALSE; }
Boolean rmWebPatternInit(void *) noexcept { return TRUE; }
void rmWebPatternDelete(void *) noexcept {}

// ---- edition routing rules ----

TavRule *rmEditionRoutingRuleCreate(WebRouteWorkClass *workClass, const char *name) noexcept {
    if (!workClass) return nullptr;
    TavRule *rule = tavRuleCreate(workClass->rules);
    if (tavRuleSetType(rule, TAVRULETYPE_WEBROUTEWORKCLASS) && tavRuleSetApplication(rule, workClass->application) &&
        tavRuleSetOrder(rule, ruleNameToSortOrder(name))) {
        return rule;
    }
    tavRuleFree(rule);
    return nullptr;
}

// A text that is no action leaves the rule without one: a request that matches it is rejected.
Boolean rmEditionRoutingRuleSetPropStr(TavRule *rule, const char *, const char *value) noexcept {
    Action *action;
    if (!rule || !actionTryCreate(value, &action)) return FALSE;
    if (tavRuleSetObject(rule, action)) return TRUE;
    actionDelete(action);
    return FALSE;
}

Boolean rmEditionRoutingRuleSetPropInt(TavRule *, const char *, int) noexcept { return FALSE; }
Boolean rmEditionRoutingRuleSetPropBool(TavRule *, const char *, Boolean) noexcept { return FALSE; }
Boolean rmEditionRoutingRuleInit(TavRule *rule) noexcept { return tavRulesInsertRule(tavRuleGetRules(rule), rule); }
void rmEditionRoutingRuleDelete(TavRule *rule) noexcept { tavRuleFree(rule); }
