// Documents as the controller serves them: a library that follows the deltas comes to where one comes that starts with the newest document.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>
#include <regex>
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

std::string textOf(const json_t *json) {
    char *text = json_dumps(json, JSON_SORT_KEYS | JSON_ENCODE_ANY);
    const std::string result = text;
    free(text);
    return result;
}

using Lines = std::multiset<std::string>;

// A line for each object, text and number by its path; in an array by its name or as a whole, wherever it stands.
void list(const json_t *json, const std::string &path, Lines &lines) {
    const char *key;
    json_t *value;
    size_t i;
    lines.insert(path);
    json_object_foreach(const_cast<json_t *>(json), key, value) {
        if (json_is_object(value) || json_is_array(value))
            list(value, path + "/" + key, lines);
        else
            lines.insert(path + "/" + key + " " + textOf(value));
    }
    json_array_foreach(json, i, value) {
        if (const char *name = json_string_value(json_object_get(value, "name")))
            list(value, path + "/" + name, lines);
        else if (!json_is_null(value))
            lines.insert(path + " " + textOf(value));
    }
}

// The stored document, object by object and pair by pair, and the state that requests see.
std::string stateOf(Engine &engine) {
    Lines lines;
    const json_t *stored = tavctl::storedDocument(engine.connector());
    tavctl::forEachObject(stored, [&](const tavctl::ObjectEntry &entry) {
        lines.insert(fmt::format("{} {}", entry.name, entry.type));
        if (json_object_size(entry.props)) list(entry.props, entry.name, lines);
    });
    for (const char *kind : {"cluster:server", "cluster:webModule", "vHostGroup:webModule", "server:healthPolicy"})
        for (const auto &[first, second] : tavctl::relationshipPairs(stored, kind)) {
            if (!first.empty()) lines.insert(fmt::format("{} {} {}", kind, first, second));
        }
    TavRoutingInfo *ri = tavRoutingInfoObtain(engine.tav());
    list(Json(rmToJSON(ri->requestMapper)).get(), "mapper", lines);
    list(Json(tsToJSON(ri->targetSelector)).get(), "selector", lines);
    tavRoutingInfoRelease(ri);
    return fmt::format("{}", fmt::join(lines, "\n"));
}

// ---- a world that changes ----

// The shop of the examples, whose objects, properties and pairs change, go and come back.
class World {
public:
    explicit World(unsigned seed) : random_(seed) {
        tavctl::forEachObject(shop_.get(), [this](const tavctl::ObjectEntry &entry) {
            if (entry.type != "cell") names_.push_back(entry.name);
        });
    }

    void change() {
        for (size_t i = 0, n = 1 + pick(3); i < n; i++) {
            const std::string &name = names_[pick(names_.size())];
            if (pick(4) == 0)
                toggle(absent_, name);
            else
                variants_[name] = static_cast<int>(pick(4));
            if (pick(3) == 0 && !pairs_.empty()) toggle(absent_, pairs_[pick(pairs_.size())]);
        }
        dangling_ = pick(25) == 0;
        if (pick(6) == 0) toggle(turned_, names_[pick(names_.size())]);
        if (pick(10) == 0) toggle(turned_, "/cell/main");
        indent_ = pick(8) ? indent_ : pick(3);
    }
    bool isGood() const { return !dangling_; }

    std::string text() {
        const Json document(json_deep_copy(shop_.get()));
        json_object_set_new(document.get(), "version", json_integer(static_cast<json_int_t>(pick(100))));
        json_t *add = json_object_get(document.get(), "add"), *pairs;
        std::set<std::string> present;
        thin(json_object_get(add, "objects"), present);
        pairs_.clear();
        const char *kind;
        json_object_foreach(json_object_get(add, "relationships"), kind, pairs) thin(kind, pairs, present);
        if (dangling_) json_array_append_new(pairs, json_pack("{s:s,s:s}", "server", "/cell/main/node/gone", "healthPolicy", "/gone"));
        char *text = json_dumps(document.get(), JSON_INDENT(indent_));
        std::string result = text;
        free(text);
        return result;
    }

private:
    // With rules of one order, where the first one counts.
    static std::string shopText() {
        std::ifstream file(TAV_SOURCE_DIR "/examples/shop/shop.json");
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        return std::regex_replace(text, std::regex("/rule/([2-5])0"), "/rule/x$1");
    }
    size_t pick(size_t n) { return static_cast<size_t>(random_() % n); }
    static void toggle(std::set<std::string> &names, const std::string &name) {
        if (!names.erase(name)) names.insert(name);
    }
    void thin(json_t *objects, std::set<std::string> &present) {
        for (size_t i = json_array_size(objects); i-- > 0;) {
            json_t *entry = json_array_get(objects, i), *below = json_object_get(entry, "objects");
            const std::string name = json_string_value(json_object_get(entry, "name"));
            if (absent_.count(name)) {
                json_array_remove(objects, i);
                continue;
            }
            present.insert(name);
            vary(json_object_get(entry, "props"), variants_[name]);
            thin(below, present);
            for (size_t j = 0, n = turned_.count(name) ? json_array_size(below) : 0; j < n; j++) {
                json_array_insert(below, j, json_array_get(below, n - 1));
                json_array_remove(below, n);
            }
        }
    }
    void thin(const std::string &kind, json_t *pairs, const std::set<std::string> &present) {
        const size_t colon = kind.find(':');
        for (size_t i = json_array_size(pairs); i-- > 0;) {
            const std::string first = json_string_value(json_object_get(json_array_get(pairs, i), kind.substr(0, colon).c_str()));
            const std::string second = json_string_value(json_object_get(json_array_get(pairs, i), kind.substr(colon + 1).c_str()));
            pairs_.push_back(kind + " " + first + " " + second);
            if (!present.count(first) || !present.count(second) || absent_.count(pairs_.back())) json_array_remove(pairs, i);
        }
    }
    static void vary(json_t *props, int variant) {
        if (!props || !variant) return;
        for (const char *name : {"weight", "port", "ioTimeoutRetry", "threshold", "maxConnections"})
            if (json_t *value = json_object_get(props, name); json_is_integer(value)) json_integer_set(value, variant);
        const std::pair<const char *, std::string> texts[] = {{"state", variant == 1 ? "STOPPED" : "STARTED"},
                                                              {"contextRoot", fmt::format("/v{}", variant)},
                                                              {"expression", fmt::format("uri = '/v{}'", variant)},
                                                              {"host", fmt::format("v{}", variant)}};
        for (const auto &[name, text] : texts)
            if (json_object_get(props, name)) json_object_set_new(props, name, json_string(text.c_str()));
        if (variant == 3)
            for (const char *name : {"connectTimeout", "ioTimeoutRetry", "fileServingEnabled"}) json_object_del(props, name);
    }

    std::mt19937 random_;
    const Json shop_{json_loads(shopText().c_str(), 0, nullptr)};
    std::vector<std::string> names_, pairs_;
    std::set<std::string> absent_, turned_; // names, and pairs as "kind first second"
    std::map<std::string, int> variants_;   // of the properties
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

std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}

// SMALL with one text replaced; single quotes stand for double ones.
std::string edited(const std::string &find, const std::string &put) {
    std::string text = SMALL;
    return text.replace(text.find(quoted(find)), find.size(), quoted(put));
}

TEST(ControllerDocument, anEditIsToldByWhatItChanges) {
    using enum LoadOutcome;
    const struct {
        const char *name, *find, *put;
        LoadOutcome outcome;
        bool piece, delta;
        const char *text; // in the delta or in the first complaint
    } cases[] = {
        {"a value", "'weight': 1, ", "'weight': 12, ", Accepted, true, true, "'props':{'weight':12}"},
        {"a value with its version", "'version': 1", "'version': 22", Unchanged, false, false, ""},
        {"a brace in a text", "}\\']", "{[", Accepted, true, true, "'id':'{['"},
        {"blanks", "'weight': 1}", "'weight':  1 }", Unchanged, true, false, ""},
        {"a new property", "'weight': 1}", "'weight': 1, 'id': 'x'}", Accepted, true, true, "'props':{'id':'x'}"},
        {"a new object between two", "\n   {'name': '/cell/c/node/n/server/t'",
         "\n   {'name': '/cell/c/node/n/server/u', 'type': 'server'},\n   {'name': '/cell/c/node/n/server/t'", Accepted, true, true,
         "'add':{'objects':[{'name':'/cell/c/node/n/server/u','type':'server'}]}"},
        {"a property less", ", 'state': 'STARTED'", "", Accepted, false, true,
         "'del':{'objects':[{'name':'/cell/c/node/n/server/s','type':'server'}],'relationships':{'cluster:server'"},
        {"another name", "n/server/t'", "n/server/v'", Accepted, false, true, "server/v"},
        {"a pair less", "{'cluster': '/cell/c/cluster/k', 'server': '/cell/c/node/n/server/s'}", "", Accepted, false, true,
         "'del':{'relationships':"},
        {"another place", "]}]},\n {'name': '/cell/c/cluster/k', 'type': 'cluster'}],",
         "]}, {'name': '/cell/c/cluster/k', 'type': 'cluster'}]}],", Accepted, false, false, ""},
        {"other escapes of names", "'restVersion': 1", "'restVersion': -1", Accepted, false, false, ""},
        {"another restVersion", "'restVersion': 1", "'restVersion': 2", Accepted, false, true, "'restVersion':2,'delta':true}"},
        {"half a file", "]}]},", "]}", Refused, false, false, "world.json:"},
        {"a bad value", "'weight': 1}", "'weight': 1.5}", Refused, true, false, "unknown type for property weight"},
        {"a type that is none", "'type': 'cluster'", "'type': 'clusters'", Refused, false, false, "no object handler"},
        {"a name that is there already", "n/server/t'", "n/server/s'", Refused, false, false, "already exists"},
        {"a property twice", "'weight': 1}", "'weight': 1, 'weight': 7}", Accepted, false, true, "'weight':7"},
        {"a delta", "'version': 1", "'delta': true", Refused, false, false, ""},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.name);
        Document document("world", "world.json", false);
        ASSERT_EQ(document.prepare(SMALL, 1).outcome, Accepted);
        document.publish();
        const LoadResult result = document.prepare(edited(each.find, each.put), 2);
        EXPECT_EQ(result.outcome, each.outcome);
        EXPECT_EQ(result.piece, each.piece);
        EXPECT_EQ(result.delta, each.delta);
        if (result.outcome == Refused) {
            EXPECT_THAT(refusal(result), HasSubstr(each.text));
        } else if (result.outcome == Accepted) {
            document.publish();
            EXPECT_THAT(document.since(1)->body(), HasSubstr(quoted(each.delta ? each.text : "'version': 2")));
            EXPECT_EQ(document.since(0), document.whole()) << "a version that never was";
        }
        // Whatever came of it, the next good edit is told from what is served.
        ASSERT_EQ(document.prepare(edited("'STARTED'", "'STOPPED'"), 3).outcome, Accepted);
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
        ASSERT_EQ(document.prepare(edited("1, 'state'", std::to_string(version) + ", 'state'"), version).outcome, LoadOutcome::Accepted);
        document.publish();
    }
    EXPECT_EQ(document.since(1), document.whole());
    EXPECT_THAT(document.since(79 - 60)->body(), HasSubstr(R"("set":{"objects":[{"name":"/cell/c/node/n/server/s")"));
    EXPECT_THAT(document.nothingNew()->body(), testing::StrEq(R"({"version":80,"restVersion":1,"delta":true})"));
}

} // namespace
