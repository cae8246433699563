// Mapping one request: host, port and path lead to a web module; the rules of its application choose the edition that serves it.
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "tavRequestMapper/tavHttpContextForMapper.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

constexpr int NOT_MAPPED = 0;
constexpr int MAPPED = 1;
constexpr int FAILED_INPUT = -1;

int reject(TavHttpContext *ctx, int errorCode, const char *text, int result) noexcept {
    tavHttpContextSetReject(ctx, errorCode, text);
    return result;
}

int rejectNoMemory(TavHttpContext *ctx) noexcept { return reject(ctx, 500, "no memory", FAILED_INPUT); }

// ---- editions ----

enum class Verdict { Permitted, Decided, NoMemory };

Verdict verdictOf(Boolean stored, Verdict verdict) noexcept { return stored ? verdict : Verdict::NoMemory; }

Verdict rejectWith(TavHttpContext *ctx, int errorCode, const char *text) noexcept {
    tavHttpContextSetReject(ctx, errorCode, text); // without memory for the text the rejection stands
    return Verdict::Decided;
}

Verdict applyAction(const Action *action, TavHttpContext *ctx) noexcept {
    if (!action) return rejectWith(ctx, 500, "no edition routing rule action found; Error Status Code=500");
    switch (actionGetType(action)) {
        case REDIRECT:
            return verdictOf(tavHttpContextSetRedirect(ctx, actionGetRedirectUrl(action)), Verdict::Decided);
        case PERMIT:
            return verdictOf(tavHttpContextSetPermit(ctx, actionGetEdition(action), actionGetPermitSticky(action)), Verdict::Permitted);
        case REJECT:
            return rejectWith(ctx, actionGetRejectErrorCode(action), "matched reject edition routing rule");
        default:
            return rejectWith(ctx, 500, "invalid edition routing rule action; Error Status Code=500");
    }
}

// Keeps for the next request of the module where this one found its rules.
void rememberPlaces(WebModule *webModule, const TavRules *rules, const TavRuleMatch &match) noexcept {
    const void *places[TavRuleMatch::PLACES];
    match.places(places);
    const auto remember = [webModule](size_t i, const void *place) {
        std::atomic<const void *> &kept = webModule->rulePlaces[i];
        if (kept.load(std::memory_order_relaxed) != place) kept.store(place, std::memory_order_relaxed);
    };
    remember(0, rules);
    for (size_t i = 0; i < TavRuleMatch::PLACES; ++i) remember(i + 1, places[i]);
}

// `webModule` (may be null) is the module that was matched.
Verdict evaluateEdition(Application *application, WebModule *webModule, TavHttpContext *ctx) noexcept {
    WebRouteWorkClass *workClass = application->defaultWebRouteWorkClass;
    if (!workClass) return verdictOf(tavHttpContextSetPermit(ctx, application->edition, FALSE), Verdict::Permitted);
    TavRuleMatch match = tavRulesMatch(tavHttpContextGetTrContext(ctx), workClass->rules, ctx);
    if (webModule) rememberPlaces(webModule, workClass->rules, match);
    if (!match.entry()) return rejectWith(ctx, 500, "no edition routing rule match found; Error Status Code=500");
    const Action *action = match.entry()->action;
    tavHttpContextSetRuleMatch(ctx, std::move(match)); // from here on the context's pin keeps the action
    return applyAction(action, ctx);
}

WebModule *findModuleByContextRoot(const Application *application, std::string_view path) noexcept {
    for (WebModule *webModule : TavListRange<WebModule>(application->webModules)) {
        if (path.starts_with(tavView(webModule->contextRoot))) return webModule;
    }
    return nullptr;
}

// ---- input ----

// A copy of a text of the host, which may reuse its buffer when a rule asks for the same text again. Short ones need no memory.
class HostText {
public:
    explicit HostText(const char *text) noexcept {
        if (!text) return;
        size_t length = strlen(text);
        if (length < sizeof inline_) {
            text_ = static_cast<char *>(memcpy(inline_, text, length + 1));
        } else {
            heap_.reset(tavStrdup(text));
            text_ = heap_.get();
            lost_ = !text_;
        }
    }
    HostText(const HostText &) = delete;
    HostText &operator=(const HostText &) = delete;
    char *get() noexcept { return text_; }
    bool lost() const noexcept { return lost_; }

private:
    char inline_[256];
    TavText heap_;
    char *text_ = nullptr;
    bool lost_ = false;
};

struct RequestInput {
    HostText host;
    int port;
    HostText path;

    RequestInput(const EnvCallBacks *env, EnvHttpContext *envCtx) noexcept
        : host(env->http.request.getVirtualHost(envCtx)),
          port(env->http.request.getVirtualPort(envCtx)),
          path(env->http.request.getPath(envCtx)) {}
};

size_t pathOnlyLength(const char *path) noexcept { return strcspn(path, "?;"); }

// Matches the path up to its query or parameters, by ending it there for the time of the call.
WebModule *matchPathOnly(const RequestMapper *rm, TavHttpContext *ctx, RequestInput &input) noexcept {
    char *path = input.path.get();
    char &end = path[pathOnlyLength(path)];
    char saved = end;
    end = '\0';
    WebModule *webModule = matchLongestURI(rm->matcher, ctx, input.host.get(), input.port, path);
    end = saved;
    return webModule;
}

// ---- steps ----

// Keeps `*webModule` or replaces it by the one of the permitted edition. MAPPED when there is one.
int chooseEdition(TavHttpContext *ctx, const char *path, WebModule **webModule) noexcept {
    Application *application = wmGetApplication(*webModule);
    const char *edition = tavHttpContextGetEditionName(ctx);
    if (tavStrEquals(edition, application->edition)) return MAPPED;
    Application *other = getApplicationByEdition(application->root, edition);
    if (!other) return reject(ctx, 500, "edition of application indicated by routing rule was not found", NOT_MAPPED);
    *webModule = findModuleByContextRoot(other, path);
    return *webModule ? MAPPED : NOT_MAPPED; // not mapped without a rejection: the outcome of the rule stands
}

Boolean storeMapping(TavHttpContext *ctx, WebModule *webModule) noexcept {
    const Application *application = wmGetApplication(webModule);
    const bool stored = tavHttpContextSetApplicationName(ctx, application->simpleName) &&
                        tavHttpContextSetEditionName(ctx, application->edition) && tavHttpContextSetModuleName(ctx, webModule->name) &&
                        tavHttpContextSetContextRoot(ctx, webModule->contextRoot);
    if (stored) tavHttpContextSetModuleHint(ctx, &webModule->hint);
    return stored;
}

// Asks for the cache lines that the rest of the mapping and the selection need: with a thousand applications they are far away, and the
// rules take a while.
void prefetchModule(const WebModule *webModule) noexcept {
    // Following the pointers from the module to a rule's steps would be one wait after the other.
    constexpr size_t lines[] = {3, 1, 5, 1, 1}; // of the set, its array, its program, the entry, its action
    for (size_t i = 0; i < std::size(lines); ++i) {
        const auto place = reinterpret_cast<uintptr_t>(webModule->rulePlaces[i].load(std::memory_order_relaxed));
        for (size_t line = 0; line < lines[i]; ++line) __builtin_prefetch(reinterpret_cast<const void *>(place + line * 64));
    }
    const Application *application = wmGetApplication(webModule);
    const void *virtualCluster = webModule->hint.virtualCluster.load(std::memory_order_relaxed);
    for (const void *memory :
         {static_cast<const void *>(webModule->name), static_cast<const void *>(webModule->contextRoot),
          static_cast<const void *>(application->simpleName), static_cast<const void *>(application->edition), virtualCluster})
        __builtin_prefetch(memory);
}

int mapInput(RequestMapper *rm, TavHttpContext *ctx, RequestInput &input) noexcept {
    WebModule *webModule = matchPathOnly(rm, ctx, input);
    if (!webModule) return reject(ctx, 404, "no mapping found", NOT_MAPPED);
    prefetchModule(webModule);
    TrContext *trCtx = tavHttpContextGetTrContext(ctx);
    switch (evaluateEdition(wmGetApplication(webModule), webModule, ctx)) {
        case Verdict::NoMemory:
            return rejectNoMemory(ctx);
        case Verdict::Decided:
            TR_DEBUG(trCtx, rm->debugReq, "null edition name");
            return MAPPED;
        case Verdict::Permitted:
            break;
    }
    int result = chooseEdition(ctx, input.path.get(), &webModule);
    if (result != MAPPED) return result;
    if (!storeMapping(ctx, webModule)) return rejectNoMemory(ctx);
    TR_TRACE(trCtx, rm->debugReq, TR_INFO, "mapped request %s:%d/%s to web module %s\n", input.host.get(), input.port, input.path.get(),
             webModule->name);
    return MAPPED;
}

} // namespace

char *pathOnly(const char *path) noexcept { return path ? tavStrndup(path, pathOnlyLength(path)) : nullptr; }

const char *evaluateAppEditionRoutingRules(Application *application, TavHttpContext *ctx) noexcept {
    if (!application || !ctx) return nullptr;
    switch (evaluateEdition(application, nullptr, ctx)) {
        case Verdict::Permitted:
            return tavHttpContextGetEditionName(ctx);
        case Verdict::NoMemory:
            rejectNoMemory(ctx);
            break;
        case Verdict::Decided:
            break;
    }
    return nullptr;
}

int rmMapRequest(RequestMapper *rm, TavHttpContext *ctx) noexcept {
    Tav *tav = ctx ? tavHttpContextGetTav(ctx) : nullptr;
    if (!rm || !tav) return FAILED_INPUT;
    RequestInput input(tavGetEnvCallBacks(tav), tavHttpContextGetEnvContext(ctx));
    if (input.host.lost() || input.path.lost()) return rejectNoMemory(ctx);
    if (!input.host.get()) return reject(ctx, 500, "null host", FAILED_INPUT);
    if (!input.path.get()) return reject(ctx, 500, "null path", FAILED_INPUT);
    return mapInput(rm, ctx, input);
}
