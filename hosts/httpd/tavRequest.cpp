// A request and its decision, from translation to logging.
//
// The mapping is asked for when the name is translated, because a request of an application must not reach the file system. Rules can ask
// for the user, who is known only after authentication: then the request is decided once more.
#include <strings.h>

#include <cstring>
#include <new>

#include "tavModule.h"

void EnvHttpContext::report(TavHttpContextState state, const char *msg) { tavHttpContextSetState(ctx, state, 0, const_cast<char *>(msg)); }

namespace modtav {

EnvHttpContext *requestOf(request_rec *r) { return static_cast<EnvHttpContext *>(ap_get_module_config(r->request_config, &tav_module)); }

namespace {

// Back ends that know headers as variables take "_" for "$": what a client sends under such a name is not the library's.
void dropForgedHeaders(request_rec *r) {
    const apr_array_header_t *headers = apr_table_elts(r->headers_in);
    const auto *entries = reinterpret_cast<const apr_table_entry_t *>(headers->elts);
    apr_array_header_t *forged = nullptr;
    for (int i = 0; i < headers->nelts; i++) {
        if (!entries[i].key || strncasecmp(entries[i].key, "_ZV", 3) != 0) continue;
        if (!forged) forged = apr_array_make(r->pool, 2, sizeof(char *));
        *static_cast<const char **>(apr_array_push(forged)) = entries[i].key;
    }
    for (int i = 0; forged && i < forged->nelts; i++) apr_table_unset(r->headers_in, reinterpret_cast<const char **>(forged->elts)[i]);
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

int translateName(request_rec *r) {
    if (!mayBeOurs(r)) return DECLINED;
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

const char *actionName(TavAction action) {
    static const char *const names[] = {"NONE", "SUSPEND", "REJECT", "REDIRECT", "PERMIT"};
    return static_cast<unsigned>(action) < std::size(names) ? names[action] : "NONE";
}

const char *affinityOf(const EnvHttpContext *env) {
    if (env->tries == 0) return nullptr;
    if (env->affinityBroken) return "broken";
    return tavHttpContextGetPerformedLoadBalancing(env->ctx) ? "new" : "kept";
}

void setVariables(const EnvHttpContext *env) {
    request_rec *r = env->r;
    const auto set = [r](const char *name, const char *value) {
        if (value && *value) apr_table_set(r->subprocess_env, name, value);
    };
    set("TAV_ACTION", actionName(tavHttpContextGetAction(env->ctx)));
    set("TAV_APPLICATION", tavHttpContextGetApplicationName(env->ctx));
    set("TAV_EDITION", tavHttpContextGetApplicationEditionName(env->ctx));
    set("TAV_MODULE", tavHttpContextGetModuleName(env->ctx));
    set("TAV_AFFINITY", affinityOf(env));
    if (env->tries > 0) set("TAV_TRIES", apr_itoa(r->pool, env->tries));
}

} // namespace

int logTransaction(request_rec *r) {
    for (; r; r = r->next) {
        EnvHttpContext *env = requestOf(r);
        if (!env || !env->ctx) continue;
        if (env->phase == Phase::Answered) env->report(r->connection->aborted ? RESPONSE_SEND_ERROR : RESPONSE_SENT);
        setVariables(env);
    }
    return DECLINED;
}

} // namespace modtav
