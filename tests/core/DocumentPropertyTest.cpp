// Random deltas: the snapshot that took them in place is the one that a rebuild gives, and the cost is the delta's. Every allocation fails
// once: nothing is lost, nothing leaks, and the snapshot in use serves on.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "base/FailEachAllocation.h"
#include "core/CoreFixture.h"
#include "tavObjects/tavObjectMap.h"
#include "tavUtil/tavMemory.h"

namespace {

class DocumentProperty : public CoreFixture {
protected:
    void rebuild() {
        tavControlLock("test");
        tavResetRoutingInfo(tav);
        tavControlUnlock();
    }
};

// A small world of names, so that additions, deletions and links meet.
class RandomDelta {
public:
    explicit RandomDelta(unsigned seed) : random_(seed) {}

    // `stored` is the document that the delta changes.
    std::string next(int version, json_t *stored) {
        linked_.clear();
        json_t *present = json_object_get(json_object_get(json_object_get(stored, "add"), "relationships"), "cluster:server");
        for (size_t i = 0; i < json_array_size(present); i++) {
            const char *end = json_string_value(json_object_get(json_array_get(present, i), "server"));
            if (end) linked_.insert(end);
        }
        std::string text = R"({"version": )" + std::to_string(version) + R"(, "restVersion": 1, "delta": true)";
        for (const char *op : {"del", "add", "set"}) {
            if (pick(3) == 0) continue;
            text += std::string(", \"") + op + "\": {\"objects\": [" + entries(op) + "], \"relationships\": {" + pairs(op) + "}}";
        }
        return text + "}";
    }

private:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }
    std::string node() { return "/cell/c/node/n" + std::to_string(pick(3)); }
    std::string server() { return node() + "/server/s" + std::to_string(pick(3)); }
    std::string cluster() { return "/cell/c/cluster/k" + std::to_string(pick(3)); }

    static std::string entry(const std::string &name, const char *type, const std::string &props, const std::string &objects) {
        std::string text = "{\"name\": \"" + name + "\", \"type\": \"" + type + "\"";
        if (!props.empty()) text += ", \"props\": {" + props + "}";
        if (!objects.empty()) text += ", \"objects\": [" + objects + "]";
        return text + "}";
    }
    std::string weight() { return "\"weight\": " + std::to_string(pick(5)) + ", \"state\": \"" + (pick(2) ? "STARTED" : "STOPPED") + "\""; }

    // Flat, under its path, or of a type that the name does not belong to.
    std::string object(bool deleting) {
        const std::string state = deleting ? "" : std::string("\"state\": \"") + (pick(2) ? "STARTED" : "QUIESCED") + "\"";
        switch (pick(deleting ? 7 : 6)) {
            case 0:
                return entry(cluster(), "cluster", deleting ? "" : "\"ioTimeoutRetry\": 1", "");
            case 1: {
                const std::string parent = server();
                return entry(parent, "server", weight(),
                             entry(parent + "/serverApplication/a" + std::to_string(pick(2)), "serverApplication", state, ""));
            }
            case 2:
                return entry(server() + "/serverApplication/a0", "serverApplication", state, "");
            case 3: {
                const std::string top = node();
                const std::string below = top + "/server/s" + std::to_string(pick(3));
                return entry("/cell/c", "cell", "", entry(top, "node", "", entry(below, "server", weight(), "")));
            }
            case 4:
                return entry(server(), pick(8) ? "server" : "transport", weight(), "");
            case 5:
                return entry(server() + "/transport/t", "transport", "\"protocol\": \"http\", \"port\": 1", "");
            default:
                return pick(3) ? entry(server(), "server", "", "") : entry(node(), "node", "", "");
        }
    }
    std::string entries(const char *op) {
        std::string text;
        for (unsigned i = 0, n = 1 + pick(3); i < n; i++) text += (i ? ", " : "") + object(op[0] == 'd');
        return text;
    }
    // A server keeps to one cluster and is linked once: a second link stays in the list of servers until the next rebuild.
    std::string pairs(const char *op) {
        std::string text = "\"cluster:server\": [";
        for (unsigned i = 0, n = pick(3), made = 0; i < n; i++) {
            const std::string end = server();
            if (op[0] == 'a' && !linked_.insert(end).second) continue;
            text += std::string(made++ ? ", " : "") + "{\"cluster\": \"/cell/c/cluster/k" + end.back() + "\", \"server\": \"" + end + "\"}";
        }
        return text + "]";
    }

    std::set<std::string> linked_;
    std::mt19937 random_;
};

TEST_F(DocumentProperty, InPlaceEqualsRebuild) {
    const char *complete = R"({"version": 1, "restVersion": 1, "add": {"objects": [{"name": "/cell/c", "type": "cell", "objects": [
        {"name": "/cell/c/node/n0", "type": "node"}, {"name": "/cell/c/node/n1", "type": "node"}]}]}})";
    for (unsigned seed = 1; seed <= 60; seed++) {
        SCOPED_TRACE(seed);
        ASSERT_EQ(give(complete), 1);
        RandomDelta deltas(seed);
        for (int version = 2; version < 40; version++) {
            const std::string text = deltas.next(version, connector->json);
            SCOPED_TRACE(text);
            ASSERT_EQ(give(text), version);
            const std::string live = dump();
            const TavRoutingInfo *before = tav->routingInfo;
            std::set<std::string> names, rebuilt;
            for (auto [key, wrapper] : TavHashRange<ObjectWrapper>(before->objectMap))
                if (wrapper->object) names.insert(key);
            if (version % 4) continue;
            rebuild();
            for (auto [key, wrapper] : TavHashRange<ObjectWrapper>(tav->routingInfo.load()->objectMap))
                if (wrapper->object) rebuilt.insert(key);
            ASSERT_EQ(rebuilt, names);
            ASSERT_EQ(dump(), live);
        }
    }
}

// ---- want of memory ----

int parsing; // allocations that the parser makes first: it does not survive a failure of its own

void *jsonMalloc(size_t size) { return parsing-- > 0 || failing::gate(size) ? malloc(size) : nullptr; }

int countParserAllocations(const char *text) {
    parsing = 1 << 30;
    json_set_alloc_funcs(jsonMalloc, free);
    json_decref(json_loads(text, 0, nullptr));
    json_set_alloc_funcs(malloc, free);
    return (1 << 30) - parsing;
}

// Fails the n-th allocation of giving the text, of the library and in the document alike; FALSE when there are fewer.
template <typename Act>
bool failNth(int n, const char *text, Act act) {
    parsing = countParserAllocations(text);
    failing::allowed = n;
    failing::happened = false;
    tavSetAllocationGate(failing::gate);
    json_set_alloc_funcs(jsonMalloc, free);
    act();
    json_set_alloc_funcs(malloc, free);
    tavSetAllocationGate(nullptr);
    return failing::happened;
}

const char *const kSmallSite = R"({"version": 1, "restVersion": 1, "add": {"objects": [{"name": "/cell/c", "type": "cell", "objects": [
    {"name": "/cell/c/node/n", "type": "node", "objects": [
     {"name": "/cell/c/node/n/server/s", "type": "server", "props": {"id": "x", "weight": 1}, "objects": [
      {"name": "/cell/c/node/n/server/s/transport/t", "type": "transport", "props": {"protocol": "http", "host": "h"}},
      {"name": "/cell/c/node/n/server/s/serverApplication/a", "type": "serverApplication", "props": {"state": "STARTED"}},
      {"name": "/cell/c/node/n/server/s/ruleSet/r", "type": "ruleSet", "objects": [
       {"name": "/cell/c/node/n/server/s/ruleSet/r/rule/1", "type": "rule", "props": {"expression": "port = 80", "action": ":INFO"}}]}]}]},
    {"name": "/cell/c/cluster/k", "type": "cluster"},
    {"name": "/cell/c/healthPolicy/h", "type": "healthPolicy", "props": {"threshold": 5}},
    {"name": "/cell/c/vHostGroup/v", "type": "vHostGroup", "objects": [{"name": "/cell/c/vHostGroup/v/vHost/1", "type": "vHost", "props": {"host": "h"}}]},
    {"name": "/cell/c/application/a", "type": "application", "objects": [
     {"name": "/cell/c/application/a/webRouteWorkClass/w", "type": "webRouteWorkClass", "objects": [
      {"name": "/cell/c/application/a/webRouteWorkClass/w/rule/1", "type": "rule", "props": {"expression": "port = 1", "action": "reject:404"}}]},
     {"name": "/cell/c/application/a/webModule/w", "type": "webModule", "props": {"contextRoot": "/a"}, "objects": [
      {"name": "/cell/c/application/a/webModule/w/uri/x", "type": "uri"}]}]}]}],
  "relationships": {"cluster:server": [{"cluster": "/cell/c/cluster/k", "server": "/cell/c/node/n/server/s"}],
   "vHostGroup:webModule": [{"vHostGroup": "/cell/c/vHostGroup/v", "webModule": "/cell/c/application/a/webModule/w"}],
   "cluster:webModule": [{"cluster": "/cell/c/cluster/k", "webModule": "/cell/c/application/a/webModule/w"}],
   "server:webModule": [{"server": "/cell/c/node/n/server/s", "webModule": "/cell/c/application/a/webModule/w"}],
   "server:healthPolicy": [{"server": "/cell/c/node/n/server/s", "healthPolicy": "/cell/c/healthPolicy/h"}]}}})";

struct MemoryRow {
    const char *name, *document;
};

class DocumentMemory : public DocumentProperty, public testing::WithParamInterface<MemoryRow> {};

TEST_P(DocumentMemory, EachAllocationFailsOnce) {
    ASSERT_EQ(give(kSmallSite), 1);
    const std::string before = dump(), stored = storedText();
    ASSERT_EQ(give(GetParam().document), 2);
    const std::string after = dump();
    const bool complete = !std::string(GetParam().document).find("{\"version\": 2, \"add\"");
    int n = 0;
    long long result = 0;
    do {
        SCOPED_TRACE(testing::Message() << "allocation " << n);
        ASSERT_EQ(give(kSmallSite), 1);
        if (!failNth(n++, GetParam().document, [&] { result = give(GetParam().document); })) break;
        if (result == 2) {
            ASSERT_EQ(dump(), after) << "taken whole";
            continue;
        }
        ASSERT_EQ(result, -1);
        if (complete) {
            ASSERT_EQ(storedText(), stored);
        }
        rebuild();
        ASSERT_EQ(give(GetParam().document), 2) << "the next try succeeds";
        ASSERT_EQ(dump(), after);
        rebuild();
        ASSERT_EQ(dump(), after);
    } while (true);
    EXPECT_GT(n, 10);
}

INSTANTIATE_TEST_SUITE_P(Documents, DocumentMemory,
                         testing::Values(MemoryRow{"Complete",
                                                   R"({"version": 2, "add": {"objects": [{"name": "/cell/c", "type": "cell", "objects": [
            {"name": "/cell/c/node/m", "type": "node", "objects": [{"name": "/cell/c/node/m/server/s", "type": "server"}]},
            {"name": "/cell/c/cluster/k", "type": "cluster"}]}],
            "relationships": {"cluster:server": [{"cluster": "/cell/c/cluster/k", "server": "/cell/c/node/m/server/s"}]}},
            "set": {"objects": [{"name": "/cell/c/node/m/server/s", "type": "server", "props": {"weight": 3}}]}})"},
                                         MemoryRow{"InPlace", R"({"version": 2, "restVersion": 1, "delta": true,
            "add": {"objects": [{"name": "/cell/c/node/n/server/q", "type": "server", "props": {"weight": 2}}],
            "relationships": {"cluster:server": [{"cluster": "/cell/c/cluster/k", "server": "/cell/c/node/n/server/q"}]}},
            "set": {"objects": [{"name": "/cell/c/node/n/server/s", "type": "server", "props": {"weight": 7, "state": "STARTED"}},
                                {"name": "/cell/c/node/n/server/s/transport/t", "type": "transport", "props": {"host": "i"}}]}})"},
                                         MemoryRow{"Deletion", R"({"version": 2, "restVersion": 1, "delta": true, "del": {"objects": [
            {"name": "/cell/c/node/n/server/s/ruleSet/r", "type": "ruleSet"}, {"name": "/cell/c/node/n/server/s", "type": "server"}]}})"},
                                         MemoryRow{"Rebuild", R"({"version": 2, "restVersion": 1, "delta": true, "add": {"objects": [
            {"name": "/cell/c/application/a/webModule/x", "type": "webModule", "props": {"contextRoot": "/x"}}],
            "relationships": {"vHostGroup:webModule": [{"vHostGroup": "/cell/c/vHostGroup/v", "webModule": "/cell/c/application/a/webModule/x"}]}}})"}),
                         [](const auto &tested) { return tested.param.name; });

} // namespace
