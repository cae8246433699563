#include <gmock/gmock.h>

#include <atomic>
#include <climits>
#include <thread>

#include "FakesForRules.h"
#include "base/FailEachAllocation.h"
#include "tavLanguage/tavLanguage.h"
#include "tavRule/tavRule.h"

using testing::ElementsAre;

namespace {

struct RulesDeleter {
    void operator()(TavRules *rules) const noexcept { tavRulesFree(rules); }
};
using RulesPtr = std::unique_ptr<TavRules, RulesDeleter>;

class RuleTest : public RulesTest {
protected:
    RulesPtr makeSet() {
        RulesPtr rules(tavRulesCreate(tav.httpLanguage, &tav));
        tavRulesSetType(rules.get(), TAVRULESTYPE_WEBROUTEWORKCLASS);
        return rules;
    }
    // An inserted work-class rule; `action` may be null.
    TavRule *add(const RulesPtr &rules, int order, const char *expr, const char *action) {
        TavRule *rule = tavRuleCreate(rules.get());
        tavRuleSetType(rule, TAVRULETYPE_WEBROUTEWORKCLASS);
        tavRuleSetOrder(rule, order);
        if (expr) tavRuleSetExpr(rule, expr);
        if (action) tavRuleSetObject(rule, actionCreate(action));
        EXPECT_TRUE(tavRulesInsertRule(rules.get(), rule));
        return rule;
    }
    TavRuleMatch match(const RulesPtr &rules, TavHttpContext &ctx) { return tavRulesMatch(ctx.trContext, rules.get(), &ctx); }
    // Edition that the set permits for the path, "-" without a match.
    std::string editionFor(const RulesPtr &rules, const char *path) {
        TavHttpContext ctx = request(path);
        TavRuleMatch found = match(rules, ctx);
        return found.entry() ? actionGetEdition(found.entry()->action) : "-";
    }
    std::vector<std::string> expressions(const RulesPtr &rules) {
        std::vector<std::string> texts;
        for (TavRule *rule : TavListRange<TavRule>(rules->rules)) texts.push_back(rule->expressionString ? rule->expressionString : "");
        return texts;
    }
};

} // namespace

TEST(ActionTest, TextsBecomeActions) {
    struct Case {
        const char *text;
        TavAction type;
        const char *edition;
        Boolean sticky;
        int code;
        const char *url;
    } cases[] = {
        {"permit:shop-edition2.0", PERMIT, "2.0", FALSE, 0, nullptr},
        {"permit:shop", PERMIT, "", FALSE, 0, nullptr},
        {"permit:", PERMIT, "", FALSE, 0, nullptr},
        {"permit:a-edition1-edition2", PERMIT, "1-edition2", FALSE, 0, nullptr},
        {"permit:shop-Edition2", PERMIT, "", FALSE, 0, nullptr},
        {"permitsticky:shop-edition3", PERMIT, "3", TRUE, 0, nullptr},
        {"reject:503", REJECT, nullptr, FALSE, 503, nullptr},
        {"reject:404x", REJECT, nullptr, FALSE, 404, nullptr},
        {"reject: 404", REJECT, nullptr, FALSE, 404, nullptr},
        {"reject:", REJECT, nullptr, FALSE, 0, nullptr},
        {"reject:99999999999", REJECT, nullptr, FALSE, INT_MAX, nullptr},
        {"redirect:http://x/y:1", REDIRECT, nullptr, FALSE, 0, "http://x/y:1"},
        {"redirect:", REDIRECT, nullptr, FALSE, 0, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        Action *action = actionCreate(c.text);
        ASSERT_TRUE(action);
        EXPECT_EQ(actionGetType(action), c.type);
        EXPECT_STREQ(actionGetEdition(action), c.edition);
        EXPECT_EQ(actionGetPermitSticky(action), c.sticky);
        EXPECT_EQ(actionGetRejectErrorCode(action), c.code);
        EXPECT_STREQ(actionGetRedirectUrl(action), c.url);
        actionDelete(action);
    }
    for (const char *text :
         {"allow:x", "", "permit", "PERMIT:x", " permit:x", "permitsticky", "reject 503", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(actionCreate(text), nullptr);
    }
}

TEST(ActionTest, NoMemoryIsNotNoAction) {
    for (const char *text : {"permit:shop-edition2", "redirect:/x", "reject:1"}) {
        failEachAllocation([text](auto failed) {
            Action *action;
            Boolean had = actionTryCreate(text, &action);
            EXPECT_EQ(had, !failed());
            EXPECT_EQ(action == nullptr, failed());
            actionDelete(action);
        });
    }
    Action *action;
    EXPECT_TRUE(actionTryCreate("allow:x", &action));
    EXPECT_EQ(action, nullptr);
}

TEST(RuleNameTest, NamesGiveOrders) {
    struct Case {
        const char *name;
        int order;
    } cases[] = {
        {"/cell/c/application/a/webRouteWorkClass/w/rule/7", 7},
        {"/rule/12_beta", 12},
        {"0", 0},
        {"/rule/default", 999800},
        {"/5/default", 999800},
        {"/rule/-3", 999800},
        {"/rule/ 3", 999800},
        {"/rule/beta2", 999800},
        {"/rule/", 999800},
        {"", 999800},
        {nullptr, 999800},
        {"/rule/99999999999", INT_MAX},
    };
    for (const Case &c : cases) EXPECT_EQ(ruleNameToSortOrder(c.name), c.order) << (c.name ? c.name : "null");
}

TEST_F(RuleTest, TypesHaveNames) {
    RulesPtr rules = makeSet();
    TavRule *rule = tavRuleCreate(rules.get());
    const char *ruleNames[] = {"UNKNOWN", "WEBROUTEWORKCLASS", "REQUESTTRACE", "CONTROLTRACE", "UNKNOWN!", "UNKNOWN!"};
    for (int type = 0; type < 6; type++) {
        tavRuleSetType(rule, static_cast<TavRuleType>(type));
        EXPECT_STREQ(tavRuleGetTypeString(rule), ruleNames[type]);
    }
    tavRuleFree(rule);
    const char *setNames[] = {"UNKNOWN", "WEBROUTEWORKCLASS", "SFTRACESPEC", "UNKNOWN!"};
    for (int type = 0; type < 4; type++) {
        tavRulesSetType(rules.get(), static_cast<TavRulesType>(type));
        EXPECT_STREQ(tavRulesGetTypeString(rules.get()), setNames[type]);
    }
    EXPECT_STREQ(tavRuleGetTypeString(nullptr), "UNKNOWN-NULL");
    EXPECT_STREQ(tavRulesGetTypeString(nullptr), "UNKNOWN-NULL");
}

TEST_F(RuleTest, OrderDecidesAndTiesKeepTheirTurn) {
    RulesPtr rules = makeSet();
    add(rules, 5, "uri = '/a'", "permit:-editionfirst5");
    add(rules, 1, "uri = '/1'", "permit:-edition1");
    add(rules, 5, "uri LIKE '/%'", "permit:-editionsecond5");
    TavRule *three = add(rules, 3, "uri = '/3'", "permit:-edition3");
    EXPECT_THAT(expressions(rules), ElementsAre("uri = '/1'", "uri = '/3'", "uri = '/a'", "uri LIKE '/%'"));
    EXPECT_EQ(editionFor(rules, "/a"), "first5");
    EXPECT_EQ(editionFor(rules, "/3"), "3");
    EXPECT_EQ(editionFor(rules, "/b"), "second5");

    // A changed order moves nothing by itself; the next rule still goes before the first one that is strictly greater.
    ASSERT_TRUE(tavRuleSetOrder(three, 9));
    add(rules, 6, "uri = '/4'", "permit:-edition4");
    add(rules, 1, "uri LIKE '/3%'", "permit:-edition1b");
    EXPECT_THAT(expressions(rules), ElementsAre("uri = '/1'", "uri LIKE '/3%'", "uri = '/4'", "uri = '/3'", "uri = '/a'", "uri LIKE '/%'"));
    EXPECT_EQ(editionFor(rules, "/3"), "1b");
    EXPECT_EQ(editionFor(rules, "/4"), "4");
}

TEST_F(RuleTest, TextsInErrorStayAndNeverMatch) {
    const char *internal = "tavRule: Internal Error - no expression created.";
    RulesPtr rules = makeSet();
    TavRule *rule = add(rules, 1, nullptr, "permit:-edition1");
    EXPECT_FALSE(tavRuleIsError(rule));
    EXPECT_EQ(tavRuleGetErrorPosition(rule), -1);
    EXPECT_EQ(editionFor(rules, "/a"), "-");
    TavHttpContext ctx = request("/a");

    traceAt(":DEBUG");
    for (const char *text : {"", "   ", "uri =", "uri uri", static_cast<const char *>(nullptr)}) {
        ASSERT_TRUE(tavRuleSetExpr(rule, text));
        EXPECT_STREQ(rule->expressionString, text);
        EXPECT_TRUE(tavRuleIsError(rule));
        EXPECT_STREQ(tavRuleGetError(rule), internal);
        EXPECT_EQ(tavRuleGetErrorPosition(rule), 0);
        EXPECT_STREQ(tavRuleGetErrorPositionIndicatorString(rule), "^");
        EXPECT_EQ(tavRuleGetExpr(rule), nullptr);
        EXPECT_EQ(tavRuleMatches(ctx.trContext, rule, &ctx), 0);
        EXPECT_EQ(editionFor(rules, "/a"), "-");
    }
    EXPECT_TRUE(std::any_of(fakeTrace.begin(), fakeTrace.end(), [&](const std::string &line) { return line.find(internal) != line.npos; }));

    // A text that does not scan brings the scanner's own message and place.
    ASSERT_TRUE(tavRuleSetExpr(rule, "uri = 'abc"));
    TokenizerPtr tokenizer(tokenizerCreate("uri = 'abc"));
    EXPECT_STREQ(tavRuleGetError(rule), tokenizerGetErrorMessage(tokenizer.get()));
    EXPECT_EQ(tavRuleGetErrorPosition(rule), tokenizerGetErrorPosition(tokenizer.get()));
    EXPECT_STREQ(tavRuleGetErrorPositionIndicatorString(rule), tokenizerGetErrorPositionIndicatorString(tokenizer.get()));
    // One that scans but does not parse brings the parser's.
    ASSERT_TRUE(tavRuleSetExpr(rule, "uri IN ('a', 1)"));
    EXPECT_STREQ(tavRuleGetError(rule), "List types must be homogeneous.");
    EXPECT_EQ(tavRuleGetErrorPosition(rule), 0);

    ASSERT_TRUE(tavRuleSetExpr(rule, "uri = '/a'"));
    EXPECT_FALSE(tavRuleIsError(rule));
    EXPECT_EQ(tavRuleGetError(rule), nullptr);
    EXPECT_EQ(tavRuleGetErrorPosition(rule), -1);
    EXPECT_TRUE(traced("tavRule: Parsed expression 'uri = '/a'' for rule #1"));
    EXPECT_EQ(tavRuleMatches(ctx.trContext, rule, &ctx), 1);
    EXPECT_EQ(editionFor(rules, "/a"), "1");
}

TEST_F(RuleTest, AnyRootThatIsNotZeroMatches) {
    struct Case {
        const char *expr;
        bool matches;
    } cases[] = {
        {"port = 80", true},
        {"port = 81", false},
        {"port", true},
        {"0", false},
        {"1", true},
        {"'text'", true},
        {"((port = 81))", true},
        {"uri = '/a' AND port = 80", true},
        {"nulloperand", false},
        {"false", false},
        {"NOT uri = '/a'", false},
    };
    for (const Case &c : cases) {
        RulesPtr rules = makeSet();
        add(rules, 1, c.expr, "permit:-edition1");
        EXPECT_EQ(editionFor(rules, "/a"), c.matches ? "1" : "-") << c.expr;
    }
    TavHttpContext ctx = request("/a");
    EXPECT_EQ(tavRulesFindMatchingRule(ctx.trContext, nullptr, &ctx), nullptr);
}

TEST_F(RuleTest, RemovingHandsBackAndPurgingFrees) {
    RulesPtr rules = makeSet(), others = makeSet();
    TavRule *a = add(rules, 1, "uri = '/a'", "permit:-editiona");
    TavRule *b = add(rules, 2, "uri = '/a'", "permit:-editionb");
    EXPECT_EQ(tavRulesRemoveRule(others.get(), a), nullptr);
    EXPECT_FALSE(tavRulesInsertRule(others.get(), a)); // it has a set
    EXPECT_EQ(editionFor(rules, "/a"), "a");

    ASSERT_EQ(tavRulesRemoveRule(rules.get(), a), a);
    EXPECT_EQ(tavRuleGetRules(a), nullptr);
    EXPECT_EQ(tavRulesRemoveRule(rules.get(), a), nullptr);
    EXPECT_EQ(editionFor(rules, "/a"), "b");
    ASSERT_TRUE(tavRulesInsertRule(others.get(), a));
    EXPECT_EQ(tavRuleGetRules(a), others.get());

    tavRuleFree(b);
    EXPECT_EQ(tavRulesGetCount(rules.get()), 0);
    EXPECT_EQ(editionFor(rules, "/a"), "-");
    tavRulesPurge(others.get());
    tavRulesPurge(others.get());
    EXPECT_EQ(tavRulesGetCount(others.get()), 0);
    EXPECT_EQ(editionFor(others, "/a"), "-");
    add(others, 1, "uri = '/a'", "permit:-editionagain");
    EXPECT_EQ(editionFor(others, "/a"), "again");
}

TEST_F(RuleTest, MatchesKeepWhatTheyFound) {
    RulesPtr rules = makeSet();
    TavRule *rule = add(rules, 1, "uri = '/a'", "permit:-editionold");
    TavHttpContext ctx = request("/a");
    TavRuleMatch first = match(rules, ctx);
    tavRuleSetObject(rule, actionCreate("permit:-editionnew"));
    tavRuleSetExpr(rule, "uri = '/b'");
    EXPECT_STREQ(actionGetEdition(first.entry()->action), "old");
    EXPECT_STREQ(first.entry()->expressionString, "uri = '/a'");
    EXPECT_EQ(editionFor(rules, "/a"), "-");
    EXPECT_EQ(editionFor(rules, "/b"), "new");

    ctx = request("/b");
    TavRuleMatch second = match(rules, ctx);
    EXPECT_EQ(second.entry()->rule, rule);
    first = std::move(second);
    EXPECT_EQ(second.entry(), nullptr);
    rules.reset();
    EXPECT_STREQ(actionGetEdition(first.entry()->action), "new");
    EXPECT_STREQ(first.entry()->typeString, "WEBROUTEWORKCLASS");
}

TEST_F(RuleTest, MatchingWorksUnderTheSetsLock) {
    RulesPtr rules = makeSet();
    add(rules, 1, "uri = '/a'", "permit:-edition1");
    tavRulesLockObtain(rules.get(), "test");
    EXPECT_EQ(editionFor(rules, "/a"), "1");
    tavRulesLockRelease(rules.get());
}

TEST_F(RuleTest, TraceRulesCountTheirSpecification) {
    RulesPtr rules = makeSet();
    TrSpec *spec = trSpecCreate(tav.mgr, ":DEBUG"), *other = trSpecCreate(tav.mgr, ":INFO");
    TavRule *rule = tavRuleCreate(rules.get());
    tavRuleSetType(rule, TAVRULETYPE_REQUESTTRACE);
    tavRuleSetExpr(rule, "uri = '/a'");
    tavRuleSetObject(rule, trSpecRefObtain(spec));
    tavRuleSetObject(rule, spec); // the same one again: nothing happens
    tavRulesInsertRule(rules.get(), rule);
    EXPECT_EQ(spec->refCount, 2);
    TavHttpContext ctx = request("/a");
    {
        TavRuleMatch found = match(rules, ctx);
        EXPECT_EQ(found.entry()->spec, spec);
        EXPECT_EQ(found.entry()->action, nullptr);
        tavRuleSetObject(rule, trSpecRefObtain(other));
        EXPECT_EQ(spec->refCount, 2);
    }
    EXPECT_EQ(spec->refCount, 1);
    tavRuleFree(rule);
    EXPECT_EQ(other->refCount, 1);
    trSpecRefRelease(spec);
    trSpecRefRelease(other);
}

TEST_F(RuleTest, ChangesAreListed) {
    traceAt(":NOTICE,control.rules:DEBUG,http.request.rules:DEBUG");
    RulesPtr rules = makeSet();
    add(rules, 5, "uri = '/a'", nullptr);
    TavRule *bad = add(rules, 3, "uri =", nullptr);
    EXPECT_TRUE(traced("tavRules: WEBROUTEWORKCLASS rules - after insertion\n"));
    EXPECT_TRUE(traced("tavRule: Rule 5: type=WEBROUTEWORKCLASS expr='uri = '/a''\n"));
    EXPECT_TRUE(
        traced("tavRule: Rule 3: type=WEBROUTEWORKCLASS expr='uri =' Error Message: tavRule: Internal Error - no expression created., "
               "position=0\n"));
    fakeTrace.clear();
    tavRuleFree(bad);
    EXPECT_THAT(fakeTrace, ElementsAre("tavRules: WEBROUTEWORKCLASS rules - after removal\n",
                                       "tavRule: Rule 5: type=WEBROUTEWORKCLASS expr='uri = '/a''\n"));
    TavHttpContext ctx = request("/a");
    char address[32];
    snprintf(address, sizeof address, "%p", static_cast<void *>(&ctx));
    match(rules, ctx);
    EXPECT_TRUE(traced(std::string("tavRule: Rule #5 (uri = '/a') matches context ") + address));
    tavRulesPurge(rules.get());
    match(rules, ctx);
    EXPECT_TRUE(traced(std::string("tavRule: No rule found matching context ") + address));
}

TEST_F(RuleTest, WithoutMemoryARuleStaysAsItWas) {
    RulesPtr rules = makeSet();
    TavRule *rule = add(rules, 1, "uri = '/a'", "permit:-editionold");
    TavHttpContext ctx = request("/a");
    for (bool pinned : {false, true}) {
        failEachAllocation([&](auto failed) {
            TavRuleMatch pin = pinned ? match(rules, ctx) : TavRuleMatch();
            Action *action = actionCreate("permit:-editionnew");
            if (!action) return;
            if (!tavRuleSetObject(rule, action)) {
                EXPECT_TRUE(failed());
                actionDelete(action);
            }
            EXPECT_EQ(editionFor(rules, "/a"), failed() ? "old" : "new");
            tavSetAllocationGate(nullptr);
            tavRuleSetObject(rule, actionCreate("permit:-editionold"));
        });
        // Texts that do not scan, do not parse, do not reduce, or parse: without memory none of them is taken for another.
        for (const char *text : {"'x", "uri IN ('a', 1)", "uri = 'b' uri", "NOT uri = '/a' AND port = 80"}) {
            SCOPED_TRACE(text);
            const Boolean wrong = text[0] != 'N';
            failEachAllocation([&](auto failed) {
                TavRuleMatch pin = pinned ? match(rules, ctx) : TavRuleMatch();
                const Boolean changed = tavRuleSetExpr(rule, text);
                EXPECT_EQ(changed, !failed());
                EXPECT_EQ(tavRuleIsError(rule), wrong && !failed());
                EXPECT_EQ(editionFor(rules, "/a"), failed() ? "old" : "-");
                tavSetAllocationGate(nullptr);
                tavRuleSetExpr(rule, "uri = '/a'");
            });
        }
        failEachAllocation([&](auto failed) {
            TavRuleMatch pin = pinned ? match(rules, ctx) : TavRuleMatch();
            TavRule *second = tavRuleCreate(rules.get());
            if (!second) return;
            Boolean inserted = tavRulesInsertRule(rules.get(), second);
            EXPECT_EQ(inserted, !failed());
            EXPECT_EQ(tavRulesGetCount(rules.get()), inserted ? 2 : 1);
            EXPECT_EQ(tavListGetCount(rules->rules), tavRulesGetCount(rules.get()));
            tavRuleFree(second);
        });
    }
    failEachAllocation([&](auto failed) {
        TavRules *set = tavRulesCreate(tav.httpLanguage, &tav);
        EXPECT_EQ(set == nullptr, failed());
        tavRulesFree(set);
    });
}

TEST_F(RuleTest, RemovalNeedsNoMemory) {
    RulesPtr rules = makeSet();
    TavRule *a = add(rules, 1, "uri = '/a'", "permit:-editiona");
    TavRule *b = add(rules, 2, "uri = '/a'", "permit:-editionb");
    TavRule *c = add(rules, 3, "uri = '/a'", "permit:-editionc");
    TavHttpContext ctx = request("/a");
    TavRuleMatch pin = match(rules, ctx);
    tavSetAllocationGate([](size_t) noexcept -> Boolean { return FALSE; });
    EXPECT_EQ(tavRulesRemoveRule(rules.get(), a), a);
    tavRuleFree(b);
    tavSetAllocationGate(nullptr);
    EXPECT_EQ(editionFor(rules, "/a"), "c");
    EXPECT_STREQ(actionGetEdition(pin.entry()->action), "a");

    ASSERT_TRUE(tavRulesInsertRule(rules.get(), a)); // comes back at its place, once
    EXPECT_EQ(editionFor(rules, "/a"), "a");
    tavRuleSetExpr(a, "uri = '/b'");
    EXPECT_EQ(editionFor(rules, "/a"), "c");
    EXPECT_EQ(editionFor(rules, "/b"), "a");
    tavRuleFree(c);
    EXPECT_EQ(editionFor(rules, "/a"), "-");
}

TEST_F(RuleTest, RequestsMatchWhileRulesChange) {
    RulesPtr rules = makeSet();
    add(rules, 50, "uri LIKE '/%'", "permit:-editionlast");
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0, matched = 0;
    auto read = [&] {
        TavHttpContext ctx = request("/a");
        while (!done.load()) {
            TavRuleMatch found = match(rules, ctx);
            const TavRuleEntry *entry = found.entry();
            // The expression of an entry and its payload come from one moment: "/a" permits "a" or "last".
            if (!entry || !entry->action) {
                wrong++;
            } else {
                std::string edition = actionGetEdition(entry->action);
                if (edition != (entry->order == 50 ? "last" : "a")) wrong++;
            }
            matched++;
        }
    };
    std::thread readers[] = {std::thread(read), std::thread(read), std::thread(read)};
    while (matched < 3) std::this_thread::yield();
    for (int i = 0; i < 300; i++) {
        TavRule *rule = add(rules, i % 40, "uri = '/a'", "permit:-editiona");
        tavRuleSetObject(rule, actionCreate("permitsticky:-editiona"));
        tavRuleSetExpr(rule, i % 2 ? "uri LIKE '/a%'" : "'open");
        tavRuleSetOrder(rule, 45);
        if (i % 3) tavRuleFree(rule);
        if (i % 50 == 49) {
            TavRule *last = add(rules, 50, "uri LIKE '/%'", "permit:-editionlast");
            for (TavRule *leftOver : TavListRange<TavRule>(rules->rules)) {
                if (leftOver != last) tavRuleFree(leftOver);
            }
        }
    }
    done = true;
    for (std::thread &reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(RuleTest, ParentWrappersTellTheKind) {
    int object;
    TavRuleParentWrapper *wrapper = tavRuleParentWrapperCreate(&object, TAVRULEPARENTTYPE_SFTRACESPEC);
    EXPECT_EQ(tavRuleParentWrapperGetType(wrapper), TAVRULEPARENTTYPE_SFTRACESPEC);
    EXPECT_EQ(tavRuleParentWrapperGetObject(wrapper), &object);
    EXPECT_EQ(tavRuleParentWrapperDestroy(wrapper), &object);
    EXPECT_EQ(tavRuleParentWrapperGetType(nullptr), TAVRULEPARENTTYPE_UNKNOWN);
    EXPECT_EQ(tavRuleParentWrapperDestroy(nullptr), nullptr);
}
