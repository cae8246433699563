// The host that the library sees here: each request is a record, and the callback table reads and writes it.
//
// Header names are found without regard to case, cookie names exactly. Whatever a getter gave stays valid as long as the record: a header
// that is set again retires its old value instead of freeing it.
#ifndef TAVCTL_SCENARIOHOST_H
#define TAVCTL_SCENARIOHOST_H

#include <tav/env.h>

#include <deque>
#include <string>
#include <vector>

#include "RequestMembers.h"
#include "support/Json.h"

namespace tavctl {

using tavhost::Headers;
using tavhost::Text; // none: the callback returns NULL

// What the library set (or removed: none), in the order of the first time.
class Changes {
public:
    void set(const std::string &name, Text value);
    const std::vector<std::pair<std::string, Text>> &list() const { return list_; }
    bool contains(const std::string &name) const;
    json_t *toJson() const; // returns new
    void clear() { list_.clear(); }

private:
    std::vector<std::pair<std::string, Text>> list_;
};

} // namespace tavctl

struct EnvHttpContext : tavhost::RequestMembers {
    int responseCode = 200;
    tavctl::Headers responseHeaders;

    tavctl::Changes headersSet, responseHeadersSet, responseCookiesSet;

    std::deque<std::vector<std::string>> retired; // values of headers that were set again
    std::deque<std::vector<char *>> lists;        // what the getters of lists gave
};

namespace tavctl {

// Every slot of http.request and http.response is set; nothing else.
EnvCallBacks scenarioHostCallBacks();

} // namespace tavctl

#endif
