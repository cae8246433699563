// What a routing rule does with a request: permit to an edition, reject with a status, or redirect. Built from the rule's action text and
// not changed afterwards, so any thread may read one that it holds through a match.
#ifndef TAVRULE_TAVACTION_H
#define TAVRULE_TAVACTION_H

#include <tav/types.h>

typedef struct _Action {
    TavAction type;
    union {
        struct {
            char *edition; // owned; "" is the base edition
            Boolean sticky;
        } permit;
        struct {
            int errorCode;
        } reject;
        struct {
            char *url; // owned
        } redirect;
    } data;
} Action;

// "permit:" or "permitsticky:" and an application name, "reject:" and a number, "redirect:" and a URL (prefixes compared exactly).
// Returns new (actionDelete); null for any other text, for null and without memory.
Action *actionCreate(const char *text) noexcept;
// The same where "no action" and "no memory" must be told apart: FALSE only without memory; `*action` is new or null.
Boolean actionTryCreate(const char *text, Action **action) noexcept;
void actionDelete(Action *action) noexcept; // null ignored

TavAction actionGetType(const Action *action) noexcept;          // NONE for null
const char *actionGetEdition(const Action *action) noexcept;     // returns borrowed; null when it is no permit
Boolean actionGetPermitSticky(const Action *action) noexcept;    // FALSE when it is no permit
const char *actionGetRedirectUrl(const Action *action) noexcept; // returns borrowed; null when it is no redirect
int actionGetRejectErrorCode(const Action *action) noexcept;     // 0 when it is no reject

// In words: "permit edition 2.0, sticky", "permit the base edition", "reject with 403", "redirect to URL", "no action" for null. Returns
// new, null without memory.
char *actionDescribe(const Action *action) noexcept;

// The edition in an application name: what follows its first "-edition", "" when it has none. Returns borrowed (from `name`).
const char *appNameToEditionName(const char *name) noexcept;

#endif
