#include "tavRule/tavAction.h"

#include <cstring>
#include <string_view>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavStringBuffer.h"

namespace {

struct ActionForm {
    std::string_view prefix;
    TavAction type;
    Boolean sticky;
};

constexpr ActionForm actionForms[] = {
    {"permit:", PERMIT, FALSE},
    {"permitsticky:", PERMIT, TRUE},
    {"reject:", REJECT, FALSE},
    {"redirect:", REDIRECT, FALSE},
};

// Fills in what follows the prefix; FALSE without memory.
Boolean setArgument(Action *action, const ActionForm &form, const char *argument) noexcept {
    switch (form.type) {
        case PERMIT:
            action->data.permit.sticky = form.sticky;
            action->data.permit.edition = tavStrdup(appNameToEditionName(argument));
            return action->data.permit.edition != nullptr;
        case REDIRECT:
            action->data.redirect.url = tavStrdup(argument);
            return action->data.redirect.url != nullptr;
        default:
            action->data.reject.errorCode = tavParseInt(argument);
            return TRUE;
    }
}

} // namespace

Boolean actionTryCreate(const char *text, Action **result) noexcept {
    *result = nullptr;
    for (const ActionForm &form : actionForms) {
        if (!tavView(text).starts_with(form.prefix)) continue;
        auto *action = static_cast<Action *>(tavMalloc(sizeof(Action)));
        if (!action) return FALSE;
        action->type = form.type;
        if (!setArgument(action, form, text + form.prefix.size())) {
            actionDelete(action);
            return FALSE;
        }
        *result = action;
        return TRUE;
    }
    return TRUE;
}

Action *actionCreate(const char *text) noexcept {
    Action *action;
    actionTryCreate(text, &action);
    return action;
}

void actionDelete(Action *action) noexcept {
    if (!action) return;
    if (action->type == PERMIT) tavFree(action->data.permit.edition);
    if (action->type == REDIRECT) tavFree(action->data.redirect.url);
    tavFree(action);
}

TavAction actionGetType(const Action *action) noexcept { return action ? action->type : NONE; }

const char *actionGetEdition(const Action *action) noexcept {
    return actionGetType(action) == PERMIT ? action->data.permit.edition : nullptr;
}

Boolean actionGetPermitSticky(const Action *action) noexcept {
    return actionGetType(action) == PERMIT ? action->data.permit.sticky : FALSE;
}

const char *actionGetRedirectUrl(const Action *action) noexcept {
    return actionGetType(action) == REDIRECT ? action->data.redirect.url : nullptr;
}

int actionGetRejectErrorCode(const Action *action) noexcept { return actionGetType(action) == REJECT ? action->data.reject.errorCode : 0; }

static void describe(const Action *action, TavStringBuffer *sb) noexcept {
    switch (actionGetType(action)) {
        case PERMIT:
            sbAdd(sb, *actionGetEdition(action) ? "permit edition " : "permit the base edition");
            sbAdd(sb, actionGetEdition(action));
            return sbAdd(sb, actionGetPermitSticky(action) ? ", sticky" : "");
        case REJECT:
            sbAdd(sb, "reject with ");
            return sbAddInt(sb, actionGetRejectErrorCode(action));
        case REDIRECT:
            sbAdd(sb, "redirect to ");
            return sbAdd(sb, actionGetRedirectUrl(action));
        default:
            return sbAdd(sb, "no action");
    }
}

char *actionDescribe(const Action *action) noexcept {
    TavStringBufferPtr sb(sbCreate(64));
    describe(action, sb.get());
    return sb && !sb->failed ? tavStrdup(sbStr(sb.get())) : nullptr;
}

const char *appNameToEditionName(const char *name) noexcept {
    static constexpr std::string_view marker = "-edition";
    const char *found = name ? std::strstr(name, marker.data()) : nullptr;
    return found ? found + marker.size() : "";
}
