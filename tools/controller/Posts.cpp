#include "Posts.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "Events.h"

namespace controller {

namespace {

constexpr size_t MOST_POSTS = 100;
constexpr size_t MOST_ROUTES = 8; // shown of one post

void takeRoutes(const json_t *names, char sign, size_t &count, Post &post) {
    count = json_array_size(names);
    for (size_t i = 0; i < count && post.routes.size() < MOST_ROUTES; i++) {
        const char *name = json_string_value(json_array_get(names, i));
        if (name) post.routes.push_back(std::string(1, sign) + name);
    }
}

} // namespace

std::optional<Post> parsePost(const std::string &body) {
    const tavctl::Json json(json_loadb(body.data(), body.size(), 0, nullptr));
    Post post;
    post.when = time(nullptr);
    const json_t *added = json_object_get(json.get(), "addRoutes"), *removed = json_object_get(json.get(), "delRoutes");
    if (json_is_array(added) || json_is_array(removed)) {
        takeRoutes(removed, '-', post.removed, post);
        takeRoutes(added, '+', post.added, post);
        return post;
    }
    const char *policy = json_string_value(json_object_get(json.get(), "healthPolicyName"));
    const char *server = json_string_value(json_object_get(json.get(), "serverName"));
    if (!policy || !server) return std::nullopt;
    post.kind = Post::Kind::Health;
    post.policy = policy;
    post.healthServer = server;
    post.triggered = json_is_true(json_object_get(json.get(), "healthPolicyTriggered"));
    return post;
}

std::string Post::text() const {
    const std::string who = fmt::format("{} {}{}{}", document, address, server.empty() ? "" : " ", server);
    if (kind == Kind::Health) return fmt::format("health  {}: {} {} on {}", who, policy, triggered ? "triggered" : "ended", healthServer);
    std::string shown;
    for (const std::string &route : routes) shown += "\n    " + route;
    const size_t rest = added + removed - routes.size();
    return fmt::format("routes  {}: {} more, {} less{}{}", who, added, removed, shown,
                       rest ? fmt::format("\n    and {} others", rest) : "");
}

tavctl::Json Post::toJson() const {
    tavctl::Json json =
        makeEvent(kind == Kind::Health ? "health" : "routes", {{"time", fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(when))},
                                                               {"document", document},
                                                               {"address", address},
                                                               {"server", server}});
    if (kind == Kind::Health) {
        json_object_set_new(json.get(), "policy", tavctl::jsonText(policy.c_str()));
        json_object_set_new(json.get(), "on", tavctl::jsonText(healthServer.c_str()));
        json_object_set_new(json.get(), "triggered", json_boolean(triggered));
        return json;
    }
    json_object_set_new(json.get(), "added", json_integer(static_cast<json_int_t>(added)));
    json_object_set_new(json.get(), "removed", json_integer(static_cast<json_int_t>(removed)));
    json_t *names = json_array();
    for (const std::string &route : routes) json_array_append_new(names, tavctl::jsonText(route.c_str()));
    json_object_set_new(json.get(), "first", names);
    return json;
}

void Posts::add(Post post) {
    ++(post.kind == Post::Kind::Health ? health_ : routes_);
    last_.push_back(std::move(post));
    if (last_.size() > MOST_POSTS) last_.pop_front();
}

json_t *Posts::toJson() const {
    json_t *json = json_object(), *last = json_array();
    json_object_set_new(json, "routes", json_integer(routes_));
    json_object_set_new(json, "health", json_integer(health_));
    for (const Post &post : last_) json_array_append_new(last, post.toJson().release());
    json_object_set_new(json, "last", last);
    return json;
}

} // namespace controller
