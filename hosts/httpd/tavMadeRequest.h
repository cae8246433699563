// A request that nobody sent.
#ifndef TAV_HOSTS_HTTPD_TAVMADEREQUEST_H
#define TAV_HOSTS_HTTPD_TAVMADEREQUEST_H

#include <string>

#include "RequestMembers.h"
#include "tavModule.h"

namespace modtav {

// Why there is no answer to a question: an HTTP status and words.
struct Refusal {
    int status;
    std::string text;
};

// In the pool, as it would come on a connection like `asked`, with the headers that httpd and this module leave of it. Throws Refusal.
request_rec *makeRequest(apr_pool_t *pool, const conn_rec *asked, const tavhost::RequestMembers &members);

// In the pool; null for none.
inline const char *poolText(apr_pool_t *pool, const tavhost::Text &text) { return text ? apr_pstrdup(pool, text->c_str()) : nullptr; }

} // namespace modtav

#endif
