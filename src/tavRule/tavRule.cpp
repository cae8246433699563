// Rules: the handles that the configuration holds.
//
// What a rule is stands in its current entry, which is never changed once it is made. A setter copies the entry, changes one part of the
// copy and publishes it: in a set, by putting it where the old one stood (rulesPublishEntry). Only then does the handle follow and give the
// old entry back, so that a failure anywhere before leaves everything as it was. Expression text and payload are counted on their own: the
// versions of a rule share what did not change.
#include "tavRule/tavRule.h"

#include <utility>

#include "tavRule/tavRuleParts.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

// Lets the handle's fields show the current entry.
void mirror(TavRule *rule) noexcept {
    const TavRuleEntry *entry = rule->current;
    const TavRuleText *text = entry->text;
    rule->expr = entry->expr;
    rule->expressionString = text ? text->expressionString : nullptr;
    rule->errorString = text ? text->errorString : nullptr;
    rule->errorPosition = text ? text->errorPosition : -1;
    rule->errorPositionIndicatorString = text ? text->errorPositionIndicatorString : nullptr;
    rule->object = entry->payload ? entry->payload->object : nullptr;
    rule->application = entry->application;
    rule->order = entry->order;
}

// Makes a changed copy of the rule's entry the current one.
template <typename Change>
Boolean changeRule(TavRule *rule, Change &&change) noexcept {
    TavRuleEntry *next = ruleEntryCopy(rule->current);
    if (!next) return FALSE;
    change(next);
    if (rule->inserted && !rulesPublishEntry(rule->rules, rule, next)) {
        ruleEntryRelease(next);
        return FALSE;
    }
    TavRuleEntry *old = std::exchange(rule->current, next);
    mirror(rule);
    ruleEntryRelease(old);
    return TRUE;
}

struct TypeName {
    TavRuleType type;
    const char *name;
};

constexpr TypeName typeNames[] = {
    {TAVRULETYPE_UNKNOWN, "UNKNOWN"},
    {TAVRULETYPE_WEBROUTEWORKCLASS, "WEBROUTEWORKCLASS"},
    {TAVRULETYPE_REQUESTTRACE, "REQUESTTRACE"},
    {TAVRULETYPE_CONTROLTRACE, "CONTROLTRACE"},
};

} // namespace

const char *ruleTypeToString(TavRuleType type) noexcept {
    for (const TypeName &entry : typeNames) {
        if (entry.type == type) return entry.name;
    }
    return "UNKNOWN!";
}

// ---- life ----

TavRule *tavRuleCreate(TavRules *rules) noexcept {
    auto *rule = tavNewRecord<TavRule>();
    if (!rule) return nullptr;
    rule->rules = rules;
    rule->current = ruleEntryCreate(rule);
    if (!rule->current) {
        tavDestroyRecord(rule);
        return nullptr;
    }
    mirror(rule);
    return rule;
}

void tavRuleFree(TavRule *rule) noexcept {
    if (!rule) return;
    if (rule->inserted) tavRulesRemoveRule(rule->rules, rule);
    ruleEntryRelease(rule->current);
    tavDestroyRecord(rule);
}

// ---- setters ----

Boolean tavRuleSetOrder(TavRule *rule, int order) noexcept {
    if (!rule) return FALSE;
    if (rule->order == order) return TRUE;
    return changeRule(rule, [order](TavRuleEntry *next) { next->order = order; });
}

Boolean tavRuleSetType(TavRule *rule, TavRuleType type) noexcept {
    if (!rule) return FALSE;
    TavRulePayload *payload = rule->current->payload;
    if (!changeRule(rule, [=](TavRuleEntry *next) { ruleEntrySetPayload(next, payload, type); })) return FALSE;
    rule->ruleType = type;
    if (payload) payload->type = type;
    return TRUE;
}

Boolean tavRuleSetObject(TavRule *rule, void *object) noexcept {
    if (!rule) return FALSE;
    if (rule->object == object) return TRUE;
    TavRulePayload *payload = object ? rulePayloadCreate(rule->ruleType, object) : nullptr;
    if (object && !payload) return FALSE;
    Boolean changed = changeRule(rule, [=](TavRuleEntry *next) { ruleEntrySetPayload(next, payload, rule->ruleType); });
    if (!changed && payload) payload->object = nullptr; // stays the caller's
    rulePayloadRelease(payload);
    return changed;
}

Boolean tavRuleSetApplication(TavRule *rule, Application *application) noexcept {
    if (!rule) return FALSE;
    return changeRule(rule, [application](TavRuleEntry *next) { next->application = application; });
}

Boolean tavRuleSetExpr(TavRule *rule, const char *expressionString) noexcept {
    if (!rule) return FALSE;
    TavRuleText *text = ruleTextCreate(rule->rules, rule->order, expressionString);
    if (!text) return FALSE;
    Boolean changed = changeRule(rule, [text](TavRuleEntry *next) { ruleEntrySetText(next, text); });
    ruleTextRelease(text);
    return changed;
}

// ---- getters ----

int tavRuleGetOrder(const TavRule *rule) noexcept { return rule ? rule->order : TAVRULE_DEFAULT_ORDER; }
TavRuleType tavRuleGetType(const TavRule *rule) noexcept { return rule ? rule->ruleType : TAVRULETYPE_UNKNOWN; }
const char *tavRuleGetTypeString(const TavRule *rule) noexcept { return rule ? ruleTypeToString(rule->ruleType) : "UNKNOWN-NULL"; }
void *tavRuleGetObject(const TavRule *rule) noexcept { return rule ? rule->object : nullptr; }
Application *tavRuleGetApplication(const TavRule *rule) noexcept { return rule ? rule->application : nullptr; }
TavRules *tavRuleGetRules(const TavRule *rule) noexcept { return rule ? rule->rules : nullptr; }
Expression *tavRuleGetExpr(const TavRule *rule) noexcept { return rule ? rule->expr : nullptr; }
Boolean tavRuleIsError(const TavRule *rule) noexcept { return !rule || rule->errorString; }
const char *tavRuleGetError(const TavRule *rule) noexcept { return rule ? rule->errorString : nullptr; }
int tavRuleGetErrorPosition(const TavRule *rule) noexcept { return rule ? rule->errorPosition : -1; }

const char *tavRuleGetErrorPositionIndicatorString(const TavRule *rule) noexcept {
    return rule ? rule->errorPositionIndicatorString : nullptr;
}

int ruleNameToSortOrder(const char *name) noexcept {
    if (!name) return TAVRULE_DEFAULT_ORDER;
    const char *simpleName = tavPathToName(name); // "default" begins with no digit either
    return *simpleName >= '0' && *simpleName <= '9' ? tavParseInt(simpleName) : TAVRULE_DEFAULT_ORDER;
}

// ---- parent wrappers ----

TavRuleParentWrapper *tavRuleParentWrapperCreate(void *object, TavRuleParentWrapperType type) noexcept {
    auto *wrapper = tavNewRecord<TavRuleParentWrapper>();
    if (!wrapper) return nullptr;
    wrapper->type = type;
    wrapper->object = object;
    return wrapper;
}

TavRuleParentWrapperType tavRuleParentWrapperGetType(const TavRuleParentWrapper *wrapper) noexcept {
    return wrapper ? wrapper->type : TAVRULEPARENTTYPE_UNKNOWN;
}

void *tavRuleParentWrapperGetObject(const TavRuleParentWrapper *wrapper) noexcept { return wrapper ? wrapper->object : nullptr; }

void *tavRuleParentWrapperDestroy(TavRuleParentWrapper *wrapper) noexcept {
    if (!wrapper) return nullptr;
    void *object = wrapper->object;
    tavDestroyRecord(wrapper);
    return object;
}
