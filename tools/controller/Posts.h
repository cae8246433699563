// What libraries report back: server applications that became routable or stopped being so, and health policies that were triggered.
#ifndef CONTROLLER_POSTS_H
#define CONTROLLER_POSTS_H

#include <ctime>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "support/Json.h"

namespace controller {

struct Post {
    enum class Kind { Routes, Health } kind = Kind::Routes;
    time_t when = 0;
    std::string address, server, document; // who, under which name, about what
    size_t added = 0, removed = 0;         // routes
    std::vector<std::string> routes;       // the first few, "+" or "-" before each
    std::string policy, healthServer;
    bool triggered = false;

    std::string text() const;
    tavctl::Json toJson() const;
};

// The post that a body is; no value: it is none.
std::optional<Post> parsePost(const std::string &body);

// The last ones and how many there were. With the state lock held.
class Posts {
public:
    void add(Post post);
    json_t *toJson() const; // returns new

private:
    std::deque<Post> last_;
    int64_t routes_ = 0, health_ = 0;
};

} // namespace controller

#endif
