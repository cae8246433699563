// The counted pieces behind rules: what a text parsed to, a payload, an entry of both, an array of entries. All are immutable once others
// can see them; the last release frees, on whatever thread.
#ifndef TAVRULE_TAVRULEPARTS_H
#define TAVRULE_TAVRULEPARTS_H

#include <atomic>

#include "tavLanguage/conditionProgram.h"
#include "tavRule/tavRule.h"

struct _TavRuleText {
    std::atomic<int> refCount;
    char *expressionString; // null for a null text
    Expression *expr;       // null: in error
    char *errorString;
    int errorPosition;
    char *errorPositionIndicatorString;
};

// Parses `text` for the set; `order` is for the log. Returns new with one count; null without memory.
TavRuleText *ruleTextCreate(const TavRules *rules, int order, const char *text) noexcept;
TavRuleText *ruleTextRetain(TavRuleText *text) noexcept;
void ruleTextRelease(TavRuleText *text) noexcept; // null ignored

struct _TavRulePayload {
    std::atomic<int> refCount;
    std::atomic<TavRuleType> type; // says how the object is released
    void *object;                  // owned if the type has payloads
};

TavRulePayload *rulePayloadCreate(TavRuleType type, void *object) noexcept;
TavRulePayload *rulePayloadRetain(TavRulePayload *payload) noexcept;
void rulePayloadRelease(TavRulePayload *payload) noexcept; // null ignored

TavRuleEntry *ruleEntryCreate(TavRule *rule) noexcept; // of an empty rule; one count
// A changeable copy with one count; it counts text and payload as its own.
TavRuleEntry *ruleEntryCopy(const TavRuleEntry *entry) noexcept;
// Replace a part of a changeable entry (adds a count for it; null clears).
void ruleEntrySetText(TavRuleEntry *entry, TavRuleText *text) noexcept;
void ruleEntrySetPayload(TavRuleEntry *entry, TavRulePayload *payload, TavRuleType type) noexcept;
TavRuleEntry *ruleEntryRetain(TavRuleEntry *entry) noexcept;
void ruleEntryRelease(TavRuleEntry *entry) noexcept; // null ignored

struct alignas(TavRuleEntry *) _TavRuleArray {
    std::atomic<int> refCount;
    int count;
    int capacity;
    std::atomic<Boolean> hasDead; // a removed entry could not be taken out
    // Its expressions compiled, by the first request that needs it; owned; dies with a change of the array.
    std::atomic<ConditionProgram *> program;

    TavRuleEntry **entries() noexcept { return reinterpret_cast<TavRuleEntry **>(this + 1); }
    int indexOf(const TavRuleEntry *entry) noexcept; // `count` when absent
    // Is the holder of the only count free to change it?
    bool isUnshared() const noexcept { return refCount.load(std::memory_order_acquire) == 1; }
};

// A copy with one count and room to grow, in which `added` (may be null) stands at `index` in place of `removed` entries. `old` may be
// null.
TavRuleArray *ruleArraySpliced(TavRuleArray *old, int index, int removed, TavRuleEntry *added) noexcept;
// The same in place. FALSE when there is no room. The array must be unshared and free of dead entries.
Boolean ruleArraySplice(TavRuleArray *array, int index, int removed, TavRuleEntry *added) noexcept;
// The array's program, made now if it must be. Returns borrowed, for as long as the array is pinned; null without memory.
const ConditionProgram *ruleArrayProgram(TavRuleArray *array) noexcept;
void ruleArrayRelease(TavRuleArray *array) noexcept; // null ignored

// ---- between rule and set ----
// Puts `next` in the place of the rule's current entry. Takes the set's lock. FALSE: no memory, nothing has changed.
Boolean rulesPublishEntry(TavRules *rules, const TavRule *rule, TavRuleEntry *next) noexcept;

// The published array with one more count, or null while the set is empty. Any thread; takes the pin lock.
TavRuleArray *rulesPin(TavRules *rules) noexcept;

const char *ruleTypeToString(TavRuleType type) noexcept;

#endif
