// Documents as the controller serves them: a library that follows the deltas comes to where one comes that starts with the newest document.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "Document.h"
#include "check/Check.h"
#include "support/Json.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"

using namespace controller;
using tavctl::Engine;
using tavctl::Json;
using testing::HasSubstr;

namespace {

// ---- what a library has ----

// The same with its arrays sorted, without the holes of deleted entries.
Json sorted(const json_t *json) {
    if (json_is_object(json)) {
        Json copy(json_object());
        const char *key;
        json_t *value;
        json_object_foreach(const_cast<json_t *>(json), key, value) json_object_set_new(copy.get(), key, sorted(value).release());
        return copy;
    }
    if (!json_is_array(json)) return Json(json_deep_copy(json));
    std::map<std::string, Json> elements;
    for (size_t i = 0; i < json_array_size(json); i++) {
        Json element = sorted(json_array_get(json, i));
        char *text = json_dumps(element.get(), JSON_SORT_KEYS | JSON_ENCODE_ANY);
        if (!json_is_null(element.get())) elements.emplace(fmt::format("{} {}", text, i), std::move(element));
        free(text);
    }
    Json copy(json_array());
    for (auto &[text, element] : elements) json_array_append_new(copy.get(), element.release());
    return copy;
}

std::string sortedText(Json json) {
    char *text = json_dumps(sorted(json.get()).get(), JSON_SORT_KEYS | JSON_INDENT(1));
    std::string result = text;
    free(text);
    return result;
}

// The stored document, object by object and pair by pair, and the state that requests see.
std::string stateOf(Engine &engine) {
    std::set<std::string> lines;
    const json_t *stored = tavctl::storedDocument(engine.connector());
    tavctl::forEachObject(stored, [&](const tavctl::ObjectEntry &entry) {
        const Json props(entry.props && json_object_size(entry.props) ? json_deep_copy(entry.props) : json_object());
        char *text = json_dumps(props.get(), JSON_SORT_KEYS);
        lines.insert(fmt::format("{} {} {}", entry.name, entry.type, text));
        free(text);
    });
    for (const char *kind : {"cluster:server", "cluster:webModule", "vHostGroup:webModule", "server:healthPolicy"})
        for (const auto &[first, second] : tavctl::relationshipPairs(stored, kind)) {
            if (!first.empty()) lines.insert(fmt::format("{} {} {}", kind, first, second));
        }
    TavRoutingInfo *ri = tavRoutingInfoObtain(engine.tav());
    std::string state = fmt::format("{}\n{}{}", fmt::join(lines, "\n"), sortedText(Json(rmToJSON(ri->requestMapper))),
                                    sortedText(Json(tsToJSON(ri->targetSelector))));
    tavRoutingInfoRelease(ri);
    return state;
}

// ---- a world that changes ----

struct Thing {
    std::string name;
    const char *type;
    std::map<std::string, std::vector<std::string>> props; // the values that each may have; "": it may be missing
    bool present = true;
    std::map<std::string, size_t> chosen;
    std::vector<size_t> below;
};
struct Link {
    std::string kind, first, second;
    bool present = true;
};

class World {
public:
    explicit World(unsigned seed) : random_(seed) {
        const size_t cell = add("/cell/c", "cell", {{"cp.webserverName", {"", "\"a\"", "\"b\""}}});
        for (const char *group : {"/cell/c/vHostGroup/v", "/cell/c/vHostGroup/w"})
            add(std::string(group) + "/vHost/h", "vHost", {{"host", {"\"*\"", "\"h\""}}, {"port", {"\"80\"", "\"*\""}}},
                add(group, "vHostGroup", {}, cell));
        for (const char *application : {"/cell/c/application/a", "/cell/c/application/a-edition2"}) addApplication(application, cell);
        for (const char *cluster : {"/cell/c/cluster/k", "/cell/c/cluster/l"})
            add(cluster, "cluster", {{"serverType", {"\"APPLICATION_SERVER\""}}, {"ioTimeoutRetry", {"", "1", "2"}}}, cell);
        add("/cell/c/healthPolicy/h", "healthPolicy", {{"type", {"\"ExcessiveResponseTime\""}}, {"threshold", {"10", "20"}}}, cell);
        for (int n = 0; n < 2; n++) addNode(fmt::format("/cell/c/node/n{}", n), cell);
    }

    void change() {
        for (unsigned i = 0, n = 1 + pick(3); i < n; i++) {
            Thing &thing = things_[1 + pick(things_.size() - 1)];
            if (pick(4) == 0 || thing.props.empty())
                thing.present = !thing.present;
            else
                choose(thing);
            if (pick(3) == 0) {
                Link &link = links_[pick(links_.size())];
                link.present = !link.present;
            }
        }
        dangling_ = pick(25) == 0;
        if (pick(10) == 0) std::shuffle(things_[0].below.begin(), things_[0].below.end(), random_);
        if (pick(10) == 0) std::shuffle(things_[3].below.begin(), things_[3].below.end(), random_);
        indent_ = pick(8) ? indent_ : pick(3);
    }
    bool isGood() const { return !dangling_; }

    std::string text() {
        std::set<std::string> names;
        Json document(json_object()), add(json_object()), pairs(json_object());
        json_object_set_new(document.get(), "version", json_integer(pick(100)));
        json_object_set_new(document.get(), "restVersion", json_integer(1));
        json_object_set_new(add.get(), "objects", entries({0}, names));
        for (const Link &link : links_) {
            if (!link.present || !names.count(link.first) || !names.count(link.second)) continue;
            addPair(pairs.get(), link.kind, link.first, link.second);
        }
        if (dangling_) addPair(pairs.get(), "cluster:server", "/cell/c/cluster/gone", "/cell/c/node/n0");
        json_object_set(add.get(), "relationships", pairs.get());
        json_object_set(document.get(), "add", add.get());
        char *text = json_dumps(document.get(), JSON_INDENT(indent_));
        std::string result = text;
        free(text);
        return result;
    }

private:
    size_t pick(size_t n) { return static_cast<size_t>(random_() % n); }
    void choose(Thing &thing) {
        for (const auto &[name, values] : thing.props) thing.chosen[name] = pick(values.size());
    }
    size_t add(const std::string &name, const char *type, std::map<std::string, std::vector<std::string>> props, size_t above = SIZE_MAX) {
        things_.push_back({name, type, std::move(props), true, {}, {}});
        choose(things_.back());
        if (above != SIZE_MAX) things_[above].below.push_back(things_.size() - 1);
        return things_.size() - 1;
    }
    void addApplication(const std::string &name, size_t cell) {
        const size_t application = add(name, "application", {{"edition", {"", "\"2\""}}}, cell);
        const std::string module = name + "/webModule/m", work = name + "/webRouteWorkClass/Default_HTTP_WC";
        const size_t workClass = add(work, "webRouteWorkClass", {}, application);
        for (const char *rule : {"10", "20", "x", "y", "z"})
            add(work + "/rule/" + rule, "rule",
                {{"expression", {"\"uri = '/a'\"", "\"uri = '/b'\""}}, {"action", {"\"permit:a\"", "\"reject:403\""}}}, workClass);
        const size_t web =
            add(module, "webModule", {{"contextRoot", {"\"/a\"", "\"/b\""}}, {"fileServingEnabled", {"", "true"}}}, application);
        for (const char *uri : {"/uri/\\/*", "/uri/\\/x"}) add(module + uri, "uri", {}, web);
        for (const char *group : {"/cell/c/vHostGroup/v", "/cell/c/vHostGroup/w"})
            links_.push_back({"vHostGroup:webModule", group, module});
        links_.push_back({"cluster:webModule", "/cell/c/cluster/k", module});
    }
    void addNode(const std::string &name, size_t cell) {
        const size_t node = add(name, "node", {{"cp.node.maintenancemode", {"\"false\"", "\"true\""}}}, cell);
        for (int s = 0; s < 3; s++) {
            const std::string below = fmt::format("{}/server/s{}", name, s);
            const size_t server = add(below, "server",
                                      {{"weight", {"1", "2", "3"}},
                                       {"state", {"\"STARTED\"", "\"STOPPED\""}},
                                       {"type", {"\"APPLICATION_SERVER\""}},
                                       {"connectTimeout", {"", "5"}}},
                                      node);
            add(below + "/transport/t", "transport", {{"protocol", {"\"http\""}}, {"host", {"\"i\"", "\"j\""}}, {"port", {"1", "2"}}},
                server);
            for (const char *application : {"a", "a-edition2"})
                add(below + "/serverApplication/" + application, "serverApplication", {{"state", {"\"STARTED\"", "\"STOPPED\""}}}, server);
            links_.push_back({"cluster:server", s % 2 ? "/cell/c/cluster/k" : "/cell/c/cluster/l", below});
            links_.push_back({"server:healthPolicy", below, "/cell/c/healthPolicy/h"});
        }
    }

    json_t *entries(const std::vector<size_t> &places, std::set<std::string> &names) const {
        json_t *array = json_array();
        for (const size_t place : places) {
            const Thing &thing = things_[place];
            if (!thing.present) continue;
            names.insert(thing.name);
            json_t *entry = json_object(), *props = json_object();
            json_object_set_new(entry, "name", json_string(thing.name.c_str()));
            json_object_set_new(entry, "type", json_string(thing.type));
            for (const auto &[name, choice] : thing.chosen) {
                const std::string &value = thing.props.at(name)[choice];
                if (!value.empty()) json_object_set_new(props, name.c_str(), json_loads(value.c_str(), JSON_DECODE_ANY, nullptr));
            }
            json_object_set_new(entry, "props", props);
            json_object_set_new(entry, "objects", entries(thing.below, names));
            json_array_append_new(array, entry);
        }
        return array;
    }
    static void addPair(json_t *pairs, const std::string &kind, const std::string &first, const std::string &second) {
        if (!json_object_get(pairs, kind.c_str())) json_object_set_new(pairs, kind.c_str(), json_array());
        const size_t colon = kind.find(':');
        json_array_append_new(json_object_get(pairs, kind.c_str()), json_pack("{s:s,s:s}", kind.substr(0, colon).c_str(), first.c_str(),
                                                                              kind.substr(colon + 1).c_str(), second.c_str()));
    }

    std::mt19937 random_;
    std::vector<Thing> things_;
    std::vector<Link> links_;
    bool dangling_ = false;
    size_t indent_ = 1;
};

// Why a document was refused.
std::string refusal(const LoadResult &result) {
    std::string text;
    for (const Complaint &complaint : result.complaints) {
        if (complaint.blocks) text += complaint.place + " " + complaint.text + "\n";
    }
    return text;
}

struct Follower {
    Engine engine;
    int64_t version = -1;

    void poll(Document &document) {
        if (version == document.version()) return;
        const AnswerPtr answer = version < 0 ? document.whole() : document.since(version);
        std::vector<tavctl::DocumentFinding> findings;
        version = engine.apply(answer->body(), &findings);
        ASSERT_EQ(version, document.version());
        if (answer == document.whole()) return;
        for (const auto &finding : findings) ADD_FAILURE() << finding.pointer << " " << finding.text << "\n" << answer->body();
    }
};

TEST(ControllerDocument, whoFollowsTheDeltasHasTheNewestDocument) {
    size_t deltas = 0, pieces = 0, refused = 0, whole = 0;
    for (unsigned seed = 1; seed <= 12; seed++) {
        World world(seed);
        Document document("world", "world.json", false);
        Follower always, seldom;
        for (int64_t version = 1; version <= 40; version++) {
            SCOPED_TRACE(fmt::format("seed {} version {}", seed, version));
            const LoadResult result = document.prepare(world.text(), version);
            ASSERT_EQ(result.outcome == LoadOutcome::Refused, !world.isGood()) << refusal(result);
            if (result.outcome == LoadOutcome::Accepted) document.publish();
            deltas += result.delta;
            pieces += result.piece && result.delta;
            refused += result.outcome == LoadOutcome::Refused;
            whole += result.outcome == LoadOutcome::Accepted && !result.delta;
            if (document.isGood()) {
                always.poll(document);
                if (version % 7 == 0) seldom.poll(document);
                Engine fresh;
                fresh.apply(document.whole()->body());
                ASSERT_EQ(stateOf(always.engine), stateOf(fresh));
                if (version % 7 == 0) {
                    ASSERT_EQ(stateOf(seldom.engine), stateOf(fresh));
                }
            }
            world.change();
        }
    }
    // Every way was taken, and most changes are told by deltas.
    EXPECT_GT(pieces, 20U);
    EXPECT_GT(deltas, pieces + 100);
    EXPECT_GT(refused, 5U);
    EXPECT_GT(whole, 12U);
    EXPECT_LT(whole, deltas / 3);
}

constexpr const char *SMALL = R"({"version": 1, "restVersion": 1, "add": {"objects": [
 {"name": "/cell/c", "type": "cell", "objects": [
  {"name": "/cell/c/node/n", "type": "node", "objects": [
   {"name": "/cell/c/node/n/server/s", "type": "server", "props": {"weight": 1, "state": "STARTED", "id": "}\"]"}},
   {"name": "/cell/c/node/n/server/t", "type": "server", "props": {"weight": 1}}]}]},
 {"name": "/cell/c/cluster/k", "type": "cluster"}],
 "relationships": {"cluster:server": [{"cluster": "/cell/c/cluster/k", "server": "/cell/c/node/n/server/s"}]}}})";

TEST(ControllerDocument, anEditIsToldByWhatItChanges) {
    const struct {
        const char *name, *find, *put;
        LoadOutcome outcome;
        bool piece, delta;
        const char *text; // in the delta or in the first complaint
    } cases[] = {
        {"a value", "\"weight\": 1, ", "\"weight\": 12, ", LoadOutcome::Accepted, true, true, R"("props":{"weight":12})"},
        {"a value with its version", "\"version\": 1", "\"version\": 22", LoadOutcome::Unchanged, false, false, ""},
        {"a brace in a text", "}\\\"]", "{[", LoadOutcome::Accepted, true, true, R"("id":"{[")"},
        {"blanks", "\"weight\": 1}", "\"weight\":  1 }", LoadOutcome::Unchanged, true, false, ""},
        {"a new property", "\"weight\": 1}", "\"weight\": 1, \"id\": \"x\"}", LoadOutcome::Accepted, true, true, R"("props":{"id":"x"})"},
        {"a new object between two", "\n   {\"name\": \"/cell/c/node/n/server/t\"",
         "\n   {\"name\": \"/cell/c/node/n/server/u\", \"type\": \"server\"},\n   {\"name\": \"/cell/c/node/n/server/t\"",
         LoadOutcome::Accepted, true, true, R"("add":{"objects":[{"name":"/cell/c/node/n/server/u","type":"server"}]})"},
        {"a property less", ", \"state\": \"STARTED\"", "", LoadOutcome::Accepted, false, true,
         R"("del":{"objects":[{"name":"/cell/c/node/n/server/s","type":"server"}],"relationships":{"cluster:server")"},
        {"another name", "n/server/t\"", "n/server/v\"", LoadOutcome::Accepted, false, true, "server/v"},
        {"a pair less", R"({"cluster": "/cell/c/cluster/k", "server": "/cell/c/node/n/server/s"})", "", LoadOutcome::Accepted, false, true,
         R"("del":{"relationships":)"},
        {"another place", "]}]},\n {\"name\": \"/cell/c/cluster/k\", \"type\": \"cluster\"}],",
         "]}, {\"name\": \"/cell/c/cluster/k\", \"type\": \"cluster\"}]}],", LoadOutcome::Accepted, false, false, ""},
        {"other escapes of names", "\"restVersion\": 1", "\"restVersion\": -1", LoadOutcome::Accepted, false, false, ""},
        {"another restVersion", "\"restVersion\": 1", "\"restVersion\": 2", LoadOutcome::Accepted, false, true,
         R"("restVersion":2,"delta":true})"},
        {"half a file", "]}]},", "]}", LoadOutcome::Refused, false, false, "world.json:"},
        {"a bad value", "\"weight\": 1}", "\"weight\": 1.5}", LoadOutcome::Refused, true, false, "unknown type for property weight"},
        {"a type that is none", "\"type\": \"cluster\"", "\"type\": \"clusters\"", LoadOutcome::Refused, false, false, "no object handler"},
        {"a name that is there already", "n/server/t\"", "n/server/s\"", LoadOutcome::Refused, false, false, "already exists"},
        {"a property twice", "\"weight\": 1}", "\"weight\": 1, \"weight\": 7}", LoadOutcome::Accepted, false, true, R"("weight":7)"},
        {"a delta", "\"version\": 1", "\"delta\": true", LoadOutcome::Refused, false, false, ""},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.name);
        Document document("world", "world.json", false);
        ASSERT_EQ(document.prepare(SMALL, 1).outcome, LoadOutcome::Accepted);
        document.publish();
        std::string text = SMALL;
        text.replace(text.find(each.find), strlen(each.find), each.put);
        const LoadResult result = document.prepare(text, 2);
        EXPECT_EQ(result.outcome, each.outcome);
        EXPECT_EQ(result.piece, each.piece);
        EXPECT_EQ(result.delta, each.delta);
        if (result.outcome == LoadOutcome::Refused) {
            EXPECT_THAT(refusal(result), HasSubstr(each.text));
        } else if (result.outcome == LoadOutcome::Accepted) {
            document.publish();
            EXPECT_THAT(document.since(1)->body(), HasSubstr(each.delta ? each.text : "\"version\": 2"));
            EXPECT_EQ(document.since(0), document.whole()) << "a version that never was";
        }
        // Whatever came of it, the next good edit is told from what is served.
        text = SMALL;
        text.replace(text.find("\"STARTED\""), 9, "\"STOPPED\"");
        ASSERT_EQ(document.prepare(text, 3).outcome, LoadOutcome::Accepted);
        document.publish();
        Engine fresh;
        fresh.apply(document.whole()->body());
        EXPECT_THAT(stateOf(fresh), HasSubstr("STOPPED"));
    }
}

TEST(ControllerDocument, whatIsNeverUsedBlocksOnlyWhenStrict) {
    for (const bool strict : {false, true}) {
        Document document("world", "world.json", strict);
        const LoadResult result = document.prepare(SMALL, 1);
        EXPECT_EQ(result.outcome, strict ? LoadOutcome::Refused : LoadOutcome::Accepted);
        ASSERT_FALSE(result.complaints.empty());
        EXPECT_EQ(result.complaints[0].kind, "unused");
    }
}

TEST(ControllerDocument, whoIsTooFarBehindGetsTheCompleteDocument) {
    Document document("world", "world.json", false);
    for (int64_t version = 1; version <= 80; version++) {
        std::string text = SMALL;
        text.replace(text.find("1, \"state\""), 1, std::to_string(version));
        ASSERT_EQ(document.prepare(text, version).outcome, LoadOutcome::Accepted);
        document.publish();
    }
    EXPECT_EQ(document.since(1), document.whole());
    EXPECT_THAT(document.since(79 - 60)->body(), HasSubstr(R"("set":{"objects":[{"name":"/cell/c/node/n/server/s")"));
    EXPECT_THAT(document.nothingNew()->body(), testing::StrEq(R"({"version":80,"restVersion":1,"delta":true})"));
}

} // namespace
