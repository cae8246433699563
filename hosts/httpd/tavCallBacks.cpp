// The request as the library sees it.
//
// What a getter gives lives in the request's pool. Names of headers are compared without regard to case, names of cookies with it.
#include <mod_ssl.h>

#include <cstring>

#include "DecisionJson.h"
#include "RequestMembers.h"
#include "tavModule.h"

namespace modtav {

namespace {

char *text(const char *value) { return const_cast<char *>(value); } // the library changes nothing

// ---- the client's request ----

char *getClientIpAddr(EnvHttpContext *env) { return env->r->useragent_ip; }
char *getClientHostName(EnvHttpContext *env) { return text(ap_get_useragent_host(env->r, REMOTE_NAME, nullptr)); }
char *getProtocolVersion(EnvHttpContext *env) { return env->r->protocol; }
int getListeningPort(EnvHttpContext *env) { return env->r->connection->local_addr->port; }
char *getVirtualHost(EnvHttpContext *env) { return text(env->r->hostname ? env->r->hostname : ap_get_server_name(env->r)); }
char *getLocalAddress(EnvHttpContext *env) { return env->r->connection->local_ip; }
int getVirtualPort(EnvHttpContext *env) { return ap_get_server_port(env->r); }
char *getProtocol(EnvHttpContext *env) { return text(env->told ? env->told->scheme : ap_http_scheme(env->r)); }
char *getMethod(EnvHttpContext *env) { return text(env->r->method); }
char *getQueryString(EnvHttpContext *env) { return env->r->args; }

// The library looks for a session behind "jsessionid", whatever stands before it.
char *getPath(EnvHttpContext *env) {
    const char *session = env->sessionHidden ? strcasestr(env->r->uri, "jsessionid") : nullptr;
    return session ? apr_pstrmemdup(env->r->pool, env->r->uri, static_cast<size_t>(session - env->r->uri)) : env->r->uri;
}

char *getAuthType(EnvHttpContext *env) { return env->r->ap_auth_type; }
char *getUserName(EnvHttpContext *env) { return env->r->user; }

char *tlsVariable(EnvHttpContext *env, const char *name) {
    static APR_OPTIONAL_FN_TYPE(ssl_var_lookup) *lookup = APR_RETRIEVE_OPTIONAL_FN(ssl_var_lookup);
    request_rec *r = env->r;
    char *value = lookup ? lookup(r->pool, r->server, r->connection, r, text(name)) : nullptr;
    return value && *value ? value : nullptr;
}

char *getClientCertificate(EnvHttpContext *env) {
    return env->told ? text(env->told->clientCertificate) : tlsVariable(env, "SSL_CLIENT_CERT");
}
char *getSSLCipherSuite(EnvHttpContext *env) { return env->told ? text(env->told->sslCipherSuite) : tlsVariable(env, "SSL_CIPHER"); }
char *getSSLSessionId(EnvHttpContext *env) { return env->told ? text(env->told->sslSessionId) : tlsVariable(env, "SSL_SESSION_ID"); }

// All values of a header, with a null at the end; null when there is none.
char **valuesOf(apr_pool_t *pool, const apr_table_t *table, const char *name) {
    apr_array_header_t *values = apr_array_make(pool, 4, sizeof(char *));
    apr_table_do(
        [](void *array, const char *, const char *value) {
            *static_cast<const char **>(apr_array_push(static_cast<apr_array_header_t *>(array))) = value;
            return 1;
        },
        values, table, name, nullptr);
    if (values->nelts == 0) return nullptr;
    *static_cast<char **>(apr_array_push(values)) = nullptr;
    return reinterpret_cast<char **>(values->elts);
}

int setIn(apr_table_t *table, const char *name, const char *value) {
    if (value)
        apr_table_set(table, name, value);
    else
        apr_table_unset(table, name);
    return 0;
}

char *getHeaderValue(EnvHttpContext *env, char *name) { return text(apr_table_get(env->r->headers_in, name)); }
char **getHeaderValues(EnvHttpContext *env, char *name) { return valuesOf(env->r->pool, env->r->headers_in, name); }

int setHeaderValue(EnvHttpContext *env, char *name, char *value) {
    if (env->told) json_object_set_new(env->told->headersSet, name, tavhost::textJson(value));
    setPrivateHeader(env, name, value);
    return 0;
}

// The value of a cookie in a "Cookie" header: "a=1; b=2".
char *findCookie(apr_pool_t *pool, const char *header, const char *name) {
    const size_t length = strlen(name);
    for (const char *at = header; at && *at; at = strchr(at, ';'), at = at ? at + 1 : nullptr) {
        while (*at == ' ' || *at == '\t') ++at;
        if (strncmp(at, name, length) != 0 || at[length] != '=') continue;
        const char *value = at + length + 1;
        size_t size = strcspn(value, ";");
        while (size > 0 && (value[size - 1] == ' ' || value[size - 1] == '\t')) --size;
        return apr_pstrmemdup(pool, value, size);
    }
    return nullptr;
}

char *getCookieValue(EnvHttpContext *env, char *name) { return env->sessionHidden ? nullptr : cookieOf(env->r, name); }

// ---- the back end's response ----

int getResponseCode(EnvHttpContext *env) { return env->r->status; }
char *getResponseHeader(EnvHttpContext *env, char *name) { return text(apr_table_get(env->r->headers_out, name)); }
char **getResponseHeaders(EnvHttpContext *env, char *name) { return valuesOf(env->r->pool, env->r->headers_out, name); }
int setResponseHeader(EnvHttpContext *env, char *name, char *value) { return setIn(env->r->headers_out, name, value); }

char *getResponseCookie(EnvHttpContext *env, char *name) {
    char **headers = getResponseHeaders(env, text("Set-Cookie"));
    for (; headers && *headers; ++headers) {
        const size_t length = strlen(name);
        if (strncmp(*headers, name, length) == 0 && (*headers)[length] == '=') return findCookie(env->r->pool, *headers, name);
    }
    return nullptr;
}

int setResponseCookie(EnvHttpContext *env, char *name, char *value) {
    apr_table_addn(env->r->headers_out, "Set-Cookie", apr_pstrcat(env->r->pool, name, "=", value, nullptr));
    return 0;
}

} // namespace

char *cookieOf(request_rec *r, const char *name) {
    const apr_array_header_t *headers = apr_table_elts(r->headers_in);
    const auto *entries = reinterpret_cast<const apr_table_entry_t *>(headers->elts);
    for (int i = 0; i < headers->nelts; i++) {
        if (ap_cstr_casecmp(entries[i].key, "Cookie") != 0) continue;
        if (char *value = findCookie(r->pool, entries[i].val, name)) return value;
    }
    return nullptr;
}

void setRequestCallBacks(EnvCallBacks &env) {
    env.http.request = {getClientIpAddr,
                        getClientHostName,
                        getProtocolVersion,
                        getListeningPort,
                        getVirtualHost,
                        getLocalAddress,
                        getVirtualPort,
                        getProtocol,
                        getMethod,
                        getPath,
                        getQueryString,
                        getAuthType,
                        getUserName,
                        nullptr,
                        getClientCertificate,
                        getSSLCipherSuite,
                        getSSLSessionId,
                        getHeaderValue,
                        setHeaderValue,
                        getHeaderValues,
                        getCookieValue,
                        nullptr};
    env.http.response = {getResponseCode, getResponseHeader, getResponseHeaders, setResponseHeader, getResponseCookie, setResponseCookie};
}

} // namespace modtav
