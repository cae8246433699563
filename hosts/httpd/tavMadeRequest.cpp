// A request that nobody sent, made up as httpd makes one: its virtual server is looked up, its path is cleaned, the limits of the server
// hold. What other modules would do with it, access control and rewriting included, is not asked.
#include "tavMadeRequest.h"

#include <ap_listen.h>
#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace modtav {

namespace {

[[noreturn]] void refuse(const std::string &text) { throw Refusal{HTTP_BAD_REQUEST, text}; }

// ---- what a server lets through ----

bool isToken(const std::string &text) {
    const auto allowed = [](unsigned char c) { return isalnum(c) || (c && strchr("!#$%&'*+-.^_`|~", c)); };
    return !text.empty() && std::all_of(text.begin(), text.end(), allowed);
}

bool hasControls(const std::string &text) {
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return (c < ' ' && c != '\t') || c == 0x7f; });
}

void checkHeaders(const server_rec *server, const apr_table_t *headers) {
    const apr_array_header_t *list = apr_table_elts(headers);
    const auto *fields = reinterpret_cast<const apr_table_entry_t *>(list->elts);
    if (server->limit_req_fields > 0 && list->nelts > server->limit_req_fields) refuse("more headers than LimitRequestFields allows");
    for (int i = 0; i < list->nelts; i++) {
        if (!isToken(fields[i].key)) refuse("a header's name is no token");
        if (hasControls(fields[i].val)) refuse(std::string("header ") + fields[i].key + " holds control characters");
        if (strlen(fields[i].key) + strlen(fields[i].val) + 2 > static_cast<size_t>(server->limit_req_fieldsize))
            refuse(std::string("header ") + fields[i].key + " is longer than LimitRequestFieldSize allows");
    }
}

// "path?query", as it would stand in the request line.
std::string targetOf(const server_rec *server, const tavhost::RequestMembers &members) {
    const std::string path = members.path.value_or("");
    if (path.empty() || path[0] != '/' || path.find_first_of("?#") != std::string::npos)
        refuse("\"path\" must begin with / and hold no ? or #");
    const std::string target = members.query ? path + "?" + *members.query : path;
    if (hasControls(target) || target.find_first_of(" \t#", path.size()) != std::string::npos ||
        path.find_first_of(" \t") != std::string::npos)
        refuse("path or query hold blanks or control characters: write them as %20");
    if (target.size() > static_cast<size_t>(server->limit_req_line)) refuse("path and query are longer than LimitRequestLine allows");
    return target;
}

// ---- the request ----

bool listensAt(int port) {
    for (const ap_listen_rec *listener = ap_listeners; listener; listener = listener->next) {
        if (listener->bind_addr && listener->bind_addr->port == port) return true;
    }
    return false;
}

// The connection that it would come on: like the one that the question came on, but for its local end. A port at which the server does not
// listen is another one's on the way to it.
conn_rec *makeConnection(apr_pool_t *pool, const conn_rec *asked, const tavhost::RequestMembers &members) {
    auto *c = static_cast<conn_rec *>(apr_pmemdup(pool, asked, sizeof(conn_rec)));
    c->pool = pool;
    c->master = nullptr;
    c->conn_config = ap_create_conn_config(pool);
    c->local_addr = static_cast<apr_sockaddr_t *>(apr_pmemdup(pool, asked->local_addr, sizeof(apr_sockaddr_t)));
    if (listensAt(members.listeningPort)) c->local_addr->port = static_cast<apr_port_t>(members.listeningPort);
    if (members.localAddress) c->local_ip = apr_pstrdup(pool, members.localAddress->c_str());
    ap_update_vhost_given_ip(c);
    return c;
}

void setClient(request_rec *r, const tavhost::RequestMembers &members) {
    unsigned char address[sizeof(in6_addr)];
    const std::string ip = members.clientIp.value_or("");
    if (inet_pton(AF_INET, ip.c_str(), address) != 1 && inet_pton(AF_INET6, ip.c_str(), address) != 1) refuse("\"clientIp\" is no address");
    if (apr_sockaddr_info_get(&r->useragent_addr, ip.c_str(), APR_UNSPEC, 0, 0, r->pool) != APR_SUCCESS)
        refuse("\"clientIp\" is no address");
    r->useragent_ip = apr_pstrdup(r->pool, ip.c_str());
    if (members.clientHost) r->useragent_host = apr_pstrdup(r->pool, members.clientHost->c_str());
}

void setHeaders(request_rec *r, const tavhost::RequestMembers &members) {
    for (const auto &[name, values] : members.headers) {
        for (const std::string &value : values) apr_table_add(r->headers_in, name.c_str(), value.c_str());
    }
    std::string cookies; // those that stand in no header
    for (const auto &[name, value] : members.cookies) {
        if (!cookieOf(r, name.c_str())) cookies += (cookies.empty() ? "" : "; ") + name + "=" + value;
    }
    if (!cookies.empty()) apr_table_add(r->headers_in, "Cookie", cookies.c_str());
    if (members.host && !apr_table_get(r->headers_in, "Host")) apr_table_set(r->headers_in, "Host", members.host->c_str());
    checkHeaders(r->server, r->headers_in);
}

// What httpd does with a path before any module sees it. OK or an HTTP status.
int cleanPath(request_rec *r) {
    const auto *server = static_cast<core_server_config *>(ap_get_core_module_config(r->server->module_config));
    const auto *directory = static_cast<core_dir_config *>(ap_get_core_module_config(r->per_dir_config));
    unsigned int normalise = AP_NORMALIZE_NOT_ABOVE_ROOT, unescape = AP_UNESCAPE_URL_KEEP_UNRESERVED;
    if (server->merge_slashes != AP_CORE_CONFIG_OFF) normalise |= AP_NORMALIZE_MERGE_SLASHES;
    if (!directory->allow_encoded_slashes)
        unescape |= AP_UNESCAPE_URL_FORBID_SLASHES;
    else if (!directory->decode_encoded_slashes)
        unescape |= AP_UNESCAPE_URL_KEEP_SLASHES;
    if (!ap_normalize_path(r->uri, normalise | AP_NORMALIZE_DECODE_UNRESERVED)) return HTTP_BAD_REQUEST;
    if (const int status = ap_unescape_url_ex(r->uri, unescape); status != OK) return status;
    if (directory->allow_encoded_slashes && directory->decode_encoded_slashes) // which may have brought new "//" and "/../"
        ap_normalize_path(r->uri, normalise & ~AP_NORMALIZE_NOT_ABOVE_ROOT);
    return OK;
}

// Host and path decide on the virtual server and may be refused by it.
void setTarget(request_rec *r, const tavhost::RequestMembers &members) {
    const std::string target = targetOf(r->server, members);
    r->the_request = apr_pstrcat(r->pool, r->method, " ", target.c_str(), " ", r->protocol, nullptr);
    ap_parse_uri(r, target.c_str());
    if (r->status != HTTP_OK || !r->uri || *r->uri != '/') refuse("the server refuses the path");
    if (members.host) r->hostname = apr_pstrdup(r->pool, members.host->c_str());
    ap_update_vhost_from_headers(r);
    if (r->status != HTTP_OK) refuse("the server refuses the host");
    if (members.port > 0) {
        r->parsed_uri.port = static_cast<apr_port_t>(members.port);
        r->parsed_uri.port_str = apr_itoa(r->pool, members.port);
    }
    r->per_dir_config = r->server->lookup_defaults;
    if (const int status = cleanPath(r); status != OK)
        refuse("the server itself answers this path with " + std::to_string(status) + ", before it asks the library");
}

request_rec *blankRequest(apr_pool_t *pool, conn_rec *connection) {
    auto *r = static_cast<request_rec *>(apr_pcalloc(pool, sizeof(request_rec)));
    r->pool = pool;
    r->connection = connection;
    r->server = connection->base_server;
    r->per_dir_config = r->server->lookup_defaults;
    r->request_config = ap_create_request_config(pool);
    r->request_time = apr_time_now();
    for (apr_table_t **table :
         {&r->headers_in, &r->headers_out, &r->err_headers_out, &r->trailers_in, &r->trailers_out, &r->subprocess_env, &r->notes})
        *table = apr_table_make(pool, 5);
    r->status = HTTP_OK;
    r->proto_num = HTTP_VERSION(1, 1);
    return r;
}

} // namespace

request_rec *makeRequest(apr_pool_t *pool, const conn_rec *asked, const tavhost::RequestMembers &members) {
    if (members.groups) refuse("\"groups\": this server tells the library no groups of a user");
    const std::string method = members.method.value_or("");
    if (!isToken(method)) refuse("\"method\" is no token");
    request_rec *r = blankRequest(pool, makeConnection(pool, asked, members));
    r->method = apr_pstrdup(pool, method.c_str());
    r->method_number = ap_method_number_of(r->method);
    r->protocol = apr_pstrdup(pool, members.protocolVersion.value_or("HTTP/1.1").c_str());
    r->user = const_cast<char *>(poolText(pool, members.userName));
    r->ap_auth_type = const_cast<char *>(poolText(pool, members.authType));
    setClient(r, members);
    setTarget(r, members);
    setHeaders(r, members);
    dropForgedHeaders(r);
    return r;
}

} // namespace modtav
