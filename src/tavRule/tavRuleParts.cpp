#include "tavRule/tavRuleParts.h"

#include <algorithm>
#include <new>

#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

template <typename T>
T *retain(T *counted) noexcept {
    if (counted) counted->refCount.fetch_add(1, std::memory_order_relaxed);
    return counted;
}

// TRUE when that was the last count: what other threads did with it is visible from here on.
template <typename T>
bool releaseIsLast(T *counted) noexcept {
    return counted && counted->refCount.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

void releaseObject(TavRuleType type, void *object) noexcept {
    switch (type) {
        case TAVRULETYPE_WEBROUTEWORKCLASS:
            actionDelete(static_cast<Action *>(object));
            break;
        case TAVRULETYPE_REQUESTTRACE:
        case TAVRULETYPE_CONTROLTRACE:
            if (object) trSpecRefRelease(static_cast<TrSpec *>(object));
            break;
        default:
            break;
    }
}

bool isTraceType(TavRuleType type) noexcept { return type == TAVRULETYPE_REQUESTTRACE || type == TAVRULETYPE_CONTROLTRACE; }

} // namespace

// ---- texts and payloads ----

TavRuleText *ruleTextRetain(TavRuleText *text) noexcept { return retain(text); }

TavRulePayload *rulePayloadCreate(TavRuleType type, void *object) noexcept {
    auto *payload = tavNewRecord<TavRulePayload>();
    if (!payload) return nullptr;
    payload->refCount = 1;
    payload->type = type;
    payload->object = object;
    return payload;
}

TavRulePayload *rulePayloadRetain(TavRulePayload *payload) noexcept { return retain(payload); }

void rulePayloadRelease(TavRulePayload *payload) noexcept {
    if (!releaseIsLast(payload)) return;
    releaseObject(payload->type, payload->object);
    tavDestroyRecord(payload);
}

// ---- entries ----

TavRuleEntry *ruleEntryCreate(TavRule *rule) noexcept {
    auto *entry = tavNewRecord<TavRuleEntry>();
    if (!entry) return nullptr;
    entry->order = TAVRULE_DEFAULT_ORDER;
    entry->typeString = ruleTypeToString(TAVRULETYPE_UNKNOWN);
    entry->expressionString = "";
    entry->rule = rule;
    entry->refCount = 1;
    return entry;
}

TavRuleEntry *ruleEntryCopy(const TavRuleEntry *entry) noexcept {
    TavRuleEntry *copy = ruleEntryCreate(entry->rule);
    if (!copy) return nullptr;
    copy->order = entry->order;
    copy->typeString = entry->typeString;
    copy->expressionString = entry->expressionString;
    copy->expr = entry->expr;
    copy->action = entry->action;
    copy->spec = entry->spec;
    copy->application = entry->application;
    copy->text = retain(entry->text);
    copy->payload = retain(entry->payload);
    return copy;
}

void ruleEntrySetText(TavRuleEntry *entry, TavRuleText *text) noexcept {
    ruleTextRelease(entry->text);
    entry->text = retain(text);
    entry->expr = text ? text->expr : nullptr;
    entry->expressionString = text && text->expressionString ? text->expressionString : "";
}

void ruleEntrySetPayload(TavRuleEntry *entry, TavRulePayload *payload, TavRuleType type) noexcept {
    retain(payload);
    rulePayloadRelease(entry->payload);
    entry->payload = payload;
    void *object = payload ? payload->object : nullptr;
    entry->typeString = ruleTypeToString(type);
    entry->action = type == TAVRULETYPE_WEBROUTEWORKCLASS ? static_cast<const Action *>(object) : nullptr;
    entry->spec = isTraceType(type) ? static_cast<TrSpec *>(object) : nullptr;
}

TavRuleEntry *ruleEntryRetain(TavRuleEntry *entry) noexcept { return retain(entry); }

void ruleEntryRelease(TavRuleEntry *entry) noexcept {
    if (!releaseIsLast(entry)) return;
    ruleTextRelease(entry->text);
    rulePayloadRelease(entry->payload);
    tavDestroyRecord(entry);
}

// ---- arrays ----

int _TavRuleArray::indexOf(const TavRuleEntry *entry) noexcept {
    return static_cast<int>(std::find(entries(), entries() + count, entry) - entries());
}

TavRuleArray *ruleArraySpliced(TavRuleArray *old, int index, int removed, TavRuleEntry *added) noexcept {
    int oldCount = old ? old->count : 0;
    int capacity = std::max(4, oldCount + oldCount / 2 + 1);
    void *memory = tavMalloc(sizeof(TavRuleArray) + static_cast<size_t>(capacity) * sizeof(TavRuleEntry *));
    if (!memory) return nullptr;
    auto *array = new (memory) TavRuleArray{1, 0, capacity, FALSE, nullptr};
    auto append = [array](TavRuleEntry *entry) { array->entries()[array->count++] = retain(entry); };
    for (int i = 0; i <= oldCount; i++) {
        if (i == index && added) append(added);
        if (i == oldCount || (i >= index && i < index + removed)) continue;
        if (!old->entries()[i]->dead.load(std::memory_order_relaxed)) append(old->entries()[i]);
    }
    return array;
}

Boolean ruleArraySplice(TavRuleArray *array, int index, int removed, TavRuleEntry *added) noexcept {
    int grow = (added ? 1 : 0) - removed;
    if (array->count + grow > array->capacity) return FALSE;
    conditionProgramFree(array->program.exchange(nullptr, std::memory_order_relaxed));
    TavRuleEntry **at = array->entries() + index;
    TavRuleEntry **end = array->entries() + array->count;
    retain(added);
    for (int i = 0; i < removed; i++) ruleEntryRelease(at[i]);
    if (grow > 0) std::move_backward(at, end, end + grow);
    if (grow < 0) std::move(at - grow, end, at);
    if (added) *at = added;
    array->count += grow;
    return TRUE;
}

static ConditionProgram *compile(TavRuleArray *array) noexcept {
    std::unique_ptr<Expression *[], TavFreer> exprs(
        static_cast<Expression **>(tavMalloc(static_cast<size_t>(array->count) * sizeof(Expression *))));
    if (!exprs) return nullptr;
    for (int i = 0; i < array->count; i++) exprs[i] = array->entries()[i]->expr;
    return conditionProgramCreate(exprs.get(), array->count);
}

const ConditionProgram *ruleArrayProgram(TavRuleArray *array) noexcept {
    ConditionProgram *program = array->program.load(std::memory_order_acquire);
    if (program) return program;
    ConditionProgram *made = compile(array);
    // Of several threads that compiled it one wins; all use its program.
    if (made && array->program.compare_exchange_strong(program, made, std::memory_order_acq_rel)) return made;
    conditionProgramFree(made);
    return program;
}

void ruleArrayRelease(TavRuleArray *array) noexcept {
    if (!releaseIsLast(array)) return;
    conditionProgramFree(array->program.load(std::memory_order_relaxed));
    for (int i = 0; i < array->count; i++) ruleEntryRelease(array->entries()[i]);
    tavDestroyRecord(array);
}
