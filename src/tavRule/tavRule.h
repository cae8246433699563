// Rules (an expression with a payload) and ordered rule sets.
//
// A set is changed by the configuration while requests are matched against it. Requests never see the list: they pin an immutable array of
// immutable entries. A change to an inserted rule makes a new entry and publishes it in place of the old one; the old entry, its expression
// and its payload go when the last pin goes. Every change that finds no memory leaves the rule and the set as they were.
//
//   TavRuleMatch match = tavRulesMatch(trCtx, rules, ctx);      // request side; the destructor unpins
//   if (const TavRuleEntry *entry = match.entry()) use(entry->action);
//
//   TavRule *rule = tavRuleCreate(rules);                       // configuration side
//   tavRuleSetType(rule, ...); tavRuleSetExpr(rule, text); tavRuleSetObject(rule, payload);
//   if (!tavRulesInsertRule(rules, rule)) tavRuleFree(rule);    // an inserted rule belongs to its set
//
// The configuration side is used by one thread at a time per set; the request side by any number of threads.
#ifndef TAVRULE_TAVRULE_H
#define TAVRULE_TAVRULE_H

#include <atomic>

#include <tav/types.h>

#include "tavInstance/tavInstance.h"
#include "tavList/tavList.h"
#include "tavLock/tavLock.h"
#include "tavRule/tavAction.h"

typedef struct _Expression Expression;
typedef struct _Application Application;
typedef struct _TavRule TavRule;
typedef struct _TavRuleText TavRuleText;
typedef struct _TavRulePayload TavRulePayload;
typedef struct _TavRuleArray TavRuleArray;

typedef enum TavRuleType {
    TAVRULETYPE_UNKNOWN = 0,
    TAVRULETYPE_WEBROUTEWORKCLASS = 1, // the payload is an Action
    TAVRULETYPE_REQUESTTRACE = 2,      // the payload is a TrSpec with a reference of its own
    TAVRULETYPE_CONTROLTRACE = 3,      // likewise
    TAVRULETYPE_HEALTHPOLICY = 4
} TavRuleType;

typedef enum TavRulesType { TAVRULESTYPE_UNKNOWN = 0, TAVRULESTYPE_WEBROUTEWORKCLASS = 1, TAVRULESTYPE_SFTRACESPEC = 2 } TavRulesType;

typedef enum TavRuleParentWrapperType {
    TAVRULEPARENTTYPE_UNKNOWN = 0,
    TAVRULEPARENTTYPE_WEBROUTEWORKCLASS = 1,
    TAVRULEPARENTTYPE_SFTRACESPEC = 2
} TavRuleParentWrapperType;

// The order of a rule that was given none: behind all others.
inline constexpr int TAVRULE_DEFAULT_ORDER = 999800;

// Tells a rule's creator which kind of parent it has.
typedef struct _TavRuleParentWrapper {
    TavRuleParentWrapperType type;
    void *object; // borrowed
} TavRuleParentWrapper;

TavRuleParentWrapper *tavRuleParentWrapperCreate(void *object, TavRuleParentWrapperType type) noexcept; // returns new, null without memory
TavRuleParentWrapperType tavRuleParentWrapperGetType(const TavRuleParentWrapper *wrapper) noexcept;     // UNKNOWN for null
void *tavRuleParentWrapperGetObject(const TavRuleParentWrapper *wrapper) noexcept;                      // null for null
void *tavRuleParentWrapperDestroy(TavRuleParentWrapper *wrapper) noexcept; // frees the wrapper only; returns its object

// One rule as requests see it. Immutable; everything in it lives as long as the entry.
typedef struct TavRuleEntry {
    int order;
    const char *typeString;
    const char *expressionString; // "" for a rule without one
    Expression *expr;             // null: never matches
    const Action *action;         // null when the rule has no payload or another kind of it
    TrSpec *spec;                 // likewise; take a reference of your own to keep it
    Application *application;     // of the rule's snapshot; may be null
    TavRule *rule;                // tells rules apart; its fields are for the configuration side only
    // private
    std::atomic<int> refCount;
    std::atomic<bool> dead;  // removed, but still in an array that could not be replaced
    TavRuleText *text;       // counted; null before the first tavRuleSetExpr
    TavRulePayload *payload; // counted; null without
} TavRuleEntry;

// A rule: the handle that stays the same while its entries are replaced. The documented fields mirror its current entry.
struct _TavRule {
    TavRules *rules;  // borrowed; null once the set let go of it
    Expression *expr; // borrowed from the text; null when it did not parse
    const char *errorString;
    int errorPosition; // -1: no error
    const char *errorPositionIndicatorString;
    void *object;
    Application *application;
    const char *expressionString;
    int order;
    TavRuleType ruleType;
    // private
    TavRuleEntry *current; // counted
    Boolean inserted;
};

struct _TavRules {
    TavList *rules TAV_PT_GUARDED_BY(lock); // of TavRule, owned, in order
    TavLock *lock;                          // rank Rules
    Language *language;                     // borrowed
    Tav *tav;                               // borrowed
    TavRulesType type;
    TrRecord *recReqMatch;
    TrRecord *recReqProcess;
    TrRecord *recCtrlParseError;
    TrRecord *recCtrlParseProcess;
    TrRecord *recCtrlInsert;
    TrRecord *recCtrlList;
    TrRecord *recCtrlProcess;
    // private
    std::atomic<int> ruleCount;                         // 0: requests pin nothing. This and the next two lie side by side for them
    TavRuleArray *published TAV_PT_GUARDED_BY(pinLock); // one count is the set's
    TavLock pinLock;                                    // leaf: reading `published` together with counting a pin
    Boolean outOfOrder TAV_GUARDED_BY(lock);            // an inserted rule's order was changed: the list may be unsorted
};

// ---- rule sets ----
// Borrows both. A null instance: no trace records. Returns new (tavRulesFree); null without memory.
TavRules *tavRulesCreate(Language *language, Tav *tav) noexcept;
// Frees the rules that it still holds; null ignored. Matches that are still pinned stay valid. Takes the set's lock.
void tavRulesFree(TavRules *rules) noexcept;
void tavRulesSetType(TavRules *rules, TavRulesType type) noexcept;
TavRulesType tavRulesGetType(const TavRules *rules) noexcept;
// "UNKNOWN", "WEBROUTEWORKCLASS", "SFTRACESPEC", "UNKNOWN!" for any other, "UNKNOWN-NULL" for null.
const char *tavRulesGetTypeString(const TavRules *rules) noexcept;
Tav *tavRulesGetTav(const TavRules *rules) noexcept;
void tavRulesSetTav(TavRules *rules, Tav *tav) noexcept;
Language *tavRulesGetLang(const TavRules *rules) noexcept;
void tavRulesLockObtain(TavRules *rules, const char *who) noexcept TAV_ACQUIRES(rules->lock);
void tavRulesLockRelease(TavRules *rules) noexcept TAV_RELEASES(rules->lock);

// Before the first rule whose order is strictly greater, else at the end. Takes the rule over; takes the set's lock. FALSE (the rule stays
// the caller's): null argument, the rule is in a set already, or no memory.
Boolean tavRulesInsertRule(TavRules *rules, TavRule *rule) noexcept;
// Hands the rule back to the caller; null when it is not in the set. Takes the set's lock.
TavRule *tavRulesRemoveRule(TavRules *rules, TavRule *rule) noexcept;
// Removes and frees every rule. Takes the set's lock.
void tavRulesPurge(TavRules *rules) noexcept;
int tavRulesGetCount(const TavRules *rules) noexcept; // any thread

// ---- matching (request side) ----
// Holds what a request matched. Move-only; unpins when destroyed. Valid after the set is gone.
class TavRuleMatch {
public:
    TavRuleMatch() noexcept = default;
    TavRuleMatch(TavRuleMatch &&other) noexcept : array_(other.array_), entry_(other.entry_) { other.forget(); }
    TavRuleMatch &operator=(TavRuleMatch &&other) noexcept;
    TavRuleMatch(const TavRuleMatch &) = delete;
    TavRuleMatch &operator=(const TavRuleMatch &) = delete;
    ~TavRuleMatch() noexcept { reset(); }

    // The first rule whose expression holds; null: none. Borrowed from this object.
    const TavRuleEntry *entry() const noexcept { return entry_; }
    void reset() noexcept {
        if (array_) unpin();
    }
    // Where the next match of the set will look: array, program, entry and action. To ask for cache lines, never to be followed.
    inline static constexpr int PLACES = 4;
    void places(const void *(&addresses)[PLACES]) const noexcept;

private:
    friend TavRuleMatch tavRulesMatch(TrContext *trCtx, TavRules *rules, TavHttpContext *ctx) noexcept;
    TavRuleMatch(TavRuleArray *array, const TavRuleEntry *entry) noexcept : array_(array), entry_(entry) {}
    void unpin() noexcept;
    void forget() noexcept {
        array_ = nullptr;
        entry_ = nullptr;
    }
    TavRuleArray *array_ = nullptr;
    const TavRuleEntry *entry_ = nullptr;
};

// Walks the rules in order and stops at the first whose value is not zero. The set's lock is not taken and may be held.
TavRuleMatch tavRulesMatch(TrContext *trCtx, TavRules *rules, TavHttpContext *ctx) noexcept;
// The same, without a pin. Returns borrowed: good only while the configuration cannot change the set.
TavRule *tavRulesFindMatchingRule(TrContext *trCtx, TavRules *rules, TavHttpContext *ctx) noexcept;
// Calls fn for every rule of the set, in order, as requests see it at this moment. `error` says why the expression does not parse; null: it
// does. Any thread; no lock is held during the calls.
typedef void (*TavRuleFcn)(const TavRuleEntry *entry, const char *error, void *passback);
void tavRulesForEach(TavRules *rules, TavRuleFcn fn, void *passback) noexcept;
// 1 when the rule's expression holds, else 0. Configuration side.
int tavRuleMatches(TrContext *trCtx, const TavRule *rule, TavHttpContext *ctx) noexcept;

// ---- rules (configuration side) ----
// An empty rule of the set, not inserted. Returns new (tavRuleFree, or tavRulesInsertRule takes it); null without memory.
TavRule *tavRuleCreate(TavRules *rules) noexcept;
// Takes the rule out of its set (with the set's lock) and frees it; null ignored.
void tavRuleFree(TavRule *rule) noexcept;

// Setters. On an inserted rule they take the set's lock and publish. FALSE: no memory (or null rule), nothing has changed.
Boolean tavRuleSetOrder(TavRule *rule, int order) noexcept; // an inserted rule keeps its place
// Give a rule its type before its payload: the type says how the payload is released.
Boolean tavRuleSetType(TavRule *rule, TavRuleType type) noexcept;
// Takes the payload over when TRUE (the previous one is released once no request uses it). A payload of a type without one is borrowed.
Boolean tavRuleSetObject(TavRule *rule, void *object) noexcept;
Boolean tavRuleSetApplication(TavRule *rule, Application *application) noexcept; // borrows
// Parses the text with the set's language. TRUE also for a text in error: the rule then has the error and never matches.
Boolean tavRuleSetExpr(TavRule *rule, const char *text) noexcept;

int tavRuleGetOrder(const TavRule *rule) noexcept;
TavRuleType tavRuleGetType(const TavRule *rule) noexcept;
// "UNKNOWN", "WEBROUTEWORKCLASS", "REQUESTTRACE", "CONTROLTRACE", "UNKNOWN!" for any other, "UNKNOWN-NULL" for null.
const char *tavRuleGetTypeString(const TavRule *rule) noexcept;
// Returned borrowed until the next set of the same field.
void *tavRuleGetObject(const TavRule *rule) noexcept;
Application *tavRuleGetApplication(const TavRule *rule) noexcept;
TavRules *tavRuleGetRules(const TavRule *rule) noexcept;
Expression *tavRuleGetExpr(const TavRule *rule) noexcept;
Boolean tavRuleIsError(const TavRule *rule) noexcept; // TRUE for null
const char *tavRuleGetError(const TavRule *rule) noexcept;
int tavRuleGetErrorPosition(const TavRule *rule) noexcept;
const char *tavRuleGetErrorPositionIndicatorString(const TavRule *rule) noexcept;

// The order that a rule's configured name (its last path component) stands for: its leading decimal number; TAVRULE_DEFAULT_ORDER for
// "default", for a name that begins with no digit and for null.
int ruleNameToSortOrder(const char *name) noexcept;

#endif
