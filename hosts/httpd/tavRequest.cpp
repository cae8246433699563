// A request and its decision, from translation to logging.
//
// The mapping is asked for when the name is translated, because a request of an application must not reach the file system. Rules can ask
// for the user, who is known only after authentication: then the request is decided once more.
#include <apr_lib.h>
#include <strings.h>

#include <cstring>
#include <new>

#include "DecisionJson.h"
#include "tavModule.h"

void EnvHttpContext::report(TavHttpContextState state, const char *msg) { tavHttpContextSetState(ctx, state, 0, const_cast<char *>(msg)); }

namespace modtav {

EnvHttpContext *requestOf(request_rec *r) { return static_cast<EnvHttpContext *>(ap_get_module_config(r->request_config, &tav_module)); }

namespace {

// ---- headers that only the library may set ----

// "$ZVRU" and whatever a back end that reads headers as variables takes for it: "_ZVRU", "-ZVRU".
bool isPrivate(const char *name) { return name && !apr_isalnum(*name) && strncasecmp(name + (*name != '\0'), "ZV", 2) == 0; }

// The library replaces those it knows, but rules read them before that. A trusted proxy's own it keeps.
bool isForged(const request_rec *r, const char *name) {
    return isPrivate(name) && (*name != '$' || !tavIsTrustedProxy(instance(), r->useragent_ip));
}

// A client may not have them taken away as headers of the connection either.
void keepPrivateHeaders(request_rec *r) {
    const char *rest = apr_table_get(r->headers_in, "Connection");
    if (!rest || !strcasestr(rest, "ZV")) return;
    const char *kept = nullptr;
    while (*rest) {
        const char *token = ap_get_token(r->pool, &rest, 0);
        if (*token && !isPrivate(token)) kept = kept ? apr_pstrcat(r->pool, kept, ", ", token, nullptr) : token;
        rest += strspn(rest, ", \t;");
    }
    if (kept)
        apr_table_set(r->headers_in, "Connection", kept);
    else
        apr_table_unset(r->headers_in, "Connection");
}

apr_status_t endRequest(void *data) {
    auto *env = static_cast<EnvHttpContext *>(data);
    tavHttpContextRelease(env->ctx);
    env->ctx = nullptr;
    return APR_SUCCESS;
}

// TRUE when the library handles the request.
bool decide(EnvHttpContext *env) {
    endRequest(env);
    env->ctx = tavHttpContextObtain(instance(), env);
    if (!env->ctx) return false;
    env->report(REQUEST_ARRIVED);
    return tavHttpContextShouldHandle(env->ctx) == 1;
}

bool mayBeOurs(const request_rec *r) {
    return instance() && serverConfig(r->server)->enabled == 1 && !r->proxyreq && r->uri && *r->uri == '/';
}

} // namespace

void dropForgedHeaders(request_rec *r) {
    const apr_array_header_t *headers = apr_table_elts(r->headers_in);
    const auto *entries = reinterpret_cast<const apr_table_entry_t *>(headers->elts);
    apr_array_header_t *forged = nullptr;
    for (int i = 0; i < headers->nelts; i++) {
        if (!isForged(r, entries[i].key)) continue;
        if (!forged) forged = apr_array_make(r->pool, 2, sizeof(char *));
        *static_cast<const char **>(apr_array_push(forged)) = entries[i].key;
    }
    for (int i = 0; forged && i < forged->nelts; i++) apr_table_unset(r->headers_in, reinterpret_cast<const char **>(forged->elts)[i]);
    keepPrivateHeaders(r);
}

int translateName(request_rec *r) {
    if (!mayBeOurs(r) || asksForStatus(r)) return DECLINED;
    dropForgedHeaders(r);
    auto *env = new (apr_palloc(r->pool, sizeof(EnvHttpContext))) EnvHttpContext{r};
    if (!decide(env)) {
        endRequest(env);
        return DECLINED;
    }
    apr_pool_pre_cleanup_register(r->pool, env, endRequest); // apart from the cleanups that every brigade of the request searches
    ap_set_module_config(r->request_config, &tav_module, env);
    r->filename = apr_pstrcat(r->pool, "tav:", r->uri, nullptr);
    r->handler = HANDLER;
    return OK;
}

int mapToStorage(request_rec *r) { return requestOf(r) ? OK : DECLINED; }

int fixups(request_rec *r) {
    EnvHttpContext *env = requestOf(r);
    if (!env) return DECLINED;
    if (r->user && !env->withUser) {
        env->withUser = true;
        if (!decide(env)) return HTTP_SERVICE_UNAVAILABLE;
    }
    r->handler = HANDLER; // whatever the name's extension says
    return OK;
}

// ---- log ----

namespace {

// A reason is one word of the log line: its blanks, line ends and quotes become "_".
const char *asWord(apr_pool_t *pool, const char *text) {
    char *word = apr_pstrdup(pool, text);
    for (char *at = word; *at; at++) {
        if (!apr_isgraph(*at) || *at == '"') *at = '_';
    }
    return word;
}

const char *affinityOf(const EnvHttpContext *env) {
    if (env->tries == 0) return nullptr;
    if (const char *reason = tavHttpContextGetAffinityBreakReason(env->ctx))
        return apr_pstrcat(env->r->pool, "broken:", asWord(env->r->pool, reason), nullptr);
    return tavHttpContextGetPerformedLoadBalancing(env->ctx) ? "new" : "kept";
}

const char *ruleOf(const EnvHttpContext *env) {
    const char *expression = tavHttpContextGetRuleExpression(env->ctx);
    if (!expression) return nullptr;
    apr_pool_t *pool = env->r->pool;
    return apr_pstrcat(pool, apr_itoa(pool, tavHttpContextGetRuleOrder(env->ctx)), ":", asWord(pool, expression), nullptr);
}

// The log line shows the variables of the request that was answered in the end: the one that has them, or a page of the server's own about
// its failure. Their names begin alike, so that a table compares each with all before it: where none can be there yet they are just added.
void setVariables(const EnvHttpContext *env, request_rec *answered) {
    apr_pool_t *pool = env->r->pool;
    const auto put = answered == env->r && !answered->prev ? apr_table_addn : apr_table_setn;
    const auto set = [=](const char *name, const char *value) {
        if (value && *value) put(answered->subprocess_env, name, value);
    };
    const auto setCopy = [=](const char *name, const char *value) { set(name, apr_pstrdup(pool, value)); };
    set("TAV_ACTION", tavhost::actionName(tavHttpContextGetAction(env->ctx)));
    setCopy("TAV_APPLICATION", tavHttpContextGetApplicationName(env->ctx));
    setCopy("TAV_EDITION", tavHttpContextGetApplicationEditionName(env->ctx));
    setCopy("TAV_MODULE", tavHttpContextGetModuleName(env->ctx));
    set("TAV_RULE", ruleOf(env));
    set("TAV_CONFIG_VERSION", apr_ltoa(pool, static_cast<long>(tavHttpContextGetConfigVersion(env->ctx))));
    set("TAV_AFFINITY", affinityOf(env));
    if (env->tries == 0) return;
    set("TAV_TRIES", apr_itoa(pool, env->tries));
    if (answered == env->r) return;
    for (const char *name : {"TAV_SERVER", "TAV_ENDPOINT"}) set(name, apr_table_get(env->r->subprocess_env, name));
}

} // namespace

int logTransaction(request_rec *r) {
    request_rec *answered = r;
    while (answered->next) answered = answered->next;
    for (; r; r = r->next) {
        EnvHttpContext *env = requestOf(r);
        if (!env || !env->ctx) continue;
        if (env->phase == Phase::Answered) env->report(r->connection->aborted ? RESPONSE_SEND_ERROR : RESPONSE_SENT);
        setVariables(env, r->next ? answered : r);
    }
    return DECLINED;
}

} // namespace modtav
