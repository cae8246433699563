// Rule sets: ordered lists of rules for the configuration, and the published array of entries that requests walk.
//
// Invariants
//   - `published` holds the current entry of every inserted rule in list order, or is null while the set is empty. It may hold dead entries
//     besides: rules that left while there was no memory for an array without them; matching passes over those.
//   - A published array is changed in place only while its one count is the set's, under `pinLock`, so that no request can come to hold it
//     meanwhile. Otherwise a changed copy replaces it; the old one goes with its last pin.
// Locks
//   - `lock` (rank Rules) serialises changes. Requests do not take it, so a caller that holds it may match.
//   - `pinLock` (leaf) covers reading the pointer together with counting a pin, and the swap: a few instructions each.
//   - What a change gives up is released after both.
#include <utility>

#include "tavRule/tavRule.h"
#include "tavRule/tavRuleParts.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

struct RecordSlot {
    TrRecord *_TavRules::*slot;
    const char *path;
};

constexpr RecordSlot recordSlots[] = {
    {&_TavRules::recReqMatch, "http.request.rules.traceRuleMatch"}, {&_TavRules::recReqProcess, "http.request.rules.process"},
    {&_TavRules::recCtrlParseError, "control.rules.parsing.error"}, {&_TavRules::recCtrlParseProcess, "control.rules.parsing.process"},
    {&_TavRules::recCtrlInsert, "control.rules.insertAndRemove"},   {&_TavRules::recCtrlList, "control.rules.list"},
    {&_TavRules::recCtrlProcess, "control.rules.process"},
};

// ---- the published array ----

void replacePublished(TavRules *rules, TavRuleArray *next) noexcept {
    TavRuleArray *old;
    {
        TavLockGuard guard(&rules->pinLock, "replacePublished");
        old = std::exchange(rules->published, next);
    }
    ruleArrayRelease(old);
}

Boolean spliceInPlace(TavRules *rules, int index, int removed, TavRuleEntry *added) noexcept {
    TavLockGuard guard(&rules->pinLock, "spliceInPlace");
    TavRuleArray *array = rules->published;
    return array && array->isUnshared() && !array->hasDead && ruleArraySplice(array, index, removed, added);
}

// The caller's lock keeps the pointer: only its holder replaces it.
TavRuleArray *peekPublished(TavRules *rules) noexcept TAV_REQUIRES(rules->lock) {
    TavLockGuard guard(&rules->pinLock, "peekPublished");
    return rules->published;
}

// Publishes `added` (may be null) at `index` in place of `removed` entries. FALSE: no memory, nothing has changed.
Boolean splicePublished(TavRules *rules, int index, int removed, TavRuleEntry *added) noexcept TAV_REQUIRES(rules->lock) {
    if (spliceInPlace(rules, index, removed, added)) return TRUE;
    TavRuleArray *next = ruleArraySpliced(peekPublished(rules), index, removed, added);
    if (!next) return FALSE;
    replacePublished(rules, next);
    return TRUE;
}

int publishedIndexOf(TavRules *rules, const TavRuleEntry *entry) noexcept TAV_REQUIRES(rules->lock) {
    return peekPublished(rules)->indexOf(entry);
}

// Takes the entry out; when there is no memory for that it stays, dead.
void unpublish(TavRules *rules, TavRuleEntry *entry) noexcept TAV_REQUIRES(rules->lock) {
    if (tavListIsEmpty(rules->rules)) {
        replacePublished(rules, nullptr);
    } else if (!splicePublished(rules, publishedIndexOf(rules, entry), 1, nullptr)) {
        entry->dead.store(true, std::memory_order_relaxed);
        TavLockGuard guard(&rules->pinLock, "unpublish");
        rules->published->hasDead = TRUE;
    }
}

// ---- the list ----

TavRule *ruleAt(const TavListEle *ele) noexcept { return static_cast<TavRule *>(tavListEleGetObject(ele)); }

// The element before which a rule of this order goes; null: at the end. New rules mostly go to the end: an ordered list is walked from
// there.
TavListEle *findPlace(const TavRules *rules, int order) noexcept TAV_REQUIRES(rules->lock) {
    TavListEle *place = nullptr;
    if (rules->outOfOrder) {
        for (place = tavListGetHead(rules->rules); place && ruleAt(place)->order <= order;) place = tavListGetNext(place);
        return place;
    }
    for (TavListEle *ele = tavListGetTail(rules->rules); ele && ruleAt(ele)->order > order; ele = tavListGetPrev(ele)) place = ele;
    return place;
}

Boolean insertAt(TavRules *rules, TavListEle *place, TavRule *rule) noexcept TAV_REQUIRES(rules->lock) {
    TavRuleArray *array = peekPublished(rules);
    int index = !array ? 0 : place ? array->indexOf(ruleAt(place)->current) : array->count;
    TavListEle *ele = tavListInsertBefore(rules->rules, place, rule);
    if (!ele) return FALSE;
    if (!splicePublished(rules, index, 0, rule->current)) {
        tavListRemove(rules->rules, ele);
        return FALSE;
    }
    rules->ruleCount = tavListGetCount(rules->rules);
    rule->rules = rules;
    rule->inserted = TRUE;
    return TRUE;
}

// A rule that left without memory may still have its dead entry in the array: it comes back with another one.
Boolean reviveEntry(TavRule *rule) noexcept {
    if (!rule->current->dead.load(std::memory_order_relaxed)) return TRUE;
    TavRuleEntry *fresh = ruleEntryCopy(rule->current);
    if (!fresh) return FALSE;
    ruleEntryRelease(std::exchange(rule->current, fresh));
    return TRUE;
}

// The rule leaves its set for good: nothing in it leads back.
void letGo(TavRule *rule) noexcept {
    rule->rules = nullptr;
    rule->inserted = FALSE;
}

// Lists what is published, with no lock held.
void listRules(TavRules *rules, const char *occasion) noexcept {
    TrContext *trCtx = rules->tav ? tavGetTrContext(rules->tav) : nullptr;
    if (!trContextLogEnabled(trCtx, rules->recCtrlInsert)) return;
    trContextDebug(trCtx, rules->recCtrlInsert, "tavRules: %s rules - %s\n", tavRulesGetTypeString(rules), occasion);
    TavRuleArray *array = rulesPin(rules);
    for (int i = 0; array && i < array->count; i++) {
        const TavRuleEntry *entry = array->entries()[i];
        if (entry->dead.load(std::memory_order_relaxed)) continue;
        if (entry->text && entry->text->errorString) {
            trContextDebug(trCtx, rules->recCtrlInsert, "tavRule: Rule %d: type=%s expr='%s' Error Message: %s, position=%d\n",
                           entry->order, entry->typeString, entry->expressionString, entry->text->errorString, entry->text->errorPosition);
        } else {
            trContextDebug(trCtx, rules->recCtrlInsert, "tavRule: Rule %d: type=%s expr='%s'\n", entry->order, entry->typeString,
                           entry->expressionString);
        }
    }
    ruleArrayRelease(array);
}

} // namespace

// ---- life ----

TavRules *tavRulesCreate(Language *language, Tav *tav) noexcept {
    auto *rules = tavNewRecord<TavRules>();
    if (!rules) return nullptr;
    tavLockInit(&rules->pinLock, TavLockRank::Leaf);
    rules->rules = tavListCreate(nullptr);
    rules->lock = tavLockCreateRanked(TavLockRank::Rules);
    if (!rules->rules || !rules->lock) {
        tavRulesFree(rules);
        return nullptr;
    }
    rules->language = language;
    rules->tav = tav;
    if (tav) {
        for (const RecordSlot &record : recordSlots) rules->*record.slot = trRecordGet(tavGetTrMgr(tav), record.path);
    }
    return rules;
}

void tavRulesFree(TavRules *rules) noexcept {
    if (!rules) return;
    if (rules->rules && rules->lock) tavRulesPurge(rules);
    tavListDestroy(rules->rules);
    tavLockDestroy(rules->lock);
    tavLockFini(&rules->pinLock);
    tavDestroyRecord(rules);
}

void tavRulesSetType(TavRules *rules, TavRulesType type) noexcept {
    if (rules) rules->type = type;
}

TavRulesType tavRulesGetType(const TavRules *rules) noexcept { return rules ? rules->type : TAVRULESTYPE_UNKNOWN; }

const char *tavRulesGetTypeString(const TavRules *rules) noexcept {
    if (!rules) return "UNKNOWN-NULL";
    switch (rules->type) {
        case TAVRULESTYPE_UNKNOWN:
            return "UNKNOWN";
        case TAVRULESTYPE_WEBROUTEWORKCLASS:
            return "WEBROUTEWORKCLASS";
        case TAVRULESTYPE_SFTRACESPEC:
            return "SFTRACESPEC";
    }
    return "UNKNOWN!";
}

Tav *tavRulesGetTav(const TavRules *rules) noexcept { return rules ? rules->tav : nullptr; }

void tavRulesSetTav(TavRules *rules, Tav *tav) noexcept {
    if (rules) rules->tav = tav;
}

Language *tavRulesGetLang(const TavRules *rules) noexcept { return rules ? rules->language : nullptr; }
void tavRulesLockObtain(TavRules *rules, const char *who) noexcept { tavLockObtain(rules->lock, who); }
void tavRulesLockRelease(TavRules *rules) noexcept { tavLockRelease(rules->lock); }
int tavRulesGetCount(const TavRules *rules) noexcept { return rules ? rules->ruleCount.load() : 0; }

TavRuleArray *rulesPin(TavRules *rules) noexcept {
    if (rules->ruleCount.load(std::memory_order_acquire) == 0) return nullptr;
    TavLockGuard guard(&rules->pinLock, "rulesPin");
    if (rules->published) rules->published->refCount.fetch_add(1, std::memory_order_relaxed);
    return rules->published;
}

// ---- changes ----

Boolean tavRulesInsertRule(TavRules *rules, TavRule *rule) noexcept {
    if (!rules || !rule || rule->inserted || !reviveEntry(rule)) return FALSE;
    {
        TavLockGuard guard(rules->lock, "tavRulesInsertRule");
        if (!insertAt(rules, findPlace(rules, rule->order), rule)) return FALSE;
    }
    listRules(rules, "after insertion");
    return TRUE;
}

TavRule *tavRulesRemoveRule(TavRules *rules, TavRule *rule) noexcept {
    if (!rules || !rule) return nullptr;
    {
        TavLockGuard guard(rules->lock, "tavRulesRemoveRule");
        if (!tavListFindAndRemove(rules->rules, rule)) return nullptr;
        unpublish(rules, rule->current);
        rules->ruleCount = tavListGetCount(rules->rules);
        letGo(rule);
    }
    listRules(rules, "after removal");
    return rule;
}

void tavRulesPurge(TavRules *rules) noexcept {
    if (!rules) return;
    TavList detached{};
    {
        TavLockGuard guard(rules->lock, "tavRulesPurge");
        std::swap(*rules->rules, detached);
        rules->outOfOrder = FALSE;
        rules->ruleCount = 0;
        replacePublished(rules, nullptr);
    }
    while (auto *rule = static_cast<TavRule *>(tavListRemoveHead(&detached))) {
        letGo(rule);
        tavRuleFree(rule);
    }
}

Boolean rulesPublishEntry(TavRules *rules, const TavRule *rule, TavRuleEntry *next) noexcept {
    TavLockGuard guard(rules->lock, "rulesPublishEntry");
    if (!splicePublished(rules, publishedIndexOf(rules, rule->current), 1, next)) return FALSE;
    if (next->order != rule->current->order) rules->outOfOrder = TRUE;
    return TRUE;
}
