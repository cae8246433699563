// What the library would decide for a request that somebody asks about, and why.
//
// The request comes as JSON and is made up as httpd makes one (tavMadeRequest.cpp); the library sees it through the same callbacks as any
// other. It is only tried: nothing is forwarded, nothing counted, and what the library traces of it goes into the answer instead of the
// log.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "DecisionJson.h"
#include "TraceRecording.h"
#include "tavMadeRequest.h"

namespace modtav {

namespace {

using tavhost::Json;

constexpr size_t LARGEST_QUESTION = 64 * 1024; // bytes

// ---- the question ----

void requireJson(request_rec *r) {
    const char *type = apr_table_get(r->headers_in, "Content-Type");
    constexpr std::string_view wanted = "application/json";
    if (type && strncasecmp(type, wanted.data(), wanted.size()) == 0 && strchr("; \t", type[wanted.size()])) return;
    throw Refusal{HTTP_UNSUPPORTED_MEDIA_TYPE, "the request to be explained must be application/json"};
}

std::string readBody(request_rec *r) {
    const Refusal tooLarge{HTTP_REQUEST_ENTITY_TOO_LARGE, "the request to be explained is larger than 64 KB"};
    if (const int status = ap_setup_client_block(r, REQUEST_CHUNKED_DECHUNK); status != OK)
        throw Refusal{status, "the body cannot be read"};
    if (r->remaining > static_cast<apr_off_t>(LARGEST_QUESTION)) throw tooLarge;
    std::string body;
    if (!ap_should_client_block(r)) return body;
    char buffer[8192];
    long count = 0;
    while ((count = ap_get_client_block(r, buffer, sizeof buffer)) > 0) {
        if (body.size() + static_cast<size_t>(count) > LARGEST_QUESTION) throw tooLarge;
        body.append(buffer, static_cast<size_t>(count));
    }
    if (count < 0) throw Refusal{HTTP_BAD_REQUEST, "the body ends too early"};
    return body;
}

tavhost::RequestMembers readQuestion(request_rec *r) {
    requireJson(r);
    const std::string body = readBody(r);
    json_error_t error;
    const Json json(json_loadb(body.data(), body.size(), JSON_REJECT_DUPLICATES, &error));
    if (!json) throw Refusal{HTTP_BAD_REQUEST, "line " + std::to_string(error.line) + ": " + error.text};
    tavhost::RequestMembers members;
    tavhost::readRequest(json.get(), members);
    return members;
}

// ---- the answer ----

struct ContextReleaser {
    void operator()(TavHttpContext *ctx) const noexcept { tavHttpContextRelease(ctx); }
};

// Only the decision is told of: what comes before and after it is of contexts and snapshots, and in no log either.
Json decide(EnvHttpContext &env, tavhost::TraceLines &lines) {
    tavhost::TraceLines others;
    const tavhost::TraceRecording beside(others);
    const std::unique_ptr<TavHttpContext, ContextReleaser> context(
        tavHttpContextObtainTrial(instance(), &env, tavhost::EXPLAIN_TRACE_SPEC));
    env.ctx = context.get();
    if (!env.ctx) throw Refusal{HTTP_SERVICE_UNAVAILABLE, "the library does not route"};
    env.report(REQUEST_ARRIVED);
    tavhost::Decided decided{env.ctx};
    {
        const tavhost::TraceRecording recording(lines);
        decided.handled = tavHttpContextShouldHandle(env.ctx);
        if (tavHttpContextGetAction(env.ctx) == PERMIT) decided.endpoint = tavHttpContextGetTargetEndpoint(env.ctx);
    }
    decided.affinityBroken = json_is_string(json_object_get(env.told->headersSet, tavhost::AFFINITY_BROKEN_HEADER));
    Json json(tavhost::decisionJson(nullptr, decided, json_incref(env.told->headersSet)));
    tavhost::addReasons(json.get(), env.ctx);
    json_t *mapping = tavHttpContextMappingToJSON(env.ctx);
    json_object_set_new(json.get(), "mapping", mapping ? mapping : json_null());
    return json;
}

json_t *traceJson(const tavhost::TraceLines &lines) {
    json_t *array = json_array();
    for (const tavhost::TraceLine &line : lines) {
        json_t *json = json_object();
        json_object_set_new(json, "level", tavhost::textJson(line.level.c_str()));
        json_object_set_new(json, "text", tavhost::textJson(line.text.c_str()));
        json_array_append_new(array, json);
    }
    return array;
}

// A server that does not ask the library has no decision of it.
Json explain(apr_pool_t *pool, request_rec *asked) {
    const tavhost::RequestMembers members = readQuestion(asked);
    const Json headersSet(json_object());
    const ToldRequest told{poolText(pool, members.protocol), poolText(pool, members.clientCertificate),
                           poolText(pool, members.sslCipherSuite), poolText(pool, members.sslSessionId), headersSet.get()};
    EnvHttpContext env{makeRequest(pool, asked->connection, members)};
    env.told = &told;
    const bool enabled = instance() && serverConfig(env.r->server)->enabled == 1;
    tavhost::TraceLines lines;
    Json json = enabled ? decide(env, lines) : Json(tavhost::decisionJson(nullptr, {nullptr}, json_object()));
    json_object_set_new(json.get(), "enabled", json_boolean(enabled));
    json_object_set_new(json.get(), "virtualServer", tavhost::textJson(env.r->server->server_hostname));
    json_object_set_new(json.get(), "trace", traceJson(lines));
    return json;
}

int answer(request_rec *r, int status, json_t *json) {
    char *text = json_dumps(json, JSON_COMPACT);
    r->status = status;
    ap_set_content_type(r, "application/json");
    apr_table_set(r->headers_out, "Cache-Control", "no-store");
    ap_rputs(text ? text : "{}", r);
    ap_rputs("\n", r);
    free(text);
    return OK;
}

int answerFault(request_rec *r, int status, const char *text) {
    const Json json(json_object());
    json_object_set_new(json.get(), "error", tavhost::textJson(text));
    return answer(r, status, json.get());
}

struct PoolEnd {
    void operator()(apr_pool_t *pool) const { apr_pool_destroy(pool); }
};

} // namespace

int explainRequest(request_rec *r) {
    if (r->method_number != M_POST || !r->args || strcmp(r->args, "explain") != 0) return DECLINED;
    apr_pool_t *created = nullptr;
    if (apr_pool_create(&created, r->pool) != APR_SUCCESS) return HTTP_INTERNAL_SERVER_ERROR;
    const std::unique_ptr<apr_pool_t, PoolEnd> pool(created);
    try {
        return answer(r, HTTP_OK, explain(created, r).get());
    } catch (const Refusal &refusal) {
        return answerFault(r, refusal.status, refusal.text.c_str());
    } catch (const tavhost::RequestFault &fault) {
        return answerFault(r, HTTP_BAD_REQUEST, fault.what());
    } catch (const std::bad_alloc &) {
        return HTTP_INTERNAL_SERVER_ERROR;
    }
}

} // namespace modtav
